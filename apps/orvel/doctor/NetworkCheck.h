#pragma once

#include "doctor/Finding.h"
#include "network/NetworkOptions.h"

#include <vector>

namespace OrvelTool {

/// Which interfaces there are, and whether what is sent to the group goes out and comes back on
/// each: one datagram is sent on each, with TTL 1 at most, which servers pass over. Takes up to
/// half a second.
Findings checkMulticast(const NetworkOptions& options);

/// Whether the port of the search is free for a server, and others for TCP and UDP.
Findings checkPorts(const NetworkOptions& options, const std::vector<unsigned short>& ports);

/// Searches for servers for a second; for each that answers its id, the round trip, and whether its
/// TCP port can be reached.
Findings checkServers(const NetworkOptions& options);

/// How many files and connections this process may have open.
Finding checkDescriptors();

} // namespace OrvelTool

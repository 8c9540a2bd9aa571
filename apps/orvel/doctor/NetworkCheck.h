#pragma once

#include "doctor/CheckResult.h"
#include "network/NetworkOptions.h"

#include <vector>

namespace OrvelTool {

/// Checks on each interface that a datagram sent to the group comes back. Sends one datagram per
/// interface, with a TTL of at most 1; servers ignore it. Takes up to half a second.
CheckResults checkMulticast(const NetworkOptions& options);

/// Checks that the search port is usable by a server, and that `ports` are free for TCP and UDP.
CheckResults checkPorts(const NetworkOptions& options, const std::vector<unsigned short>& ports);

/// Searches for servers for a second, with 20 queries. Reports the id and round trip of each,
/// whether its TCP port can be reached, and the jitter and loss of the network to it.
CheckResults checkServers(const NetworkOptions& options);

/// Checks how many files and connections this process may open.
CheckResult checkDescriptors();

} // namespace OrvelTool

#pragma once

#include "support/Loopback.h"

#include <Orvel/OwningWorld.h>
#include <Orvel/Server.h>

namespace Orvel::Test {

/// A server on the test's port that leaves nothing behind.
class TidyServer : public OwningWorld<Server> {
public:
    TidyServer() { setMulticastPort(testPort()); }
};

} // namespace Orvel::Test

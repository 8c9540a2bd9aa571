#pragma once

#include "support/Loopback.h"

#include <Orvel/Server.h>

namespace Orvel::Test {

/// A server on the test's port that leaves nothing behind.
class TidyServer : public Server {
public:
    TidyServer() { setMulticastPort(testPort()); }
    ~TidyServer() override {
        clearWorld();
        deleteAllBackends();
    }
};

} // namespace Orvel::Test

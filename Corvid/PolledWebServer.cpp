#include <Corvid/PolledWebServer.h>

namespace Corvid {

PolledWebServer::PolledWebServer() = default;

bool PolledWebServer::update() {
    return serve();
}

std::chrono::steady_clock::time_point PolledWebServer::nextUpdate() const {
    return nextServe();
}

} // namespace Corvid

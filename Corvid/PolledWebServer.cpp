#include <Corvid/PolledWebServer.h>

namespace Corvid {

PolledWebServer::PolledWebServer() = default;

bool PolledWebServer::update() {
    return serve();
}

} // namespace Corvid

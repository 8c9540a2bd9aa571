// A sound server in 30 lines: plays what client back ends on other machines describe, until Ctrl-C.
// sound_server [ADDRESS PORT]: serve on one interface only, be found through another UDP port.
#include <Corvid/InetAddress.h>
#include <Corvid/MultiServer.h>
#include <Orvel/Server.h>
#include <Orvel/Source.h>

#include <cstdlib>

struct SoundServer : Orvel::Server {
    void resetWorld() override { // a client begins anew
        Server::resetWorld();
        createSource(1)->setDataFromURL("/usr/share/sounds/alsa/Front_Left.wav");
    }
};

int main(int argc, char** argv) {
    SoundServer server;
    if (argc == 3) {
        server.multiServer().multicast().setInterfaces(
            {Corvid::InetAddress::getByAddress(argv[1])});
        server.setMulticastPort(static_cast<unsigned short>(std::atoi(argv[2])));
    }
    server.addBackend("default", "");
    server.resetWorld();
    server.receive(true); // until the end
    server.clearWorld();
    server.deleteAllBackends();
}

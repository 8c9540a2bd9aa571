// A sound server in 30 lines: plays the scenes of client back ends on other machines, until Ctrl-C.
// sound_server [ADDRESS PORT]: serves on one interface only, with another UDP search port.
#include <Corvid/InetAddress.h>
#include <Corvid/MultiServer.h>
#include <Orvel/Server.h>
#include <Orvel/Source.h>

#include <cstdlib>

struct SoundServer : Orvel::Server {
    void resetWorld() override { // a client starts a new scene
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
    server.receive(true); // until the process ends
    server.clearWorld();
    server.deleteAllBackends();
}

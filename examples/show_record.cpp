// A sound server records the changes of its client, which plays a scene, and then replays the
// capture: show_record SCENE OUT.orvelrec
#include <Show/CaptureRecorder.h>
#include <Show/Playback.h>

#include <Corvid/InetAddress.h>
#include <Corvid/MultiServer.h>
#include <Orvel/Emitter.h>

#include <chrono>
#include <iostream>
#include <thread>

struct Server : Orvel::Server {
    Server() : Orvel::Server("127.0.0.1", 0) {}
    void resetWorld() override { // the client starts its scene
        Orvel::Server::resetWorld();
        createSource(1); // without a sound; the session is only recorded
    }
};

int main(int argc, char** argv) {
    if (argc != 3) {
        return 2;
    }
    Server server; // found on this machine only, by a port of its own
    const unsigned short port = server.multiServer().port();
    server.multiServer().multicast().setInterfaces(
        {Corvid::InetAddress::getByAddress("127.0.0.1")});
    server.setMulticastPort(port);
    Show::CaptureRecorder recorder(server, argv[2], {argv[1]});
    std::cerr << recorder.error(); // empty
    const Show::ShowFile scene = Show::ShowFile::load(argv[1]);
    Orvel::World client;
    client.addBackend(
        "client", ("deferred=yes interfaces=127.0.0.1 ttl=0 port=" + std::to_string(port)).c_str());
    Show::Playback playing(client, scene);
    playing.start();
    for (int turn = 0; turn < 2000 && server.emitters().size() < scene.emitters(); ++turn) {
        client.update();
        server.receive(false);
        recorder.flush();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    const bool whole = recorder.finish();
    std::cout << recorder.events() << " events in " << recorder.seconds() << " s\n";
    client.clearWorld();
    client.deleteAllBackends();
    server.clearWorld();

    Orvel::World world;
    Show::Playback replay(world, Show::ShowFile::load(argv[2]));
    replay.start();
    replay.advance(replay.end());
    const bool same = world.emitters().size() == scene.emitters() && scene.emitters() > 0;
    std::cout << (same ? "its emitters play again\n" : "something is missing\n");
    world.clearWorld();
    return whole && same ? 0 : 1;
}

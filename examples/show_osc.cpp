// A mixing desk moves the emitters of a scene: Open Sound Control on a world. This program is its
// own desk, for a message: show_osc SCENE
#include <Show/OscInput.h>
#include <Show/Playback.h>

#include <Orvel/Emitter.h>

#include <arpa/inet.h>
#include <array>
#include <cstring>
#include <iostream>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace {

/// Sends "/adm/obj/N/gain" with a number over UDP, as a desk would.
void sendGain(unsigned short port, int emitter, float gain) {
    const auto padded = [](std::string text) { return text.append(4 - text.size() % 4, '\0'); };
    std::string message = padded("/adm/obj/" + std::to_string(emitter) + "/gain") + padded(",f");
    std::array<unsigned, 1> number{};
    std::memcpy(number.data(), &gain, sizeof gain);
    number[0] = htonl(number[0]);
    message.append(reinterpret_cast<const char*>(number.data()), sizeof number);
    sockaddr_in desk{};
    desk.sin_family = AF_INET;
    desk.sin_port = htons(port);
    desk.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int udp = socket(AF_INET, SOCK_DGRAM, 0);
    sendto(udp, message.data(), message.size(), 0, reinterpret_cast<sockaddr*>(&desk), sizeof desk);
    close(udp);
}

} // namespace

int main(int argc, char** argv) {
    Orvel::World world;
    Show::Playback playback(world, Show::ShowFile::load(argc == 2 ? argv[1] : "scene.json"));
    Show::OscInput desk(world);
    if (!playback.isGood() || !desk.isOpen()) {
        std::cerr << playback.error() << desk.error() << '\n';
        return 1;
    }
    playback.start();
    Orvel::Emitter& emitter = *world.emitters().begin()->second;
    std::cout << "taking Open Sound Control at port " << desk.port() << '\n';
    sendGain(desk.port(), emitter.id(), 0.25F);
    for (int turn = 0; turn < 200 && emitter.gain() != 0.25F; ++turn) {
        desk.serve(0.05); // waits until something comes
        world.update();
    }
    std::cout << "gain " << emitter.gain() << "; " << desk.summary() << '\n';
    const bool moved = emitter.gain() == 0.25F;
    world.clearWorld();
    return moved ? 0 : 1;
}

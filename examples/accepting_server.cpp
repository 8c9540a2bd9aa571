// A server that accepts sounds from its clients and plays these instead of its own. Both sides are
// here, in one process on the loopback interface, each with the part that the library leaves to the
// application. A file from any client is then written to this machine.
#include <Corvid/InetAddress.h>
#include <Corvid/MultiClient.h>
#include <Corvid/MultiServer.h>
#include <Orvel/ClientBackend.h>
#include <Orvel/Emitter.h>
#include <Orvel/Server.h>
#include <Orvel/Source.h>
#include <Orvel/SourceDataEvent.h>

#include <chrono>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>

namespace {

constexpr const char* kSound = "/usr/share/sounds/alsa/Front_Left.wav";

class AcceptingServer : public Orvel::Server {
public:
    std::string file; // of the latest sound

protected:
    bool interceptEvent(Corvid::Event& event, Corvid::Communicator& /*from*/) override {
        auto* sound = dynamic_cast<Orvel::SourceDataEvent*>(&event);
        if (sound == nullptr) {
            return false; // all other events are applied as usual
        }
        Orvel::Source* source = getSource(sound->objectId);
        if (source == nullptr) {
            source = createSource(sound->objectId);
        }
        if (sound->data() != nullptr && writeLocalData(*sound, file)) {
            source->setDataFromURL(file);
        }
        return true;
    }
};

// Sends the file with the source; the plain back end does not.
class SendingBackend : public Orvel::ClientBackend {
public:
    using ClientBackend::ClientBackend;
    void setSourceData(Orvel::Source& source) override {
        Orvel::SourceDataEvent event;
        event.address(Orvel::CmdCreateSource, source.id());
        event.fileName = kSound;
        if (event.loadData()) {
            event.send(&multiClient());
        }
    }
};

} // namespace

int main() {
    // Received files are written to the current directory.
    const auto folder = std::filesystem::temp_directory_path() / "orvel_accepting_server";
    std::filesystem::create_directories(folder);
    std::filesystem::current_path(folder);

    AcceptingServer server;
    const unsigned short port = server.multiServer().port();
    server.multiServer().multicast().setInterfaces(
        {Corvid::InetAddress::getByAddress("127.0.0.1")});
    server.setMulticastPort(port);
    server.addBackend("default", "");

    Orvel::World world;
    const std::string params = "deferred=yes interfaces=127.0.0.1 port=" + std::to_string(port);
    const auto client = std::make_unique<SendingBackend>(world, params.c_str());
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    Orvel::Source* voice = nullptr;
    while (server.file.empty() && std::chrono::steady_clock::now() < deadline) {
        server.multiServer().waitForCommunicators(std::chrono::milliseconds(10));
        server.receive(false);
        world.update(); // brings the server up to date, on this thread
        if (voice == nullptr && !client->multiClient().counters().connections.empty()) {
            voice = world.createSource(1);
            voice->setDataFromURL(kSound);
        }
    }
    const bool same = !server.file.empty() &&
                      std::filesystem::file_size(server.file) == std::filesystem::file_size(kSound);
    std::cout << (same ? "the server has got the sound as " + server.file : "nothing came") << '\n';

    world.clearWorld();
    server.clearWorld();
    server.deleteAllBackends();
    std::filesystem::current_path("/");
    std::filesystem::remove_all(folder);
    return same ? 0 : 1;
}

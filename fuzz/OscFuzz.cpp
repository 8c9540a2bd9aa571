#include "Require.h"
#include <Show/osc/OscInbox.h>
#include <Show/osc/OscScene.h>
#include <Show/osc/OscStream.h>

#include <Orvel/Emitter.h>
#include <Orvel/OwningWorld.h>
#include <Orvel/Server.h>
#include <Orvel/SilentBackend.h>
#include <Orvel/Source.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>

using namespace Show;

namespace {

bool sound(const Orvel::Vec3f& v) {
    return !std::isnan(v.x) && !std::isnan(v.y) && !std::isnan(v.z);
}

/// A world with parts, and all layers between it and the network.
class Target {
public:
    Target() {
        for (const int id : {1, 2}) {
            world_.createSource(id);
            world_.createEmitter({}, id + 10)->setSource(world_.getSource(id));
        }
    }
    Target(const Target&) = delete;
    Target& operator=(const Target&) = delete;

    void packet(std::span<const std::byte> bytes) {
        inbox_.add(bytes, now_);
        now_ += std::chrono::seconds(1);
    }
    void check() {
        inbox_.advance(OscInbox::Clock::time_point::max());
        require(!inbox_.next());
        for (const auto& [id, emitter] : world_.emitters()) {
            require(id > 0 && sound(emitter->position()) && emitter->gain() >= 0.0F);
        }
        require(sound(world_.listenerPosition()));
    }

private:
    Orvel::OwningWorld<> world_;
    Orvel::SilentBackend backend_{world_, nullptr};
    OscScene scene_{world_, 10.0F, [this](Orvel::CommandEvent& event) {
                        require(Orvel::Server::applyEvent(world_, &event));
                    }};
    OscInbox inbox_{
        [this](std::span<const std::byte> message, const OscPeer&) {
            std::vector<OscAnswer> answers;
            require(scene_.take(message, answers).find('\n') == std::string::npos);
            require(answers.size() <= OscScene::kMaxAnswers);
            encode(answers, [](std::span<const std::byte> packet) { require(!packet.empty()); });
        },
        [](const std::string& fault, const OscPeer&) { require(!fault.empty()); }};
    OscInbox::Clock::time_point now_;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto all = std::as_bytes(std::span(data, size));
    Target datagram;
    datagram.packet(all);
    datagram.check();
    // The same bytes as a connection, in pieces.
    Target connection;
    OscStream stream;
    for (std::size_t at = 0; at < all.size() && !stream.broken(); at += 7) {
        stream.feed(all.subspan(at, std::min<std::size_t>(7, all.size() - at)));
        for (std::span<const std::byte> packet; stream.next(packet);) {
            require(!packet.empty() && packet.size() <= OscStream::kMaxBytes);
            connection.packet(packet);
        }
    }
    connection.check();
    return 0;
}

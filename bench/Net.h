#pragma once

#include "Raw.h"

#include <Corvid/Keys.h>
#include <Corvid/MultiClient.h>
#include <Corvid/MultiServer.h>
#include <Orvel/ClientBackend.h>
#include <Orvel/Emitter.h>
#include <Orvel/Log.h>
#include <Orvel/OwningWorld.h>
#include <Orvel/Server.h>
#include <Orvel/World.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace OrvelBench {

// The library on loopback

/// A discovery port that no other process uses.
inline std::uint16_t groupPort() {
    static const std::uint16_t port =
        bindToFreePort(Socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)));
    return port;
}

/// Keeps all traffic on this machine, and suppresses messages about connections.
inline void prepareNetwork() {
    Corvid::Multicast::setDefaultInterfaces({Corvid::InetAddress::fromBits(INADDR_LOOPBACK)});
    Orvel::Log::the().setLevel(Orvel::Log::Level::Log);
    std::cout.setstate(std::ios::failbit);
}

/// A sound server that counts the transforms applied to its world.
class CountingServer : public Orvel::OwningWorld<Orvel::Server> {
public:
    CountingServer() { setMulticastPort(groupPort()); }
    void setEmitterTransform(Orvel::Emitter& emitter) override {
        World::setEmitterTransform(emitter);
        applied_.store(applied_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    }
    [[nodiscard]] long applied() const { return applied_.load(std::memory_order_relaxed); }

private:
    std::atomic<long> applied_ = 0;
};

/// A key file of this process, removed at its end.
class KeyFile {
public:
    KeyFile() {
        Corvid::Keys keys;
        if (!keys.grant("bench", Corvid::Keys::Right::Drive).empty() ||
            !keys.save(path, true).empty()) {
            fail("no key file can be made in /tmp");
        }
    }
    KeyFile(const KeyFile&) = delete;
    KeyFile& operator=(const KeyFile&) = delete;
    ~KeyFile() { std::remove(path.c_str()); }

    const std::string path = "/tmp/orvel-bench-" + std::to_string(::getpid()) + ".keys";
};

/// A world with a client back end, and with emitters that move.
template <class BasicWorld = Orvel::World>
struct HostScene {
    /// `keys`: a key file, or empty.
    explicit HostScene(int emitterCount, const std::string& keys = "") {
        const std::string params =
            "port=" + std::to_string(groupPort()) + (keys.empty() ? "" : " key='" + keys + "'");
        client = dynamic_cast<Orvel::ClientBackend*>(world.addBackend("client", params.c_str()));
        if (client == nullptr) {
            fail("there is no back end \"client\"");
        }
        for (int i = 0; i < emitterCount; ++i) {
            emitters.push_back(world.createEmitter());
        }
    }
    HostScene(const HostScene&) = delete;
    HostScene& operator=(const HostScene&) = delete;
    ~HostScene() {
        world.deleteAllBackends();
        world.clearWorld();
    }

    /// Waits until this many servers have received the whole scene, which is sent on another
    /// thread.
    void waitForServers(std::size_t count) {
        std::size_t events = 2 + 2 * world.sources().size();
        for (const Orvel::Emitter* emitter : emitters) {
            events += emitter->state() == Orvel::WorldPart::NONE ? 5 : 6;
        }
        const auto all = [&] {
            const auto connections = client->multiClient().counters().connections;
            return connections.size() == count &&
                   std::all_of(connections.begin(), connections.end(), [&](const auto& one) {
                       return one.eventsOut >= events;
                   });
        };
        waitUntil(all, "connection with the servers");
    }
    [[nodiscard]] static Orvel::Vec3f position(unsigned pass) {
        return pass % 2 == 0 ? Orvel::Vec3f{1, 2, 3} : Orvel::Vec3f{-3, 2, -1};
    }
    void moveAll() {
        const Orvel::Vec3f to = position(++pass);
        for (std::size_t i = 0; i < emitters.size(); ++i) {
            emitters[permuted(i, emitters.size())]->setTransform(&to, nullptr);
        }
    }
    /// Of a scene of kEmitters.
    void move(const Transform& to) {
        const auto& v = to.values;
        const Orvel::Vec3f position{v[0], v[1], v[2]};
        const Orvel::Quaternion rotation{v[3], v[4], v[5], v[6]};
        emitters[static_cast<std::size_t>(to.id - 1)]->setTransform(&position, &rotation);
    }

    BasicWorld world;
    Orvel::ClientBackend* client = nullptr;
    std::vector<Orvel::Emitter*> emitters;
    unsigned pass = 0;
};

} // namespace OrvelBench

// The cost of a monitor's client for the frame loop: the time inside each update() while one answer
// is made and sent, with 1,000 moving emitters.
#include "Net.h"
#include <Show/monitor/MonitorBackend.h>

#include <Orvel/OwningWorld.h>
#include <Orvel/Source.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace {

using OrvelBench::Clock;

constexpr int kEmitters = 1000;
constexpr int kSources = 100;

struct Scene {
    Scene() {
        monitor = dynamic_cast<Show::MonitorBackend*>(
            world.addBackend("monitor", "address=127.0.0.1 port=0"));
        if (monitor == nullptr || !monitor->isOpen()) {
            OrvelBench::fail("the monitor is not open");
        }
        for (int i = 0; i < kSources; ++i) {
            sources.push_back(world.createSource());
            monitor->setSoundName(sources.back()->id(), "Front_Left");
        }
        for (int i = 0; i < kEmitters; ++i) {
            Orvel::Emitter* emitter = world.createEmitter({"front", "left \"row\""});
            emitter->setSource(sources[static_cast<std::size_t>(i % kSources)]);
            emitter->setState(Orvel::Emitter::PLAY);
            emitters.push_back(emitter);
        }
    }
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;

    [[nodiscard]] std::uint16_t port() const {
        const std::string url = monitor->url();
        return static_cast<std::uint16_t>(std::stoi(url.substr(url.rfind(':') + 1)));
    }
    void move() {
        for (std::size_t i = 0; i < emitters.size(); ++i) {
            const float at = 0.0123F * static_cast<float>(i) + 0.001F * static_cast<float>(++frame);
            const Orvel::Vec3f position{at, 0.5F * at, -at};
            emitters[i]->setTransform(&position, nullptr);
        }
    }

    Orvel::OwningWorld<> world;
    Show::MonitorBackend* monitor = nullptr;
    std::vector<Orvel::Source*> sources;
    std::vector<Orvel::Emitter*> emitters;
    int frame = 0;
};

/// The seconds inside update() for one answer.
struct Access {
    double longest = 0.0;
    double sum = 0.0;
    double updates = 0.0;
    double bytes = 0.0;
};

Access look(Scene& scene, const std::string& path) {
    const OrvelBench::Socket socket = OrvelBench::connectTo(scene.port());
    const std::string request =
        "GET " + path + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n";
    socket.sendAll(request.data(), request.size());
    Access access;
    std::string answer;
    std::vector<char> buffer(1U << 20U);
    const auto begin = Clock::now();
    for (bool open = true; open;) {
        if (OrvelBench::secondsSince(begin) > 10.0) {
            OrvelBench::fail("no whole answer for " + path);
        }
        scene.move();
        const auto before = Clock::now();
        scene.monitor->update();
        const double seconds = OrvelBench::secondsSince(before);
        access.longest = std::max(access.longest, seconds);
        access.sum += seconds;
        ++access.updates;
        const ssize_t size = ::recv(socket.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (size > 0) {
            answer.append(buffer.data(), static_cast<std::size_t>(size));
        } else {
            open = size < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
        }
    }
    if (!answer.starts_with("HTTP/1.1 200")) {
        OrvelBench::fail("the monitor refused " + path);
    }
    access.bytes = static_cast<double>(answer.size());
    return access;
}

/// An update without requests.
double idle(Scene& scene) {
    constexpr int kTurns = 200;
    const auto begin = Clock::now();
    for (int i = 0; i < kTurns; ++i) {
        scene.monitor->update();
    }
    return OrvelBench::secondsSince(begin) / kTurns;
}

} // namespace

int main(int argc, char** argv) {
    OrvelBench::Report report("Looking at the monitor, 1,000 emitters", argc, argv);
    OrvelBench::prepareNetwork();
    Scene scene;
    for (const char* path : {"/api/scene", "/api/status", "/metrics", "/monitor.js"}) {
        OrvelBench::Pairs longest;
        OrvelBench::Pairs whole;
        double worst = 0.0;
        Access access;
        for (int i = 0; i < (report.quick() ? 3 : 300); ++i) {
            const double unwatched = idle(scene);
            access = look(scene, path);
            longest.add(access.longest, unwatched);
            whole.add(access.sum, unwatched * access.updates);
            worst = std::max(worst, access.longest);
        }
        const std::string name = path;
        report.row(name + ", longest update", longest.medians(), OrvelBench::kMicroseconds);
        report.limit(longest.medians().figure, OrvelBench::kMicroseconds, 1000.0);
        report.figure(name + ", worst of 300", worst, OrvelBench::kMicroseconds, 1000.0);
        char updates[64];
        std::snprintf(
            updates, sizeof updates, ", all %.0f updates, %.0f KiB", access.updates,
            access.bytes / 1024.0);
        report.row(name + updates, whole.medians(), OrvelBench::kMicroseconds);
        report.limit(whole.medians().figure, OrvelBench::kMicroseconds, 1000.0);
    }
    return report.finish();
}

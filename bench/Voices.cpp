// The kind "voices": the processor time of many emitters, streams and headphones, how soon sounds
// are there, and how far the mix of the loudest is from that of all.
#include "DirectScene.h"
#include "Ratio.h"
#include "Sound.h"

#include <Orvel/BackendState.h>
#include <Orvel/Emitter.h>
#include <Orvel/Log.h>
#include <Orvel/VoicesBackend.h>
#include <Orvel/World.h>

#include <sndfile.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <malloc.h>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using Hearing = Orvel::BackendState::Hearing;
using OrvelBench::Aim;
using OrvelBench::Clock;
using OrvelBench::Comparison;
using OrvelBench::DirectScene;
using OrvelBench::kRate;
using OrvelBench::kSteps;
using OrvelBench::Report;
using OrvelBench::secondsSince;
using OrvelBench::Unit;

constexpr Unit kOfACore{"% core", 100.0};
constexpr Unit kDecibels{"dB", 1.0};
constexpr double kMaxMore = 15.0; // of a core, in percent, as all those
constexpr double kMaxForStreams = 10.0;
constexpr double kMaxForHeadphones = 50.0;
constexpr double kMaxDifference = -40.0; // dB
constexpr double kMaxUntilBegun = 50.0;  // ms
constexpr double kMaxForStream = 2.0;    // MiB
constexpr double kMaxUntilRight = 20.0;  // ms

constexpr int kMany = 10'000;
constexpr int kVoices = 128;
constexpr std::chrono::milliseconds kTurn{10}; // of a host: all emitters move 100 times a second
constexpr unsigned kFrames = kRate / 100;
using Block = std::array<float, std::size_t{2} * kFrames>;

/// A second of noise, 16-bit mono.
std::vector<unsigned char> noise() {
    std::mt19937 random(1);
    std::vector<unsigned char> bytes(std::size_t{2} * kRate);
    for (std::size_t i = 0; i < bytes.size(); i += 2) {
        const auto sample = static_cast<std::int16_t>(static_cast<int>(random() % 16384U) - 8192);
        bytes[i] = static_cast<unsigned char>(sample & 0xFF);
        bytes[i + 1] = static_cast<unsigned char>((sample >> 8) & 0xFF);
    }
    return bytes;
}

/// The gains fall so that the loudest kVoices hold the energy: the others are 50 dB below in all.
float gainOf(int emitter) {
    return 0.5F * std::max(std::exp(-static_cast<float>(emitter) / 20.0F), 1e-4F);
}

/// Each begins elsewhere in the noise, so that they are incoherent.
int startOf(int emitter) {
    return static_cast<int>(std::int64_t{emitter} * 7919 % kRate);
}

/// OrvelBench::placeOf() from a table: the sines of 10,000 emitters would be measured too.
Orvel::Vec3f placeAt(int emitter, int step) {
    constexpr int kPaths = 704;
    static const std::vector<Orvel::Vec3f> places = [] {
        std::vector<Orvel::Vec3f> all;
        for (int i = 0; i < kPaths * kSteps; ++i) {
            all.push_back(OrvelBench::placeOf(i / kSteps, i % kSteps));
        }
        return all;
    }();
    return places[static_cast<std::size_t>(emitter % kPaths * kSteps + step)];
}

/// A scene that a back end of the kind plays.
class Scene {
public:
    explicit Scene(const std::string& params) : backend_(world_, params.c_str()) {
        constexpr std::chrono::seconds kPatience{5};
        if (!(backend_.isOffline() ? backend_.state().working
                                   : backend_.waitForDevice(kPatience))) {
            OrvelBench::fail("OpenAL opens no device for the back end");
        }
    }
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;
    ~Scene() { world_.clearWorld(); }

    /// Adds emitters of one looped noise, `away` from the listener's first place.
    void addNoises(int count, float away = 0.0F) {
        Orvel::Source* source = world_.createSource();
        OrvelBench::setSamples(*source, noise());
        source->setParam(true, 1.0F);
        for (int i = 0; i < count; ++i) {
            Orvel::Emitter& emitter = add(*source);
            emitter.setParam(true, 0.0F, gainOf(i));
            emitter.setStartOffset(static_cast<double>(startOf(i)) / kRate);
            const Orvel::Vec3f place = placeAt(i, 0);
            emitter.setTransform(
                std::array{Orvel::Vec3f{place.x + away, 0.0F, place.z}}.data(), nullptr);
        }
        source->setState(Orvel::WorldPart::PLAY);
    }
    /// Adds an emitter of a looped file.
    void addFile(const std::string& path) {
        Orvel::Source* source = world_.createSource();
        source->setDataFromURL(path);
        source->setParam(true, 1.0F);
        add(*source);
        source->setState(Orvel::WorldPart::PLAY);
    }
    void move(int step) {
        int i = 0;
        for (Orvel::Emitter* emitter : emitters_) {
            const Orvel::Vec3f place = placeAt(i++, step);
            emitter->setTransform(&place, nullptr);
        }
    }
    void moveListener(float x) { world_.setListenerTransform({x, 0.0F, 0.0F}, {}); }
    void render(float* samples, unsigned frames) { backend_.render(samples, frames); }

    /// Updates until so many emitters are mixed. Returns how long that took, in seconds.
    double waitForSounds(std::size_t count) {
        const auto begin = Clock::now();
        const auto mixed = [&] {
            world_.update();
            const auto heard = backend_.state().emitters;
            return static_cast<std::size_t>(
                std::count_if(heard.begin(), heard.end(), [](const auto& one) {
                    return one.hearing == Hearing::Mixed;
                }));
        };
        constexpr double kPatience = 30.0;
        while (mixed() < count) {
            if (secondsSince(begin) > kPatience) {
                OrvelBench::fail("the sounds do not begin");
            }
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
        return secondsSince(begin);
    }
    [[nodiscard]] std::uint64_t gaps() const { return backend_.state().gaps; }

private:
    Orvel::Emitter& add(Orvel::Source& source) {
        Orvel::Emitter* emitter = world_.createEmitter();
        emitter->setHull(OrvelBench::kFar, OrvelBench::kFar, OrvelBench::kNear, OrvelBench::kNear);
        emitter->setSource(&source);
        emitters_.push_back(emitter);
        return *emitter;
    }

    Orvel::World world_;
    Orvel::VoicesBackend backend_;
    std::vector<Orvel::Emitter*> emitters_;
};

/// A turn of 10 ms offline: all emitters move, and the sound is rendered.
template <class Move, class Rendered>
auto turn(Rendered& scene, Move move) {
    return [&scene, move, step = 0, block = Block{}]() mutable {
        step = (step + 1) % kSteps;
        move(step);
        scene.render(block.data(), kFrames);
        benchmark::DoNotOptimize(block);
    };
}
auto turn(Scene& scene) {
    return turn(scene, [&scene](int step) { scene.move(step); });
}
auto turn(DirectScene& scene) {
    return turn(
        scene, [&scene](int step) { scene.move([step](int i) { return placeAt(i, step); }); });
}

DirectScene::Settings directly(int emitters, bool binaural = false) {
    return {emitters, noise(), gainOf, startOf, binaural};
}

std::string offline(int voices, const char* more = "") {
    return "offline=yes voices=" + std::to_string(voices) + ' ' + more;
}

/// The share of a core that the process takes while `work` is called in each turn.
template <class Work>
double shareOf(double seconds, Work&& work) {
    const auto before = OrvelBench::ProcessorClock::now();
    const auto begin = Clock::now();
    for (auto next = begin; secondsSince(begin) < seconds;) {
        work();
        next += kTurn;
        std::this_thread::sleep_until(next);
    }
    const auto taken = OrvelBench::ProcessorClock::now() - before;
    return std::chrono::duration<double>(taken).count() / secondsSince(begin);
}

/// Compares two scenes on a device: each is made, measured and deleted in turn.
template <class Figure, class Baseline>
Comparison compareShares(const Report& report, Figure&& figure, Baseline&& baseline) {
    OrvelBench::Pairs pairs;
    for (int i = 0; i < (report.quick() ? 1 : 3); ++i) {
        const double a = figure();
        pairs.add(a, baseline());
    }
    return pairs.medians();
}

void measureMany(Report& report) {
    {
        Scene all(offline(kVoices));
        Scene loudest(offline(kVoices));
        DirectScene direct(directly(kVoices));
        all.addNoises(kMany);
        loudest.addNoises(kVoices);
        report.row(
            "10,000 moving, beside the 128 alone",
            report.compare<OrvelBench::ProcessorClock>(0.01, turn(all), turn(loudest)), kOfACore,
            {Aim::Of::Difference, kMaxMore});
        report.row(
            "the 128 alone, beside OpenAL",
            report.compare<OrvelBench::ProcessorClock>(0.01, turn(loudest), turn(direct)),
            kOfACore);
    }
    const auto onDevice = [&](int count) {
        Scene scene("voices=" + std::to_string(kVoices));
        scene.addNoises(count);
        scene.waitForSounds(kVoices);
        int step = 0;
        return shareOf(report.budget(), [&] { scene.move(++step % kSteps); });
    };
    report.row(
        "the same on a device",
        compareShares(
            report, [&] { return onDevice(kMany); }, [&] { return onDevice(kVoices); }),
        kOfACore, {Aim::Of::Difference, kMaxMore});

    Scene all(offline(kVoices));
    all.addNoises(kMany);
    DirectScene direct(directly(kMany));
    double difference = 0.0;
    double energy = 0.0;
    for (int i = 0; i < (report.quick() ? 2 : 200); ++i) {
        Block mixed{};
        Block whole{};
        all.render(mixed.data(), kFrames);
        direct.render(whole.data(), kFrames);
        for (std::size_t n = 0; n < mixed.size(); ++n) {
            difference += std::pow(static_cast<double>(mixed[n] - whole[n]), 2.0);
            energy += std::pow(static_cast<double>(whole[n]), 2.0);
        }
        all.move(i % kSteps);
        direct.move([i](int emitter) { return placeAt(emitter, i % kSteps); });
    }
    report.figure(
        "difference from all 10,000, in OpenAL", 10.0 * std::log10(difference / energy), kDecibels,
        kMaxDifference);
}

void measureHeadphones(Report& report) {
    constexpr int kCount = 256;
    Scene scene(offline(kCount, "output=headphones hrtf=default"));
    scene.addNoises(kCount);
    DirectScene direct(directly(kCount, true));
    const Comparison result =
        report.compare<OrvelBench::ProcessorClock>(0.01, turn(scene), turn(direct));
    report.row("256 for headphones, moving", result, kOfACore);
    report.limit(result.figure, kOfACore, kMaxForHeadphones);
}

/// After a jump of the listener to other sounds: the time from which on the mix is that of a
/// listener who has always been there, in seconds.
void measureJump(Report& report) {
    constexpr float kAway = 10'000.0F;
    constexpr unsigned kStep = kRate / 1000;
    constexpr int kSettled = 50; // ms
    const int rounds = report.quick() ? 1 : 20;
    int worst = 0;
    for (int round = 0; round < rounds; ++round) {
        std::array<Scene, 2> scenes{Scene(offline(kVoices)), Scene(offline(kVoices))};
        for (Scene& scene : scenes) {
            scene.addNoises(kMany / 10);
            scene.addNoises(kMany / 10, kAway);
        }
        scenes[1].moveListener(kAway);
        std::vector<float> before(
            std::size_t{2} * (kRate / 10 + static_cast<unsigned>(round) * 23));
        for (Scene& scene : scenes) {
            scene.render(before.data(), static_cast<unsigned>(before.size() / 2));
        }
        scenes[0].moveListener(kAway);
        int wrong = 0; // the last of the steps
        for (int i = 1; i <= kSettled; ++i) {
            std::array<std::array<float, std::size_t{2} * kStep>, 2> sounds{};
            for (std::size_t n = 0; n < scenes.size(); ++n) {
                scenes[n].render(sounds[n].data(), kStep);
            }
            double difference = 0.0;
            double energy = 0.0;
            for (std::size_t n = 0; n < sounds[0].size(); ++n) {
                difference += std::pow(static_cast<double>(sounds[0][n] - sounds[1][n]), 2.0);
                energy += std::pow(static_cast<double>(sounds[1][n]), 2.0);
            }
            if (10.0 * std::log10(difference / energy) > kMaxDifference) {
                wrong = i;
            }
        }
        worst = std::max(worst, wrong);
    }
    report.figure(
        "a jump of the listener, until -40 dB", worst * 1e-3, OrvelBench::kMilliseconds,
        kMaxUntilRight);
}

/// Writes a mono file of noise.
void writeNoise(const std::string& path, int format, double seconds) {
    SF_INFO info{0, static_cast<int>(kRate), 1, format, 0, 0};
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    const auto samples = noise();
    for (double at = 0.0; file != nullptr && at < seconds; at += 1.0) {
        sf_writef_short(
            file, reinterpret_cast<const short*>(samples.data()), static_cast<sf_count_t>(kRate));
    }
    if (file == nullptr || sf_close(file) != 0) {
        OrvelBench::fail("cannot write " + path);
    }
}

void measureStreams(Report& report, const std::filesystem::path& folder) {
    constexpr int kStreams = 64;
    const struct {
        const char* name;
        int format;
        bool hasAim;
    } formats[] = {
        {"wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, true},
        {"flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, true},
        {"ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, false}}; // its decoder takes the time
    for (const auto& format : formats) {
        std::uint64_t gaps = 0;
        const std::string path = folder / (std::string("noise.") + format.name);
        writeNoise(path, format.format, 12.0);
        const auto share = [&](const char* streamFrom) {
            Scene scene(std::string("streamFrom=") + streamFrom);
            for (int i = 0; i < kStreams; ++i) {
                scene.addFile(path);
            }
            scene.waitForSounds(kStreams);
            const double of = shareOf(report.budget(), [] {});
            gaps += scene.gaps();
            return of;
        };
        const Comparison result = compareShares(
            report, [&] { return share("10"); }, [&] { return share("100"); });
        report.row(std::string("64 streams, .") + format.name + ", beside whole", result, kOfACore);
        if (format.hasAim) {
            report.limit(result.figure, kOfACore, kMaxForStreams);
        }
        report.figure("their gaps", static_cast<double>(gaps), OrvelBench::kTimes, 0.0);
    }
}

/// A WAV file of an hour of silence, of which nothing but the header is on the disk.
void writeHour(const std::string& path) {
    writeNoise(path, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1.0);
    constexpr std::uint32_t kBytes = 3600U * 2U * kRate;
    std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
    const auto put = [&file](std::streamoff at, std::uint32_t value) {
        file.seekp(at).write(reinterpret_cast<const char*>(&value), sizeof value);
    };
    put(4, kBytes + 36U);
    put(40, kBytes);
    file.close();
    std::filesystem::resize_file(path, kBytes + 44U);
    if (!file) {
        OrvelBench::fail("cannot write " + path);
    }
}

std::size_t memory() {
    const auto info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

void measureHour(Report& report, const std::filesystem::path& folder) {
    const std::string path = folder / "hour.wav";
    writeHour(path);
    std::vector<double> begins;
    std::vector<double> sizes;
    for (int i = 0; i < (report.quick() ? 1 : 11); ++i) {
        Scene scene("voices=1");
        const std::size_t before = memory();
        scene.addFile(path);
        begins.push_back(scene.waitForSounds(1));
        shareOf(report.budget() / 3.0, [] {});
        sizes.push_back(static_cast<double>(memory() - before));
    }
    report.figure(
        "an hour's file begins, the longest", *std::max_element(begins.begin(), begins.end()),
        OrvelBench::kMilliseconds, kMaxUntilBegun);
    report.figure(
        "memory of an hour's file", OrvelBench::median(sizes), OrvelBench::kMebibytes,
        kMaxForStream);
}

} // namespace

int main(int argc, char** argv) {
    OrvelBench::isolateOpenAL();
    Report report("Voices", argc, argv);
    Orvel::Log::the().setCallback([](auto, auto) {}); // the loading of each file
    const auto folder = std::filesystem::temp_directory_path() /
                        ("orvel-bench-" + std::to_string(Clock::now().time_since_epoch().count()));
    std::filesystem::create_directory(folder);
    measureMany(report);
    measureHeadphones(report);
    measureJump(report);
    measureStreams(report, folder);
    measureHour(report, folder);
    std::filesystem::remove_all(folder);
    return report.finish();
}

// The kind "voices" while a scene changes at random and the device is lost again and again. OpenAL
// chooses its driver once per process, so this program has one test.
#include "NoiseFile.h"
#include "Sound.h"

#include <Orvel/BackendState.h>
#include <Orvel/VoicesBackend.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <random>
#include <support/Capture.h>
#include <support/Loopback.h>
#include <support/RecordingBackend.h>
#include <support/TemporaryFolder.h>
#include <sys/resource.h>

namespace Orvel::Test {

namespace {

constexpr std::size_t kVoices = 8;
constexpr std::size_t kMaxParts = 40;

/// Changes a world at random, always in the same way.
class Changes {
public:
    Changes(World& world, std::string file) : world_(world), file_(std::move(file)) {}

    /// `ear` also plays one-shots, which are not in the scene.
    void step(VoicesBackend* ear) {
        const unsigned what = below(16);
        Source* source = any(world_.sources());
        Emitter* emitter = any(world_.emitters());
        const Vec3f place{real(-5, 5), real(-5, 5), real(-5, 5)};
        if (source == nullptr || (what == 0 && world_.sources().size() < kMaxParts)) {
            setSound(*world_.createSource());
        } else if (emitter == nullptr || (what <= 2 && world_.emitters().size() < kMaxParts)) {
            emitter = world_.createEmitter();
            emitter->setHull(20, 20, 1, 1);
            emitter->setSource(source);
            emitter->setState(WorldPart::PLAY);
        } else if (what == 3) {
            delete emitter;
        } else if (what == 4) {
            delete source; // maybe under an emitter
        } else if (what == 5) {
            emitter->setSource(below(4) == 0 ? nullptr : source);
        } else if (what == 6) {
            setSound(*source);
        } else if (what == 7) {
            source->setParam(below(2) == 0, real(0.5F, 2.0F));
        } else if (what == 8) {
            emitter->setStartOffset(below(2) == 0 ? 0.0 : 0.3);
            emitter->setState(
                std::array{WorldPart::PLAY, WorldPart::PAUSE, WorldPart::STOP}[below(3)]);
        } else if (what == 9) {
            emitter->setParam(true, 0.0F, real(0, 1));
        } else if (what == 10) {
            world_.setListenerTransform(place, {});
        } else if (what == 11) {
            world_.setEnabled(below(4) != 0);
        } else if (what == 12) {
            const Shot shot{.position = place, .hull = {20, 20, 1, 1}, .gain = real(0, 1)};
            if (ear != nullptr) {
                ear->playOnce(*source, shot);
            }
        } else {
            emitter->setTransform(&place, nullptr);
        }
    }

    /// Leaves as many emitters as there are voices, of looped sounds, and silent.
    void calm() {
        while (world_.emitters().size() > kVoices) {
            delete any(world_.emitters());
        }
        world_.setEnabled(true);
        world_.setListenerTransform({}, {});
        for (const auto& [id, emitter] : world_.emitters()) {
            emitter->setState(WorldPart::STOP);
            emitter->setStartOffset(0.0);
            if (emitter->source() == nullptr) {
                emitter->setSource(any(world_.sources()));
            }
            emitter->source()->setParam(true, emitter->source()->pitch());
        }
    }
    void playAll() {
        for (const auto& [id, emitter] : world_.emitters()) {
            emitter->setState(WorldPart::PLAY);
        }
    }

private:
    unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }
    float real(float least, float most) {
        return least + (most - least) * static_cast<float>(below(1000)) / 1000.0F;
    }
    template <class Parts>
    auto any(const Parts& parts) -> typename Parts::mapped_type {
        const unsigned place = below(1U + static_cast<unsigned>(parts.size()));
        return parts.empty() ? nullptr : std::next(parts.begin(), place % parts.size())->second;
    }
    void setSound(Source& source) {
        if (below(3) == 0) {
            source.setDataFromURL(file_); // is streamed
        } else {
            const auto samples = tone(0.1, 200.0 + 10.0 * below(100));
            source.setData(44100, 16, 1, samples.data(), static_cast<unsigned>(samples.size()));
        }
    }

    World& world_;
    std::string file_;
    std::mt19937 random_{13};
};

/// From its beginning on.
void trim(Stereo& sound) {
    constexpr std::size_t kSilence = 4410; // frames before it
    const auto silent = [](float sample) { return sample == 0.0F; };
    for (auto from = sound.begin();;) {
        const auto begin = std::find_if_not(from, sound.end(), silent);
        const auto next = std::search_n(begin, sound.end(), 2 * kSilence, 0.0F);
        if (next == sound.end()) {
            sound.erase(sound.begin(), begin - (begin - sound.begin()) % 2);
            return;
        }
        from = next;
    }
}

} // namespace

/// ORVEL_STRESS_STEPS sets the number of steps, of about 2 ms.
TEST(VoicesStress, EndsWithTheSceneAndTheSoundOfAQuietRun) {
    const TemporaryFolder folder;
    const std::string path = folder.file("out.wav");
    std::ofstream(folder.file("alsoft.conf"))
        << "[general]\nchannels=stereo\nfrequency=44100\nhrtf=false\noutput-limiter=false\n"
        << "[wave]\nfile=" << path;
    setenv("ALSOFT_CONF", folder.file("alsoft.conf").c_str(), 1);
    setenv("ALSOFT_DRIVERS", "wave", 1);
    setenv("ALSOFT_LOGLEVEL", "0", 1);
    const std::string file =
        writeNoise(folder.file("noise.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, 44100, 2.0);
    const char* wanted = std::getenv("ORVEL_STRESS_STEPS");
    const int steps = wanted == nullptr ? 300 : std::atoi(wanted);
    LogCapture log{Log::Level::Warning};

    // The device's file cannot grow while files may have no byte.
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit room{};
    getrlimit(RLIMIT_FSIZE, &room);
    const auto setDevice = [&room](bool there) {
        const rlimit limit{there ? room.rlim_cur : 0, room.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    };
    std::vector<BackendState::HeardEmitter> heard;
    Stereo sound;
    {
        TidyWorld world;
        Changes changes(world, file);
        auto* ear = new VoicesBackend(world, "voices=8 streamFrom=1");
        const auto reaches = [&](auto condition) {
            return until(condition, [&] { world.update(); });
        };
        ear->waitForDevice(std::chrono::seconds(10));
        for (int i = 0; i < steps; ++i) {
            if (i % 100 == 40) {
                setDevice(false);
            } else if (i % 100 == 70) {
                EXPECT_TRUE(reaches([&] { return !ear->state().working; })) << "step " << i;
                setDevice(true);
            }
            changes.step(ear);
            world.update();
            ::poll(nullptr, 0, 1);
        }
        setDevice(true);
        changes.calm();
        EXPECT_TRUE(reaches([&] {
            const BackendState state = ear->state();
            return state.working && state.voicesUsed == 0 && ear->loadingSounds() == 0 &&
                   ear->shots() == 0;
        }));
        const std::int64_t start = ear->frameClock().soonest + 8820;
        ear->setStartFrame(start);
        changes.playAll();
        EXPECT_TRUE(reaches([&] { return ear->frameClock().mixed > start + 17640; }));
        EXPECT_EQ(ear->state().failures, 0U);
        heard = ear->state().emitters;
        world.deleteAllBackends();
        std::ifstream written(path, std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(written), {}};
        const std::size_t from = bytes.find("data") + 8;
        sound.resize((bytes.size() - from) / 8 * 2);
        std::memcpy(sound.data(), bytes.data() + from, sound.size() * sizeof(float));
    }
    TidyWorld world;
    Changes changes(world, file);
    for (int i = 0; i < steps; ++i) {
        changes.step(nullptr);
    }
    changes.calm();
    auto* ear = new VoicesBackend(world, "voices=8 streamFrom=1 offline=yes");
    world.initBackendState(*ear);
    Stereo quiet(2 * 44100);
    ear->setStartFrame(8820);
    changes.playAll();
    ear->render(quiet.data(), 44100);
    EXPECT_TRUE(
        std::ranges::equal(heard, ear->state().emitters, [](const auto& one, const auto& other) {
            return one.id == other.id && one.hearing == BackendState::Hearing::Mixed &&
                   other.hearing == one.hearing && one.level == other.level;
        }));
    trim(sound);
    trim(quiet);
    constexpr std::size_t kHeard = 2 * 13230; // 0.3 s
    ASSERT_GT(sound.size(), kHeard);
    double most = 0.0;
    for (std::size_t i = 0; i < kHeard; ++i) {
        most = std::max(most, std::abs(static_cast<double>(sound[i] - quiet[i])));
    }
    EXPECT_LT(most, 1e-4);
    EXPECT_GT(level(quiet, 0), -40.0);
}

} // namespace Orvel::Test

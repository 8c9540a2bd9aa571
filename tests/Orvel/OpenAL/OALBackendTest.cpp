// What the back end does to OpenAL, and how it reports what that refuses. Device and context are
// real, but render on demand only.
#include "Sound.h"

#include <Orvel/OALLoopbackBackend.h>
#include <Orvel/detail/OALDevice.h>

#define AL_ALEXT_PROTOTYPES
#include <AL/al.h>
#include <AL/alc.h>
#include <AL/alext.h>
#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <numeric>
#include <support/Capture.h>
#include <support/RecordingBackend.h>

namespace Orvel::Test {

namespace {

const std::string kStateMachine = "FATAL: OpenAL state machine error: ";

void fill(Source& source, unsigned rate, unsigned bits, unsigned channels, std::size_t bytes) {
    const std::vector<unsigned char> data(bytes);
    source.setData(rate, bits, channels, data.data(), static_cast<unsigned>(bytes));
}

/// A world with a source, AL buffer 1, and an emitter, AL source 1.
struct Scene {
    explicit Scene(const char* params = nullptr) : backend(*new OALLoopbackBackend(world, params)) {
        fill(source, 8000, 8, 1, 8000);
    }
    /// What OpenAL has for AL source 1; of a vector the first.
    float value(ALenum key) const {
        EXPECT_FALSE(backend.checkALError(nullptr)); // which makes the context current as well
        ALfloat values[3] = {};
        ALint number = 0;
        switch (key) {
        case AL_POSITION:
            alGetSourcefv(1, key, values);
            return values[0];
        case AL_SOURCE_RELATIVE:
        case AL_LOOPING:
        case AL_BUFFER:
        case AL_SOURCE_STATE:
            alGetSourcei(1, key, &number);
            return static_cast<float>(number);
        default:
            alGetSourcef(1, key, values);
            return values[0];
        }
    }

    OutputCapture errors{STDERR_FILENO};
    TidyWorld world;
    OALLoopbackBackend& backend;
    Source& source = *world.createSource(1);
    Emitter& emitter = *world.createEmitter({}, 11);
};

std::string joined(const Calls& lines) {
    return std::accumulate(lines.begin(), lines.end(), std::string());
}

/// Opens a device that refuses a context without a format.
class DeviceWithoutContext : public detail::OALDevice {
public:
    ALCdevice* open(const Config::ParamBag& /*params*/) override {
        return alcLoopbackOpenDeviceSOFT(nullptr);
    }
};

class BackendWithoutContext : public OALBackend {
public:
    explicit BackendWithoutContext(World& world)
        : OALBackend(world, nullptr, std::make_unique<DeviceWithoutContext>()) {}
};

} // namespace

TEST(OALBackend, SetsInItsOwnContextWhatTheSceneSays) {
    const LogCapture log(Log::Level::Warning);
    Scene t;
    const Scene other; // whose objects have the same names
    const auto place = [&](bool world, bool flag, float x) {
        t.world.setSpatialize(world);
        t.emitter.setParam(flag, 0, 0.25F);
        const Vec3f position{x, -2, 3.5F};
        t.emitter.setTransform(&position, nullptr);
    };
    const auto hull = [&](bool flag, float maxBack, float maxFront, float minBack, float minFront) {
        place(true, flag, 1);
        t.emitter.setHull(maxBack, maxFront, minBack, minFront);
    };
    const auto state = [&](WorldPart::State next) { t.emitter.setState(next); };
    const struct {
        std::function<void()> change;
        std::vector<std::pair<ALenum, float>> expected;
    } rows[] = {
        {[&] { place(true, true, 1); },
         {{AL_POSITION, 1}, {AL_SOURCE_RELATIVE, 0}, {AL_GAIN, 0.25F}}},
        {[&] { place(true, false, 2); }, {{AL_POSITION, 0}, {AL_SOURCE_RELATIVE, 1}}},
        {[&] { place(false, true, 3); }, {{AL_POSITION, 0}, {AL_SOURCE_RELATIVE, 1}}},
        {[&] { hull(false, 9, 9, 5, 5); },
         {{AL_REFERENCE_DISTANCE, 1}, {AL_MAX_DISTANCE, 2}, {AL_ROLLOFF_FACTOR, 0}}},
        {[&] { hull(true, 30, 50, 2, 4); },
         {{AL_REFERENCE_DISTANCE, 3}, {AL_MAX_DISTANCE, 40}, {AL_ROLLOFF_FACTOR, 1}}},
        {[&] { hull(true, 4, 2, 6, 6); }, // inside out
         {{AL_REFERENCE_DISTANCE, 2.997F}, {AL_MAX_DISTANCE, 3}}},
        {[&] { hull(true, NAN, 1, -1, -1); },
         {{AL_REFERENCE_DISTANCE, 0.000999F}, {AL_MAX_DISTANCE, 0.001F}}},
        {[&] { t.source.setParam(true, 1.5F); }, {{AL_PITCH, 1}, {AL_LOOPING, 0}}}, // no emitter
        {[&] { t.emitter.setSource(&t.source); },
         {{AL_BUFFER, 1}, {AL_PITCH, 1.5F}, {AL_LOOPING, 1}}},
        {[&] {
             t.world.createEmitter({}, 5)->setSource(&t.source); // another one, told first
             t.source.setParam(false, 2);
         },
         {{AL_PITCH, 2}, {AL_LOOPING, 0}}},
        {[&] { state(WorldPart::PLAY); }, {{AL_SOURCE_STATE, AL_PLAYING}}},
        {[&] { state(WorldPart::PAUSE); }, {{AL_SOURCE_STATE, AL_PAUSED}}},
        {[&] { state(WorldPart::NONE); }, {{AL_SOURCE_STATE, AL_PAUSED}}},
        {[&] { state(WorldPart::STOP); }, {{AL_SOURCE_STATE, AL_STOPPED}}},
        {[&] { state(WorldPart::PLAY); }, {{AL_SOURCE_STATE, AL_PLAYING}}},
        {[&] { t.emitter.setSource(nullptr); }, {{AL_SOURCE_STATE, AL_STOPPED}, {AL_BUFFER, 0}}},
    };
    for (const auto& row : rows) {
        other.backend.checkALError(nullptr); // makes its context current
        row.change();
        for (const auto& [key, expected] : row.expected) {
            EXPECT_FLOAT_EQ(t.value(key), expected) << &row - rows << std::hex << ", " << key;
        }
    }
    EXPECT_FLOAT_EQ(other.value(AL_GAIN), 1);
    EXPECT_EQ(joined(log.lines()), "");
    t.backend.resetBackend();
    EXPECT_FALSE(alIsSource(1) == AL_TRUE || alIsBuffer(1) == AL_TRUE);
    EXPECT_GT(other.value(AL_MAX_DISTANCE), 0) << "the other's are still there";
}

TEST(OALBackend, ReportsWhatOpenALRefuses) {
    const std::string value = "Invalid enum parameter value"; // for AL_INVALID_VALUE
    const struct {
        std::function<void(Scene&)> change;
        std::string line, reason;
    } rows[] = {
        {[](Scene& t) {
             t.world.setListenerTransform({NAN, 0, 0}, {});
         },
         "Cannot set listener transformation", value},
        {[](Scene& t) {
             const Vec3f position{NAN, 0, 0};
             t.emitter.setTransform(&position, nullptr);
         },
         "Cannot set emitter transformation", value},
        {[](Scene& t) { t.emitter.setParam(true, 0, -1); }, "Cannot set emitter parameters", value},
        {[](Scene& t) {
             t.source.setParam(true, -1);
             t.emitter.setSource(&t.source);
         },
         "Cannot connect emitter and source", value},
        {[](Scene& t) {
             t.emitter.setSource(&t.source);
             t.source.setParam(true, -1);
         },
         "Cannot set source parameters", value},
        {[](Scene& t) {
             t.emitter.setSource(&t.source);
             delete &t.source;
         },
         "Cannot destroy source", "Illegal call"},
        {[](Scene& t) { fill(t.source, 8000, 16, 2, 7); }, "alBufferData() call failed", value},
        {[](Scene& t) {
             for (int i = 0; i < 256; ++i) { // beside the one that is there
                 t.world.createEmitter()->setState(WorldPart::PLAY);
             }
             delete t.world.emitters().rbegin()->second; // which was not made
         },
         "Cannot create emitter", "Out of memory"},
    };
    for (const auto& row : rows) {
        Scene t;
        const LogCapture log(Log::Level::Warning);
        row.change(t);
        const std::string expected =
            "FATAL: " + row.line + "\n" + kStateMachine + row.reason + "\n";
        EXPECT_EQ(joined(log.lines()), expected);
        EXPECT_FALSE(t.backend.checkALError("still pending\n")) << row.line;
    }
}

TEST(OALBackend, NamesErrorsOfOthersAndStatesThatAreNone) {
    Scene t;
    LogCapture log(Log::Level::Warning);
    const std::pair<std::function<void()>, std::string> rows[] = {
        {[] { alSourcePlay(999); }, "Invalid Name parameter passed to AL call"},
        {[] { alListenerf(999, 0); }, "Invalid parameter passed to AL call"},
        {[] { alDistanceModel(999); }, "Invalid enum parameter value"}};
    for (const auto& [fail, text] : rows) {
        fail();
        EXPECT_TRUE(t.backend.checkALError("100 %d\n"));
        EXPECT_EQ(joined(log.take()), "FATAL: 100 %d\n" + kStateMachine + text + "\n");
    }
    t.emitter.setState(static_cast<WorldPart::State>(7));
    EXPECT_EQ(
        joined(log.take()), "FATAL: OALBackend::setEmitterState(): Bad Orvel::Emitter::state 7 \n");
}

TEST(OALBackend, StaysInertWithoutDeviceOrContext) {
    for (const bool device : {false, true}) {
        TidyWorld world;
        const OutputCapture errors(STDERR_FILENO);
        LogCapture log(Log::Level::Warning);
        const OALBackend& backend =
            device ? *new BackendWithoutContext(world) : *new OALBackend(world, nullptr);
        EXPECT_EQ(
            joined(log.take()), device ? "FATAL: Cannot create OpenAL context\n"
                                       : "FATAL: Open OpenAL device failed\n");
        EXPECT_FALSE(backend.working());
        fill(*world.createSource(1), 8000, 8, 1, 100);
        world.createEmitter()->setSource(world.getSource(1));
        world.getSource(1)->setState(WorldPart::PLAY);
        world.reset();
        EXPECT_TRUE(backend.checkALError("not to be logged\n"));
        EXPECT_EQ(joined(log.take()), "");
    }
}

TEST(OALBackend, BuffersSamplesOfTheFourLayouts) {
    const struct {
        unsigned rate, bits, channels, bytes;
        float duration; // 0: refused
        std::string line = {};
    } rows[] = {
        {8000, 8, 1, 4000, 0.5F},
        {22050, 16, 1, 11025 * 2, 0.5F},
        {8000, 8, 2, 4000, 0.25F},
        {44100, 16, 2, 176400, 1.0F},
        {44100, 24, 1, 300, 0, "FATAL: Invalid source bits/channels: 24/1\n"},
        {44100, 16, 3, 600, 0, "FATAL: Invalid source bits/channels: 16/3\n"},
        {0, 16, 1, 200, 0},
        {44100, 0, 1, 200, 0},
        {44100, 16, 0, 200, 0}};
    for (const auto& row : rows) {
        Scene t;
        Source& source = *t.world.createSource(2); // AL buffer 2
        const LogCapture log(Log::Level::Warning);
        fill(source, row.rate, row.bits, row.channels, row.bytes);
        EXPECT_EQ(joined(log.lines()), row.line);
        EXPECT_FLOAT_EQ(source.duration(), row.duration) << &row - rows;
        ALint size = -1;
        alGetBufferi(2, AL_SIZE, &size);
        EXPECT_EQ(size, row.duration > 0 ? static_cast<ALint>(row.bytes) : 0) << &row - rows;
    }
}

} // namespace Orvel::Test

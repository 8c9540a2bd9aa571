// What the back end asks of OpenAL and ALUT, call by call, and what it logs. Linked with FakeAL.
#include "FakeAL.h"

#include <Corvid/URLImpl.h>
#include <Orvel/Emitter.h>
#include <Orvel/OALBackend.h>
#include <Orvel/OALLoopbackBackend.h>
#include <Orvel/Source.h>
#include <Orvel/World.h>

#include <cmath>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <support/Capture.h>
#include <support/TemporaryFolder.h>

namespace Orvel::Test {

namespace {

using Lines = std::vector<std::string>;

/// A world with what its back ends did since the last forget().
struct Scene {
    Scene() { al.reset(); }
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;
    ~Scene() {
        al.failNothing();
        world.clearWorld();
        world.deleteAllBackends();
        EXPECT_EQ(FakeAL::living(), 0) << "a device or context was left open";
    }

    /// A new back end that has been told nothing yet; what its construction did is forgotten.
    OALBackend& add(const char* params = nullptr) { return addTo(world, params); }
    OALBackend& addTo(World& someWorld, const char* params = nullptr) {
        auto* backend = new OALBackend(someWorld, params);
        forget();
        return *backend;
    }
    /// A back end with AL buffer 1 for source 1 and AL source 1 for emitter 11.
    OALBackend& addWithParts() {
        OALBackend& backend = add();
        source = world.createSource(1);
        emitter = world.createEmitter({}, 11);
        forget();
        return backend;
    }
    void forget() {
        al.take();
        log.take();
        errors.take();
        al.queries = 0;
    }

    FakeAL& al = FakeAL::the();
    LogCapture log;
    OutputCapture errors{STDERR_FILENO};
    World world;
    Source* source = nullptr;
    Emitter* emitter = nullptr;
};

const std::string kPending = "FATAL: OpenAL state machine error: Invalid enum parameter value\n";

void fill(Source& source, unsigned rate, unsigned bits, unsigned channels, std::size_t bytes) {
    const std::vector<unsigned char> data(bytes);
    source.setData(rate, bits, channels, data.data(), static_cast<unsigned>(bytes));
}

} // namespace

TEST(OALBackend, OpensAndClosesInOrderAndStaysInertWithoutDeviceOrContext) {
    struct Row {
        bool opens;
        bool createsContexts;
        Lines construction;
        Lines lines;
        Lines destruction;
    };
    const std::vector<Row> rows{
        {true,
         true,
         {"alcOpenDevice(null)", "alcCreateContext(device 1, null)",
          "alcMakeContextCurrent(context 1)", "alutInitWithoutContext(null, null)"},
         {"NOTICE: OpenAL device & context open: ok\n"},
         {"alGetError()", "alcDestroyContext(context 1)", "alcCloseDevice(device 1)",
          "alutExit()"}},
        {false,
         true,
         {"alcOpenDevice(null)", "alutInitWithoutContext(null, null)"},
         {"FATAL: Open OpenAL device failed\n"},
         {"alutExit()"}},
        {true,
         false,
         {"alcOpenDevice(null)", "alcCreateContext(device 1, null)", "alcCloseDevice(device 1)",
          "alutInitWithoutContext(null, null)"},
         {"FATAL: Cannot create OpenAL context\n"},
         {"alutExit()"}}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.lines.front());
        Scene t;
        t.al.opensDevices = row.opens;
        t.al.createsContexts = row.createsContexts;
        auto* backend = new OALBackend(t.world, nullptr);
        EXPECT_EQ(t.al.take(), row.construction);
        EXPECT_EQ(t.log.take(), row.lines);
        EXPECT_EQ(backend->working(), row.opens && row.createsContexts);
        if (!backend->working()) {
            Source* source = t.world.createSource();
            fill(*source, 8000, 8, 1, 100);
            source->setParam(true, 2.0F);
            Emitter* emitter = t.world.createEmitter();
            emitter->setSource(source);
            emitter->setState(WorldPart::PLAY);
            source->setState(WorldPart::STOP);
            t.world.setEnabled(false);
            t.world.initBackendState(*backend);
            t.world.resetWorld();
            EXPECT_TRUE(backend->checkALError("not to be logged\n"));
            EXPECT_EQ(t.al.take(), Lines());
            EXPECT_EQ(t.al.queries, 0);
            EXPECT_EQ(t.log.take(), Lines());
        }
        delete backend;
        EXPECT_EQ(t.al.take(), row.destruction);
        EXPECT_EQ(t.log.take(), Lines());
    }
}

TEST(OALBackend, ResetAndDestructorStopAndDeleteSourcesBeforeBuffersByAscendingId) {
    for (const bool destroy : {false, true}) {
        SCOPED_TRACE(destroy);
        Scene t;
        OALBackend& backend = t.add();
        for (const int id : {5, 3}) {
            t.world.createSource(id);      // buffers 1 and 2
            t.world.createEmitter({}, id); // AL sources 1 and 2
        }
        t.forget();
        // A failure in the middle ends neither loop.
        t.al.fail("alSourceStop", AL_INVALID_VALUE);
        Lines expected{"alSourceStop(2)",       "alDeleteSources(1, 2)", "alSourceStop(1)",
                       "alDeleteSources(1, 1)", "alDeleteBuffers(1, 2)", "alDeleteBuffers(1, 1)",
                       "alGetError()"};
        if (destroy) {
            delete &backend;
            expected.insert(
                expected.end(),
                {"alcDestroyContext(context 1)", "alcCloseDevice(device 1)", "alutExit()"});
        } else {
            backend.resetBackend();
        }
        EXPECT_EQ(t.al.take(), expected);
        EXPECT_EQ(t.log.take(), (Lines{"FATAL: Cannot reset backend\n", kPending}));
        if (!destroy) {
            backend.resetBackend();
            EXPECT_EQ(t.al.take(), Lines{"alGetError()"}) << "not everything was forgotten";
        }
    }
}

TEST(OALBackend, EachOperationMakesItsCallsAndReportsAnErrorWithItsOwnMessage) {
    struct Row {
        const char* name;
        std::function<void(Scene&, OALBackend&)> act;
        Lines calls;
        const char* message; // null: the operation checks nothing
    };
    const auto hull = [](float maxBack, float maxFront, float minBack, float minFront,
                         bool worldPlaces = true, bool emitterPlaces = true) {
        return [=](Scene& t, OALBackend& b) {
            t.world.setSpatialize(worldPlaces);
            t.emitter->setParam(emitterPlaces, 0.0F, 1.0F);
            t.emitter->setHull(maxBack, maxFront, minBack, minFront);
            t.forget();
            b.setEmitterHull(*t.emitter);
        };
    };
    const auto hullCalls = [](const char* reference, const char* maximum, const char* rolloff) {
        return Lines{
            "alSourcefv(1, AL_DIRECTION, 1, 0, 0)",
            "alSourcef(1, AL_CONE_INNER_ANGLE, 360)",
            "alSourcef(1, AL_CONE_OUTER_ANGLE, 360)",
            std::string("alSourcef(1, AL_REFERENCE_DISTANCE, ") + reference + ")",
            std::string("alSourcef(1, AL_MAX_DISTANCE, ") + maximum + ")",
            std::string("alSourcef(1, AL_ROLLOFF_FACTOR, ") + rolloff + ")",
            "alGetError()"};
    };
    const auto place = [](bool worldPlaces, bool emitterPlaces) {
        return [=](Scene& t, OALBackend& b) {
            const Vec3f position{1, -2, 3.5F};
            t.world.setSpatialize(worldPlaces);
            t.emitter->setParam(emitterPlaces, 0.0F, 1.0F);
            t.emitter->setTransform(&position, nullptr);
            t.forget();
            b.setEmitterTransform(*t.emitter);
        };
    };
    const auto listener = [](const Vec3f& position, const Quaternion& rotation) {
        return [=](Scene& t, OALBackend& b) {
            t.world.setListenerTransform(position, rotation);
            t.forget();
            b.setListenerTransform();
        };
    };
    const auto listenerCalls = [](const char* position, const char* orientation) {
        return Lines{
            "alListenerf(AL_GAIN, 1)", std::string("alListenerfv(AL_POSITION, ") + position + ")",
            std::string("alListenerfv(AL_ORIENTATION, ") + orientation + ")",
            "alListenerfv(AL_VELOCITY, 0, 0, 0)", "alGetError()"};
    };
    const auto state = [](int value) {
        return [=](Scene& t, OALBackend& b) {
            t.emitter->setState(static_cast<WorldPart::State>(value));
            t.forget();
            b.setEmitterState(*t.emitter);
        };
    };
    const Lines unplaced{
        "alSourcefv(1, AL_POSITION, 0, 0, 0)", "alSourcei(1, AL_SOURCE_RELATIVE, 1)",
        "alGetError()"};
    const float half = std::sqrt(0.5F);
    const char* const hullFailed = "Cannot set emitter hull\n";
    const char* const listenerFailed = "Cannot set listener transformation\n";
    const char* const placeFailed = "Cannot set emitter transformation\n";
    const char* const connectFailed = "Cannot connect emitter and source\n";
    const std::vector<Row> rows{
        {"enabled",
         [](Scene& /*t*/, OALBackend& b) { b.setEnabled(); },
         {"alListenerf(AL_GAIN, 1)", "alGetError()"},
         "Cannot set listener gain\n"},
        {"disabled",
         [](Scene& t, OALBackend& b) {
             t.world.setEnabled(false);
             t.forget();
             b.setEnabled();
         },
         {"alListenerf(AL_GAIN, 0)", "alGetError()"},
         "Cannot set listener gain\n"},
        {"listener at rest", listener({4, 5, 6}, {}), listenerCalls("4, 5, 6", "0, 0, -1, 0, 1, 0"),
         listenerFailed},
        {"listener turned to the left", listener({0, 0, 0}, {0, half, 0, half}),
         listenerCalls("0, 0, 0", "-1, 0, 0, 0, 1, 0"), listenerFailed},
        {"listener quaternion as given", listener({0, 0, 0}, {0, 0, 0, 2}),
         listenerCalls("0, 0, 0", "0, 0, -1, 0, 1, 0"), listenerFailed},
        {"a moved listener of a disabled world hears again",
         [](Scene& t, OALBackend& b) {
             t.world.setEnabled(false);
             t.forget();
             b.setListenerTransform();
         },
         listenerCalls("0, 0, 0", "0, 0, -1, 0, 1, 0"), listenerFailed},
        {"placed",
         place(true, true),
         {"alSourcefv(1, AL_POSITION, 1, -2, 3.5)", "alSourcei(1, AL_SOURCE_RELATIVE, 0)",
          "alGetError()"},
         placeFailed},
        {"unplaced by the world", place(false, true), unplaced, placeFailed},
        {"unplaced by the emitter", place(true, false), unplaced, placeFailed},
        {"hull", hull(30, 50, 2, 4), hullCalls("3", "40", "1"), hullFailed},
        {"hull without inner part", hull(10, 10, 0, 0), hullCalls("0.001", "10", "1"), hullFailed},
        {"hull inside out", hull(4, 2, 6, 6), hullCalls("2.997", "3", "1"), hullFailed},
        {"hull below zero", hull(-1, -1, -1, -1), hullCalls("0.000999", "0.001", "1"), hullFailed},
        {"hull not a number", hull(NAN, 1, NAN, 1), hullCalls("0.000999", "0.001", "1"),
         hullFailed},
        {"hull unplaced by the world", hull(10, 10, 5, 5, false, true), hullCalls("1", "2", "0"),
         hullFailed},
        {"hull unplaced by the emitter", hull(10, 10, 5, 5, true, false), hullCalls("1", "2", "0"),
         hullFailed},
        {"gain",
         [](Scene& t, OALBackend& b) {
             t.emitter->setParam(true, 9.0F, 0.25F);
             t.forget();
             b.setEmitterParam(*t.emitter);
         },
         {"alSourcef(1, AL_GAIN, 0.25)", "alGetError()"},
         "Cannot set emitter parameters\n"},
        {"connection",
         [](Scene& t, OALBackend& b) {
             t.source->setParam(true, 1.5F);
             t.emitter->setSource(t.source);
             t.forget();
             b.setEmitterConnection(*t.emitter);
         },
         {"alSourceStop(1)", "alSourcei(1, AL_BUFFER, 1)", "alSourcef(1, AL_PITCH, 1.5)",
          "alSourcei(1, AL_LOOPING, 1)", "alGetError()"},
         connectFailed},
        {"connection to a source that has no buffer",
         [](Scene& t, OALBackend& b) {
             t.al.fail("alGenBuffers", AL_OUT_OF_MEMORY);
             t.emitter->setSource(t.world.createSource(2));
             t.forget();
             b.setEmitterConnection(*t.emitter);
         },
         {"alSourceStop(1)", "alSourcei(1, AL_BUFFER, 0)", "alGetError()"},
         connectFailed},
        {"disconnection",
         [](Scene& t, OALBackend& b) { b.setEmitterConnection(*t.emitter); },
         {"alSourceStop(1)", "alSourcei(1, AL_BUFFER, 0)", "alGetError()"},
         "Cannot disconnect emitter and source\n"},
        {"no state", [](Scene& t, OALBackend& b) { b.setEmitterState(*t.emitter); }, {}, nullptr},
        {"play", state(1), {"alSourcePlay(1)", "alGetError()"}, "Cannot play sound\n"},
        {"pause", state(2), {"alSourcePause(1)", "alGetError()"}, "Cannot pause sound\n"},
        {"stop", state(3), {"alSourceStop(1)", "alGetError()"}, "Cannot stop sound\n"},
        {"a source's state",
         [](Scene& t, OALBackend& b) { b.setSourceState(*t.source); },
         {},
         nullptr},
        {"parameters of a source that nothing plays",
         [](Scene& t, OALBackend& b) { b.setSourceParam(*t.source); },
         {},
         nullptr},
        {"parameters of a source with two emitters",
         [](Scene& t, OALBackend& /*b*/) {
             t.world.createEmitter({}, 7)->setSource(t.source); // AL source 2, the lower id
             t.emitter->setSource(t.source);
             t.forget();
             t.source->setParam(true, 2.0F);
         },
         {"alSourcef(2, AL_PITCH, 2)", "alSourcei(2, AL_LOOPING, 1)", "alGetError()",
          "alSourcef(1, AL_PITCH, 2)", "alSourcei(1, AL_LOOPING, 1)", "alGetError()"},
         "Cannot set source parameters\n"},
        {"a second creation",
         [](Scene& t, OALBackend& b) {
             b.createSource(*t.source);
             b.createEmitter(*t.emitter);
         },
         {},
         nullptr},
        {"end of an emitter",
         [](Scene& t, OALBackend& b) { b.destroyEmitter(*t.emitter); },
         {"alSourceStop(1)", "alDeleteSources(1, 1)", "alGetError()"},
         "Cannot destroy emitter\n"},
        {"end of a source",
         [](Scene& t, OALBackend& b) { b.destroySource(*t.source); },
         {"alDeleteBuffers(1, 1)", "alGetError()"},
         "Cannot destroy source\n"}};
    for (const Row& row : rows) {
        for (const bool fails : {false, true}) {
            if (fails && row.message == nullptr) {
                continue;
            }
            SCOPED_TRACE(std::string(row.name) + (fails ? ", with an error" : ""));
            Scene t;
            OALBackend& backend = t.addWithParts();
            std::ptrdiff_t checks = 0;
            for (const std::string& call : row.calls) {
                checks += call == "alGetError()" ? 1 : 0;
                if (fails) {
                    t.al.fail(call.substr(0, call.find('(')), AL_INVALID_VALUE);
                }
            }
            row.act(t, backend);
            EXPECT_EQ(t.al.take(), row.calls);
            Lines expected;
            for (; fails && checks > 0; --checks) {
                expected.push_back(std::string("FATAL: ") + row.message);
                expected.push_back(kPending);
            }
            EXPECT_EQ(t.log.take(), expected);
        }
    }
}

TEST(OALBackend, ErrorCodesHaveTheirTexts) {
    const std::vector<std::pair<ALenum, const char*>> rows{
        {0xA001, "Invalid Name parameter passed to AL call"},
        {0xA002, "Invalid parameter passed to AL call"},
        {0xA003, "Invalid enum parameter value"},
        {0xA004, "Illegal call"},
        {0xA005, "Out of memory"},
        {0xA006, "0xa006"},
        {0xB001, "0xb001"}};
    Scene t;
    OALBackend& backend = t.add();
    for (const auto& [error, text] : rows) {
        const std::string line = std::string("FATAL: OpenAL state machine error: ") + text + "\n";
        t.al.setPendingError(error);
        EXPECT_TRUE(backend.checkALError("100 %d\n"));
        EXPECT_EQ(t.log.take(), (Lines{"FATAL: 100 %d\n", line})) << "a message is no format";
        t.al.setPendingError(error);
        EXPECT_TRUE(backend.checkALError(nullptr));
        EXPECT_EQ(t.log.take(), Lines{line});
        EXPECT_FALSE(backend.checkALError("nothing is wrong\n"));
    }
    EXPECT_EQ(t.log.take(), Lines());
}

TEST(OALBackend, AnUnknownStateIsReportedAndNothingIsCalled) {
    Scene t;
    t.addWithParts();
    t.emitter->setState(static_cast<WorldPart::State>(7));
    EXPECT_EQ(t.al.take(), Lines());
    EXPECT_EQ(
        t.log.take(),
        Lines{"FATAL: OALBackend::setEmitterState(): Bad Orvel::Emitter::state 7 \n"});
}

TEST(OALBackend, PartsThatWereNotMadeOrAreNotServedAreIgnored) {
    for (const bool refusedByLabel : {false, true}) {
        SCOPED_TRACE(refusedByLabel);
        Scene t;
        t.add("labels=\"a, c\"");
        t.world.createEmitter({"b", "c"}, 5);
        EXPECT_EQ(t.al.take(), (Lines{"alGenSources(1)", "alGetError()"}));
        if (!refusedByLabel) {
            t.al.fail("alGenSources", AL_OUT_OF_MEMORY);
            t.al.fail("alGenBuffers", AL_OUT_OF_MEMORY);
        }
        t.emitter = t.world.createEmitter({refusedByLabel ? "b" : "a"}, 6);
        t.source = t.world.createSource(7);
        const std::string memory = "FATAL: OpenAL state machine error: Out of memory\n";
        EXPECT_EQ(
            t.log.take(), refusedByLabel ? Lines()
                                         : (Lines{
                                               "FATAL: Cannot create emitter\n", memory,
                                               "FATAL: Cannot create source\n", memory}));
        t.forget();
        t.emitter->setSource(t.source);
        t.source->setParam(true, 1.0F);
        t.emitter->setParam(true, 0.0F, 1.0F);
        t.emitter->setHull(1, 1, 1, 1);
        t.emitter->setState(WorldPart::PLAY);
        if (!refusedByLabel) {
            fill(*t.source, 8000, 8, 1, 80); // of the source whose buffer could not be made
            delete t.source;
        }
        delete t.emitter;
        EXPECT_EQ(t.al.take(), Lines());
        EXPECT_EQ(t.log.take(), Lines());
    }
}

TEST(OALBackend, EachSelectsItsOwnContextBeforeItTouchesAnything) {
    Scene t;
    World other;
    OALBackend& first = t.addWithParts();
    OALBackend& second = t.addTo(other); // context 2 is current
    other.createEmitter({}, 11);         // AL source 1 of the other context
    t.forget();
    t.emitter->setState(WorldPart::PLAY);
    EXPECT_EQ(
        t.al.take(),
        (Lines{"alcMakeContextCurrent(context 1)", "alSourcePlay(1)", "alGetError()"}));
    second.setEnabled();
    EXPECT_EQ(t.al.take().front(), "alcMakeContextCurrent(context 2)");
    EXPECT_FALSE(first.checkALError(nullptr));
    EXPECT_EQ(t.al.take(), (Lines{"alcMakeContextCurrent(context 1)", "alGetError()"}));
    second.setEnabled();
    t.forget();
    delete &first;
    EXPECT_EQ(
        t.al.take(),
        (Lines{
            "alcMakeContextCurrent(context 1)", "alSourceStop(1)", "alDeleteSources(1, 1)",
            "alDeleteBuffers(1, 1)", "alGetError()", "alcDestroyContext(context 1)",
            "alcCloseDevice(device 1)", "alutExit()"}));
    second.setEnabled();
    EXPECT_EQ(t.al.take().front(), "alcMakeContextCurrent(context 2)") << "none was current";
    EXPECT_EQ(t.log.take(), Lines());
    other.clearWorld();
    other.deleteAllBackends();
}

TEST(OALBackend, SamplesOfTheFourLayoutsAreBufferedAndOthersRefused) {
    struct Row {
        unsigned rate;
        unsigned bits;
        unsigned channels;
        std::size_t bytes;
        const char* call; // null: nothing is buffered
        float duration;
        const char* refusal;
    };
    const std::vector<Row> rows{
        {8000, 8, 1, 4000, "alBufferData(1, MONO8, 4000, 8000)", 0.5F, nullptr},
        {22050, 16, 1, 11025, "alBufferData(1, MONO16, 11025, 22050)", 0.25F, nullptr},
        {8000, 8, 2, 4000, "alBufferData(1, STEREO8, 4000, 8000)", 0.25F, nullptr},
        {44100, 16, 2, 176400, "alBufferData(1, STEREO16, 176400, 44100)", 1.0F, nullptr},
        {44100, 24, 1, 300, nullptr, 0.0F, "24/1"},
        {44100, 32, 2, 800, nullptr, 0.0F, "32/2"},
        {44100, 16, 3, 600, nullptr, 0.0F, "16/3"},
        {0, 16, 1, 200, nullptr, 0.0F, nullptr},
        {44100, 0, 1, 200, nullptr, 0.0F, nullptr},
        {44100, 16, 0, 200, nullptr, 0.0F, nullptr}};
    for (const Row& row : rows) {
        const std::string layout = std::to_string(row.rate) + ", " + std::to_string(row.bits) +
                                   ", " + std::to_string(row.channels);
        SCOPED_TRACE(layout);
        Scene t;
        t.addWithParts();
        fill(*t.source, row.rate, row.bits, row.channels, row.bytes);
        EXPECT_EQ(t.al.take(), row.call == nullptr ? Lines() : (Lines{row.call, "alGetError()"}));
        Lines expected{"NOTICE: Set alBufferData from PCM data: " + layout + "\n"};
        if (row.refusal != nullptr) {
            expected.push_back(
                std::string("FATAL: Invalid source bits/channels: ") + row.refusal + "\n");
        }
        EXPECT_EQ(t.log.take(), expected);
        EXPECT_FLOAT_EQ(t.source->duration(), row.duration);
    }
    Scene t;
    t.addWithParts();
    t.al.fail("alBufferData", AL_OUT_OF_MEMORY);
    fill(*t.source, 8000, 8, 1, 4000);
    EXPECT_EQ(
        t.log.take(), (Lines{
                          "NOTICE: Set alBufferData from PCM data: 8000, 8, 1\n",
                          "FATAL: alBufferData() call failed\n",
                          "FATAL: OpenAL state machine error: Out of memory\n"}));
    EXPECT_EQ(t.source->duration(), 0.0F);
}

TEST(OALBackend, FilesAreLoadedOrRefusedAndFreedEitherWay) {
    const TemporaryFolder folder;
    const std::string path = folder.file("a sound.wav");
    std::ofstream(path) << "any content: the stand-in says what is read";
    const std::string loading = "LOG: loading: >file://" + folder.path() + "/a%20sound.wav<\n";
    struct Row {
        const char* name;
        FakeAL::File file;
        std::function<void(FakeAL&)> prepare;
        Lines calls; // between the draining of old errors and the end
        Lines lines; // after the first
        const char* error;
        float duration;
    };
    const std::string load = "alutLoadMemoryFromFile(/a sound.wav)";
    const std::string unknown = "FATAL: Unkown sound format: ";
    const auto notice = [](const char* text) {
        return std::string("NOTICE: Set alBufferData from URL data: ") + text + "\n";
    };
    const auto nothing = [](FakeAL& /*al*/) {};
    const std::vector<Row> rows{
        {"the rate is truncated",
         {AL_FORMAT_STEREO16, 176400, 44100.9F},
         nothing,
         {load, "alGetError()", "alBufferData(1, STEREO16, 176400, 44100)"},
         {notice("4355, 44100, 176400")},
         "",
         1.0F},
        {"8-bit mono",
         {AL_FORMAT_MONO8, 4000, 8000.0F},
         nothing,
         {load, "alGetError()", "alBufferData(1, MONO8, 4000, 8000)"},
         {notice("4352, 8000, 4000")},
         "",
         0.5F},
        {"a rate that no integer holds",
         {AL_FORMAT_MONO8, 4000, 4e9F},
         nothing,
         {load, "alGetError()", "alBufferData(1, MONO8, 4000, 0)"},
         {notice("4352, 0, 4000")},
         "",
         0.0F},
        {"an error in the buffering stays for the next check",
         {AL_FORMAT_MONO16, 200, 8000.0F},
         [](FakeAL& al) { al.fail("alBufferData", AL_INVALID_VALUE); },
         {load, "alGetError()", "alBufferData(1, MONO16, 200, 8000)"},
         {notice("4353, 8000, 200"), "FATAL: next\n", kPending},
         "",
         0.0125F},
        {"a format that AL may know but the back end does not",
         {0x10010, 200, 8000.0F},
         nothing,
         {load, "alGetError()"},
         {unknown + "65552\n"},
         "",
         0.0F},
        {"ALUT cannot read it",
         {AL_FORMAT_MONO8, 200, 8000.0F, 0x210},
         nothing,
         {load, "alutGetError()", "alGetError()"},
         {unknown + "0\n"},
         "AOLError: ALUT says 528\n",
         0.0F},
        {"an older ALUT error hides not the reason",
         {AL_FORMAT_MONO8, 200, 8000.0F, 0x20E},
         [](FakeAL& al) { al.alutError = 0x203; },
         {load, "alutGetError()", "alGetError()"},
         {unknown + "0\n"},
         "AOLError: ALUT says 526\n",
         0.0F},
        {"an AL error that the load leaves behind",
         {AL_FORMAT_MONO8, 200, 8000.0F},
         [](FakeAL& al) { al.fail("alutLoadMemoryFromFile", AL_INVALID_VALUE); },
         {load, "alGetError()"},
         {"FATAL: wav file load error\n", kPending},
         "",
         0.0F},
        {"an AL error from before is reported and does not hinder the load",
         {AL_FORMAT_MONO8, 4000, 8000.0F},
         [](FakeAL& al) { al.setPendingError(AL_INVALID_VALUE); },
         {load, "alGetError()", "alBufferData(1, MONO8, 4000, 8000)"},
         {kPending, notice("4352, 8000, 4000")},
         "",
         0.5F},
        {"another user has ended ALUT",
         {AL_FORMAT_MONO8, 4000, 8000.0F},
         [](FakeAL& al) { al.alutRuns = false; },
         {load, "alutGetError()", "alutInitWithoutContext(null, null)", "alutGetError()", load,
          "alGetError()", "alBufferData(1, MONO8, 4000, 8000)"},
         {notice("4352, 8000, 4000")},
         "",
         0.5F}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Scene t;
        OALBackend& backend = t.addWithParts();
        t.al.file = row.file;
        row.prepare(t.al);
        t.source->setDataFromURL(path);
        Lines calls{"alGetError()", "alutGetError()"};
        calls.insert(calls.end(), row.calls.begin(), row.calls.end());
        EXPECT_EQ(t.al.take(), calls);
        backend.checkALError("next\n");
        Lines lines{loading};
        lines.insert(lines.end(), row.lines.begin(), row.lines.end());
        EXPECT_EQ(t.log.take(), lines);
        EXPECT_EQ(t.errors.take(), row.error);
        EXPECT_FLOAT_EQ(t.source->duration(), row.duration);
    }
}

TEST(OALBackend, AURLThatCannotBeHadEndsInALogLine) {
    const TemporaryFolder folder;
    Scene t;
    t.addWithParts();
    t.source->setDataFromURL(folder.file("missing.wav"));
    const Lines lines = t.log.take();
    const std::string url = "file://" + folder.path() + "/missing.wav";
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0], "LOG: loading: >" + url + "<\n");
    EXPECT_EQ(lines[1], "FATAL: OALBackend: Cannot download file \"" + url + "\"\n");
    EXPECT_NE(lines[2].find("missing.wav"), std::string::npos) << lines[2];
    EXPECT_THROW(t.source->setDataFromURL("http://[nonsense"), Corvid::URLImpl::Exception);
    EXPECT_EQ(t.log.take(), Lines()) << "nobody is told of a URL that cannot be parsed";
    t.world.setSourceData(*t.source);
    EXPECT_EQ(t.log.take(), Lines{"FATAL: source.url() not set in Source::URL_SD set\n"});
    EXPECT_EQ(t.al.take(), Lines());
}

TEST(OALBackend, LogHeadersNameTheFileAndTheOperation) {
    Scene t;
    const LogCapture headers(
        Log::Level::Notice,
        Log::kHeaderLevel | Log::kHeaderModule | Log::kHeaderFile | Log::kHeaderFunction);
    const auto last = [&headers] { return headers.lines().back(); };
    const std::string file = "Orvel: Orvel/OALBackend: ";
    OALBackend backend(t.world, nullptr);
    EXPECT_EQ(
        last(), "NOTICE: NOTICE: " + file +
                    "Orvel::OALBackend::OALBackend(Orvel::World&, const char*):  OpenAL device & "
                    "context open: ok\n");
    fill(*t.world.createSource(), 8000, 8, 1, 8);
    EXPECT_EQ(
        last(), "NOTICE: NOTICE: " + file +
                    "virtual void Orvel::OALBackend::setSourceData(Orvel::Source&):  Set "
                    "alBufferData from PCM data: 8000, 8, 1\n");
    t.al.setPendingError(0xA004);
    backend.setEnabled();
    EXPECT_EQ(
        last(), "FATAL: FATAL: " + file +
                    "bool Orvel::OALBackend::checkALError(const char*) const:  OpenAL state "
                    "machine error: Illegal call\n");
    t.world.clearWorld();
}

TEST(OALLoopbackBackend, OpensTheLoopbackDeviceWithAFormatOfItsOwn) {
    Scene t;
    {
        OALLoopbackBackend backend(t.world, "rate=22050 sources=300");
        EXPECT_EQ(
            t.al.take(),
            (Lines{
                "alcIsExtensionPresent(null, ALC_SOFT_loopback)", "alcLoopbackOpenDeviceSOFT(null)",
                // stereo, 32-bit float, 22050 Hz, no HRTF, 299 mono and 1 stereo source
                "alcCreateContext(device 1, 6544=5377 6545=5126 4103=22050 6546=0 4112=299 "
                "4113=1)",
                "alcMakeContextCurrent(context 1)", "alutInitWithoutContext(null, null)"}));
        EXPECT_EQ(t.log.take(), Lines{"NOTICE: OpenAL device & context open: ok\n"});
    }
    t.al.take();
    t.al.hasLoopback = false;
    OALLoopbackBackend backend(t.world, nullptr);
    float samples[2] = {7.0F, 7.0F};
    EXPECT_FALSE(backend.render(samples, 1));
    EXPECT_EQ(samples[0], 7.0F);
    EXPECT_EQ(
        t.log.take(), (Lines{
                          "FATAL: This OpenAL library has no loopback device\n",
                          "FATAL: Open OpenAL device failed\n"}));
}

} // namespace Orvel::Test

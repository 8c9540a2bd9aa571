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

const std::string kOpened = "NOTICE: OpenAL device & context open: ok\n";
const std::string kStateMachine = "FATAL: OpenAL state machine error: ";
const std::string kInjected = kStateMachine + "Invalid enum parameter value\n"; // AL_INVALID_VALUE

/// A world, and what its back ends did since the last forget().
struct Scene {
    Scene() { FakeAL::reset(); }
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;
    ~Scene() {
        al.failures.clear();
        world.clearWorld();
        world.deleteAllBackends();
        EXPECT_EQ(FakeAL::open(), 0U) << "a device or context was left open";
    }
    void forget() {
        al.take();
        log.take();
        errors.take();
    }
    /// A new back end that has been told nothing yet.
    OALBackend& add(const char* params = nullptr) {
        auto* backend = new OALBackend(world, params);
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
    std::string lines() {
        std::string text;
        for (const std::string& line : log.take()) {
            text += line;
        }
        return text;
    }

    FakeAL& al = FakeAL::the();
    LogCapture log;
    OutputCapture errors{STDERR_FILENO};
    World world;
    Source* source = nullptr;
    Emitter* emitter = nullptr;
};

void fill(Source& source, unsigned rate, unsigned bits, unsigned channels, std::size_t bytes) {
    const std::vector<unsigned char> data(bytes);
    source.setData(rate, bits, channels, data.data(), static_cast<unsigned>(bytes));
}

using Act = std::function<void(Scene&)>;

/// Checks the calls of an act, and that an error in any of them is reported with the message, once
/// for each check that the act makes.
void expectCalls(const char* name, const Act& act, const std::string& calls, const char* message) {
    for (const bool fails : {false, true}) {
        SCOPED_TRACE(std::string(name) + (fails ? ", failing" : ""));
        Scene t;
        t.addWithParts();
        if (fails) {
            for (const char* function :
                 {"alListenerf", "alListenerfv", "alSourcef", "alSourcefv", "alSourcei",
                  "alSourcePlay", "alSourcePause", "alSourceStop", "alDeleteSources",
                  "alDeleteBuffers"}) {
                t.al.failures[function] = AL_INVALID_VALUE;
            }
        }
        act(t);
        EXPECT_EQ(t.al.take(), calls);
        std::string expected;
        for (auto at = calls.find("alGetError"); fails && at != std::string::npos;
             at = calls.find("alGetError", at + 1)) {
            expected += std::string("FATAL: ") + message + "\n" + kInjected;
        }
        EXPECT_EQ(t.lines(), expected);
    }
}

} // namespace

TEST(OALBackend, OpensAndClosesInOrderAndStaysInertWithoutDeviceOrContext) {
    const auto expect = [](bool opens, bool createsContexts, const std::string& construction,
                           const std::string& line, const std::string& destruction) {
        SCOPED_TRACE(line);
        Scene t;
        t.al.opensDevices = opens;
        t.al.createsContexts = createsContexts;
        auto* backend = new OALBackend(t.world, nullptr);
        EXPECT_EQ(t.al.take(), construction + "alutInitWithoutContext()");
        EXPECT_EQ(t.lines(), line);
        EXPECT_EQ(backend->working(), opens && createsContexts);
        if (!backend->working()) {
            t.al.queries = 0;
            t.source = t.world.createSource();
            fill(*t.source, 8000, 8, 1, 100);
            t.emitter = t.world.createEmitter();
            t.emitter->setSource(t.source);
            t.emitter->setState(WorldPart::PLAY);
            t.world.initBackendState(*backend);
            t.world.resetWorld();
            EXPECT_TRUE(backend->checkALError("not to be logged\n"));
            EXPECT_EQ(t.al.take(), "");
            EXPECT_EQ(t.al.queries, 0);
        }
        delete backend;
        EXPECT_EQ(t.al.take(), destruction + "alutExit()");
        EXPECT_EQ(t.lines(), "");
    };
    expect(
        true, true,
        "alcOpenDevice(null); alcCreateContext(device 1, null); "
        "alcMakeContextCurrent(context 1); ",
        kOpened, "alGetError(); alcDestroyContext(context 1); alcCloseDevice(device 1); ");
    expect(false, true, "alcOpenDevice(null); ", "FATAL: Open OpenAL device failed\n", "");
    expect(
        true, false,
        "alcOpenDevice(null); alcCreateContext(device 1, null); alcCloseDevice(device 1); ",
        "FATAL: Cannot create OpenAL context\n", "");
}

TEST(OALBackend, ResetAndDestructorStopAndDeleteSourcesBeforeBuffersByAscendingId) {
    for (const bool destroy : {false, true}) {
        Scene t;
        OALBackend& backend = t.add();
        for (const int id : {5, 3}) {
            t.world.createSource(id);      // buffers 1 and 2
            t.world.createEmitter({}, id); // AL sources 1 and 2
        }
        t.forget();
        t.al.failures["alSourceStop"] = AL_INVALID_VALUE; // which ends neither loop
        std::string expected =
            "alSourceStop(2); alDeleteSources(1, 2); alSourceStop(1); alDeleteSources(1, 1); "
            "alDeleteBuffers(1, 2); alDeleteBuffers(1, 1); alGetError()";
        if (destroy) {
            delete &backend;
            expected += "; alcDestroyContext(context 1); alcCloseDevice(device 1); alutExit()";
        } else {
            backend.resetBackend();
        }
        EXPECT_EQ(t.al.take(), expected);
        EXPECT_EQ(t.lines(), "FATAL: Cannot reset backend\n" + kInjected);
        if (!destroy) {
            backend.resetBackend();
            EXPECT_EQ(t.al.take(), "alGetError()") << "not everything was forgotten";
        }
    }
}

TEST(OALBackend, TheListenerIsMovedTurnedAndMuted) {
    const auto listener = [](const char* position, const char* orientation) {
        return std::string("alListenerf(GAIN, 1); alListenerfv(POSITION, ") + position +
               "); alListenerfv(ORIENTATION, " + orientation +
               "); alListenerfv(VELOCITY, 0, 0, 0); alGetError()";
    };
    const float half = std::sqrt(0.5F);
    const char* const gainFailed = "Cannot set listener gain";
    const char* const moveFailed = "Cannot set listener transformation";
    expectCalls(
        "enabled", [](Scene& t) { t.world.setEnabled(true); }, "alListenerf(GAIN, 1); alGetError()",
        gainFailed);
    expectCalls(
        "disabled, then moved",
        [](Scene& t) {
            t.world.setEnabled(false);
            EXPECT_EQ(t.al.take(), "alListenerf(GAIN, 0); alGetError()");
            t.forget();
            t.world.setListenerTransform({4, 5, 6}, {});
        },
        listener("4, 5, 6", "0, 0, -1, 0, 1, 0"), moveFailed);
    expectCalls(
        "turned to the left",
        [=](Scene& t) {
            t.world.setListenerTransform({}, {0, half, 0, half});
        },
        listener("0, 0, 0", "-1, 0, 0, 0, 1, 0"), moveFailed);
}

TEST(OALBackend, EmittersArePlacedOrNot) {
    const std::string unplaced =
        "alSourcefv(1, POSITION, 0, 0, 0); alSourcei(1, SOURCE_RELATIVE, 1); alGetError()";
    const auto place = [&](bool world, bool emitter, const std::string& calls) {
        const auto act = [=](Scene& t) {
            const Vec3f position{1, -2, 3.5F};
            t.world.setSpatialize(world);
            t.emitter->setParam(emitter, 0.0F, 1.0F);
            t.forget();
            t.emitter->setTransform(&position, nullptr);
        };
        expectCalls("place", act, calls, "Cannot set emitter transformation");
    };
    place(
        true, true,
        "alSourcefv(1, POSITION, 1, -2, 3.5); alSourcei(1, SOURCE_RELATIVE, 0); alGetError()");
    place(false, true, unplaced);
    place(true, false, unplaced);

    struct Hull {
        float maxBack, maxFront, minBack, minFront;
        bool world, emitter;
        const char *reference, *maximum, *rolloff;
    };
    for (const Hull& hull : std::vector<Hull>{
             {30, 50, 2, 4, true, true, "3", "40", "1"},
             {10, 10, 0, 0, true, true, "0.001", "10", "1"},
             {4, 2, 6, 6, true, true, "2.997", "3", "1"}, // inside out
             {-1, -1, -1, -1, true, true, "0.000999", "0.001", "1"},
             {NAN, 1, NAN, 1, true, true, "0.000999", "0.001", "1"},
             {10, 10, 5, 5, false, true, "1", "2", "0"},
             {10, 10, 5, 5, true, false, "1", "2", "0"}}) {
        const auto act = [&hull](Scene& t) {
            t.world.setSpatialize(hull.world);
            t.emitter->setParam(hull.emitter, 0.0F, 1.0F);
            t.forget();
            t.emitter->setHull(hull.maxBack, hull.maxFront, hull.minBack, hull.minFront);
        };
        expectCalls(
            "hull", act,
            std::string("alSourcefv(1, DIRECTION, 1, 0, 0); alSourcef(1, CONE_INNER_ANGLE, 360); "
                        "alSourcef(1, CONE_OUTER_ANGLE, 360); "
                        "alSourcef(1, REFERENCE_DISTANCE, ") +
                hull.reference + "); alSourcef(1, MAX_DISTANCE, " + hull.maximum +
                "); alSourcef(1, ROLLOFF_FACTOR, " + hull.rolloff + "); alGetError()",
            "Cannot set emitter hull");
    }
}

TEST(OALBackend, EmittersAndSourcesMakeTheirCallsAndReportErrors) {
    const char* const connectFailed = "Cannot connect emitter and source";
    const auto state = [](int value) {
        return [=](Scene& t) { t.emitter->setState(static_cast<WorldPart::State>(value)); };
    };
    expectCalls(
        "gain", [](Scene& t) { t.emitter->setParam(true, 9.0F, 0.25F); },
        "alSourcef(1, GAIN, 0.25); alGetError()", "Cannot set emitter parameters");
    expectCalls("play", state(1), "alSourcePlay(1); alGetError()", "Cannot play sound");
    expectCalls("pause", state(2), "alSourcePause(1); alGetError()", "Cannot pause sound");
    expectCalls("stop", state(3), "alSourceStop(1); alGetError()", "Cannot stop sound");
    expectCalls(
        "connection",
        [](Scene& t) {
            t.source->setParam(true, 1.5F); // nothing plays it: no call
            t.emitter->setSource(t.source);
        },
        "alSourceStop(1); alSourcei(1, BUFFER, 1); alSourcef(1, PITCH, 1.5); "
        "alSourcei(1, LOOPING, 1); alGetError()",
        connectFailed);
    expectCalls(
        "connection to a source that has no buffer",
        [](Scene& t) {
            t.al.failures["alGenBuffers"] = AL_OUT_OF_MEMORY;
            Source* source = t.world.createSource();
            t.forget();
            t.emitter->setSource(source);
        },
        "alSourceStop(1); alSourcei(1, BUFFER, 0); alGetError()", connectFailed);
    expectCalls(
        "disconnection",
        [](Scene& t) {
            t.emitter->setSource(t.source);
            t.forget();
            t.emitter->setSource(nullptr);
        },
        "alSourceStop(1); alSourcei(1, BUFFER, 0); alGetError()",
        "Cannot disconnect emitter and source");
    expectCalls(
        "parameters of a source with two emitters",
        [](Scene& t) {
            t.world.createEmitter({}, 7)->setSource(t.source); // AL source 2, the lower id
            t.emitter->setSource(t.source);
            t.forget();
            t.source->setParam(false, 2.0F);
        },
        "alSourcef(2, PITCH, 2); alSourcei(2, LOOPING, 0); alGetError(); "
        "alSourcef(1, PITCH, 2); alSourcei(1, LOOPING, 0); alGetError()",
        "Cannot set source parameters");
    expectCalls(
        "a state of a source, and a second creation",
        [](Scene& t) {
            t.source->setState(WorldPart::PLAY);
            t.world.createSource(*t.source);
            t.world.createEmitter(*t.emitter);
        },
        "", nullptr);
    expectCalls(
        "end of an emitter", [](Scene& t) { delete t.emitter; },
        "alSourceStop(1); alDeleteSources(1, 1); alGetError()", "Cannot destroy emitter");
    expectCalls(
        "end of a source", [](Scene& t) { delete t.source; }, "alDeleteBuffers(1, 1); alGetError()",
        "Cannot destroy source");

    Scene t;
    t.addWithParts();
    state(7)(t);
    EXPECT_EQ(t.al.take(), "");
    EXPECT_EQ(t.lines(), "FATAL: OALBackend::setEmitterState(): Bad Orvel::Emitter::state 7 \n");
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
    const OALBackend& backend = t.add();
    for (const auto& [error, text] : rows) {
        FakeAL::setPendingError(error);
        EXPECT_TRUE(backend.checkALError("100 %d\n"));
        EXPECT_EQ(t.lines(), "FATAL: 100 %d\n" + kStateMachine + text + "\n");
        FakeAL::setPendingError(error);
        EXPECT_TRUE(backend.checkALError(nullptr));
        EXPECT_EQ(t.lines(), kStateMachine + text + "\n");
        EXPECT_FALSE(backend.checkALError("nothing is wrong\n"));
    }
    EXPECT_EQ(t.lines(), "");
}

TEST(OALBackend, PartsThatWereNotMadeOrAreNotServedAreIgnored) {
    for (const bool refusedByLabel : {false, true}) {
        Scene t;
        t.add("labels=\"a, c\"");
        t.world.createEmitter({"b", "c"}, 5);
        EXPECT_EQ(t.al.take(), "alGenSources(1); alGetError()");
        if (!refusedByLabel) {
            t.al.failures = {
                {"alGenSources", AL_OUT_OF_MEMORY}, {"alGenBuffers", AL_OUT_OF_MEMORY}};
        }
        t.emitter = t.world.createEmitter({refusedByLabel ? "b" : "a"}, 6);
        t.source = t.world.createSource(7);
        const std::string memory = kStateMachine + "Out of memory\n";
        EXPECT_EQ(
            t.lines(), refusedByLabel ? ""
                                      : "FATAL: Cannot create emitter\n" + memory +
                                            "FATAL: Cannot create source\n" + memory);
        t.forget();
        t.emitter->setSource(t.source);
        t.source->setParam(true, 1.0F);
        t.emitter->setParam(true, 0.0F, 1.0F);
        t.emitter->setHull(1, 1, 1, 1);
        t.emitter->setState(WorldPart::PLAY);
        if (!refusedByLabel) {
            fill(*t.source, 8000, 8, 1, 80);
            delete t.source;
        }
        delete t.emitter;
        EXPECT_EQ(t.al.take() + t.lines(), "");
    }
}

TEST(OALBackend, EachSelectsItsOwnContextBeforeItTouchesAnything) {
    Scene t;
    World other;
    OALBackend& first = t.addWithParts();
    OALBackend second(other, nullptr);
    Emitter* twin = other.createEmitter({}, 11); // AL source 1 of the second context
    t.forget();
    t.emitter->setState(WorldPart::PLAY);
    twin->setState(WorldPart::PAUSE);
    first.checkALError(nullptr);
    twin->setState(WorldPart::STOP);
    EXPECT_EQ(
        t.al.take(), "alcMakeContextCurrent(context 1); alSourcePlay(1); alGetError(); "
                     "alcMakeContextCurrent(context 2); alSourcePause(1); alGetError(); "
                     "alcMakeContextCurrent(context 1); alGetError(); "
                     "alcMakeContextCurrent(context 2); alSourceStop(1); alGetError()");
    delete &first;
    twin->setState(WorldPart::PLAY); // after which no context was current
    EXPECT_EQ(
        t.al.take(), "alcMakeContextCurrent(context 1); alSourceStop(1); alDeleteSources(1, 1); "
                     "alDeleteBuffers(1, 1); alGetError(); alcDestroyContext(context 1); "
                     "alcCloseDevice(device 1); alutExit(); "
                     "alcMakeContextCurrent(context 2); alSourcePlay(1); alGetError()");
    EXPECT_EQ(t.lines(), "");
    other.clearWorld();
}

TEST(OALBackend, SamplesOfTheFourLayoutsAreBufferedAndOthersRefused) {
    const auto expect = [](unsigned rate, unsigned bits, unsigned channels, std::size_t bytes,
                           const std::string& call, const std::string& refusal, float duration) {
        const std::string numbers =
            std::to_string(rate) + ", " + std::to_string(bits) + ", " + std::to_string(channels);
        SCOPED_TRACE(numbers + refusal);
        Scene t;
        t.addWithParts();
        if (duration < 0.0F) {
            t.al.failures["alBufferData"] = AL_INVALID_VALUE;
        }
        fill(*t.source, rate, bits, channels, bytes);
        EXPECT_EQ(t.al.take(), call.empty() ? "" : call + "; alGetError()");
        EXPECT_EQ(t.lines(), "NOTICE: Set alBufferData from PCM data: " + numbers + "\n" + refusal);
        EXPECT_FLOAT_EQ(t.source->duration(), std::max(duration, 0.0F));
    };
    expect(8000, 8, 1, 4000, "alBufferData(1, MONO8, 4000, 8000)", "", 0.5F);
    expect(22050, 16, 1, 11025, "alBufferData(1, MONO16, 11025, 22050)", "", 0.25F);
    expect(8000, 8, 2, 4000, "alBufferData(1, STEREO8, 4000, 8000)", "", 0.25F);
    expect(44100, 16, 2, 176400, "alBufferData(1, STEREO16, 176400, 44100)", "", 1.0F);
    expect(
        8000, 8, 1, 99, "alBufferData(1, MONO8, 99, 8000)",
        "FATAL: alBufferData() call failed\n" + kInjected, -1.0F);
    expect(44100, 24, 1, 300, "", "FATAL: Invalid source bits/channels: 24/1\n", 0.0F);
    expect(44100, 32, 2, 800, "", "FATAL: Invalid source bits/channels: 32/2\n", 0.0F);
    expect(44100, 16, 3, 600, "", "FATAL: Invalid source bits/channels: 16/3\n", 0.0F);
    expect(0, 16, 1, 200, "", "", 0.0F);
    expect(44100, 0, 1, 200, "", "", 0.0F);
    expect(44100, 16, 0, 200, "", "", 0.0F);
}

TEST(OALBackend, FilesAreLoadedOrRefusedAndFreedEitherWay) {
    const TemporaryFolder folder;
    const std::string path = folder.file("a sound.wav");
    std::ofstream(path) << "any content: the stand-in says what is read";
    const std::string load = "alutLoadMemoryFromFile(/a sound.wav); ";
    const auto expect = [&](const char* name, const FakeAL::File& file, const Act& prepare,
                            const std::string& calls, const std::string& lines, const char* error,
                            float duration) {
        SCOPED_TRACE(name);
        Scene t;
        const OALBackend& backend = t.addWithParts();
        t.al.file = file;
        prepare(t);
        t.source->setDataFromURL(path);
        EXPECT_EQ(t.al.take(), "alGetError(); alutGetError(); " + calls);
        backend.checkALError("next\n");
        EXPECT_EQ(
            t.lines(), "LOG: loading: >file://" + folder.path() + "/a%20sound.wav<\n" + lines);
        EXPECT_EQ(t.errors.take(), error);
        EXPECT_FLOAT_EQ(t.source->duration(), duration);
    };
    const Act nothing = [](Scene& /*t*/) {};
    const std::string set = "NOTICE: Set alBufferData from URL data: ";
    const FakeAL::File good{AL_FORMAT_MONO8, 4000, 8000.0F, 0};
    const std::string goodCalls = load + "alGetError(); alBufferData(1, MONO8, 4000, 8000)";
    const std::string goodLine = set + "4352, 8000, 4000\n";
    expect(
        "the rate is truncated", {AL_FORMAT_STEREO16, 176400, 44100.9F, 0}, nothing,
        load + "alGetError(); alBufferData(1, STEREO16, 176400, 44100)",
        set + "4355, 44100, 176400\n", "", 1.0F);
    expect(
        "a rate that no integer holds", {AL_FORMAT_MONO8, 4000, 4e9F, 0}, nothing,
        load + "alGetError(); alBufferData(1, MONO8, 4000, 0)", set + "4352, 0, 4000\n", "", 0.0F);
    expect(
        "an error in the buffering stays for the next check", good,
        [](Scene& t) { t.al.failures["alBufferData"] = AL_INVALID_VALUE; }, goodCalls,
        goodLine + "FATAL: next\n" + kInjected, "", 0.5F);
    expect(
        "a format that only AL may know", {0x10010, 200, 8000.0F, 0}, nothing,
        load + "alGetError()", "FATAL: Unkown sound format: 65552\n", "", 0.0F);
    expect(
        "unreadable, with an old error unread", {AL_FORMAT_MONO8, 200, 8000.0F, 0x210},
        [](Scene& t) { t.al.alutError = 0x203; }, load + "alutGetError(); alGetError()",
        "FATAL: Unkown sound format: 0\n", "AOLError: ALUT says 528\n", 0.0F);
    expect(
        "an AL error that the load leaves behind", good,
        [](Scene& t) { t.al.failures["alutLoadMemoryFromFile"] = AL_INVALID_VALUE; },
        load + "alGetError()", "FATAL: wav file load error\n" + kInjected, "", 0.0F);
    expect(
        "an AL error from before is reported and hinders no load", good,
        [](Scene& /*t*/) { FakeAL::setPendingError(AL_INVALID_VALUE); }, goodCalls,
        kInjected + goodLine, "", 0.5F);
    expect(
        "another user has ended ALUT", good, [](Scene& t) { t.al.alutRuns = false; },
        load + "alutGetError(); alutInitWithoutContext(); alutGetError(); " + goodCalls, goodLine,
        "", 0.5F);
}

TEST(OALBackend, AURLThatCannotBeHadEndsInALogLine) {
    const TemporaryFolder folder;
    Scene t;
    t.addWithParts();
    t.source->setDataFromURL(folder.file("missing.wav"));
    const std::string url = "file://" + folder.path() + "/missing.wav";
    const std::string expected = "LOG: loading: >" + url +
                                 "<\nFATAL: OALBackend: Cannot download file \"" + url +
                                 "\"\nNOTICE: ";
    EXPECT_EQ(t.lines().substr(0, expected.size()), expected);
    EXPECT_THROW(t.source->setDataFromURL("http://[nonsense"), Corvid::URLImpl::Exception);
    EXPECT_EQ(t.lines(), "") << "nobody is told of a URL that cannot be parsed";
    t.world.setSourceData(*t.source);
    EXPECT_EQ(t.lines(), "FATAL: source.url() not set in Source::URL_SD set\n");
    EXPECT_EQ(t.al.take(), "");
}

TEST(OALBackend, LogHeadersNameTheFileAndTheOperation) {
    Scene t;
    const LogCapture headers(
        Log::Level::Notice, Log::kHeaderModule | Log::kHeaderFile | Log::kHeaderFunction);
    OALBackend backend(t.world, nullptr);
    EXPECT_EQ(
        headers.lines().back(),
        "NOTICE: Orvel: Orvel/OALBackend: Orvel::OALBackend::OALBackend(Orvel::World&, const "
        "char*):  OpenAL device & context open: ok\n");
    fill(*t.world.createSource(), 8000, 8, 1, 8);
    EXPECT_EQ(
        headers.lines().back(),
        "NOTICE: Orvel: Orvel/OALBackend: virtual void "
        "Orvel::OALBackend::setSourceData(Orvel::Source&):  Set alBufferData from PCM data: 8000, "
        "8, 1\n");
    FakeAL::setPendingError(0xA004);
    backend.setEnabled();
    EXPECT_EQ(
        headers.lines().back(),
        "FATAL: Orvel: Orvel/OALBackend: bool Orvel::OALBackend::checkALError(const char*) const: "
        " OpenAL state machine error: Illegal call\n");
    t.world.clearWorld();
}

TEST(OALLoopbackBackend, OpensTheLoopbackDeviceWithAFormatOfItsOwn) {
    Scene t;
    {
        const OALLoopbackBackend backend(t.world, "rate=22050 sources=300");
        EXPECT_EQ(
            t.al.take(),
            // stereo, 32-bit float, 22050 Hz, no HRTF, 299 mono and 1 stereo source
            "alcLoopbackOpenDeviceSOFT(); alcCreateContext(device 1, 6544=5377 6545=5126 "
            "4103=22050 6546=0 4112=299 4113=1); alcMakeContextCurrent(context 1); "
            "alutInitWithoutContext()");
        EXPECT_EQ(t.lines(), kOpened);
    }
    t.al.hasLoopback = false;
    OALLoopbackBackend backend(t.world, nullptr);
    float samples[2] = {7.0F, 7.0F};
    EXPECT_FALSE(backend.render(samples, 1));
    EXPECT_EQ(samples[0], 7.0F);
    EXPECT_EQ(
        t.lines(), "FATAL: This OpenAL library has no loopback device\n"
                   "FATAL: Open OpenAL device failed\n");
}

} // namespace Orvel::Test

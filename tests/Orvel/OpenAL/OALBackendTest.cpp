// What the back end asks of OpenAL and ALUT, call by call, and what it logs. Linked with FakeAL.
#include "FakeAL.h"

#include <Corvid/URLImpl.h>
#include <Orvel/Emitter.h>
#include <Orvel/OALBackend.h>
#include <Orvel/OALLoopbackBackend.h>
#include <Orvel/Source.h>

#include <AL/alut.h>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <numeric>
#include <support/Capture.h>
#include <support/RecordingBackend.h>
#include <support/TemporaryFolder.h>

namespace Orvel::Test {

namespace {

const std::string kOpened = "NOTICE: OpenAL device & context open: ok\n";
const std::string kStateMachine = "FATAL: OpenAL state machine error: ";
const std::string kInjected = kStateMachine + "Invalid enum parameter value\n"; // AL_INVALID_VALUE

/// A world, and what its back ends did since the last expectation.
struct Scene {
    Scene() { FakeAL::reset(); }
    /// A back end with AL buffer 1 for source 1 and AL source 1 for emitter 11.
    OALBackend& add() {
        auto* backend = new OALBackend(world, nullptr);
        source = world.createSource(1);
        emitter = world.createEmitter({}, 11);
        forget();
        return *backend;
    }
    void forget() {
        al.take();
        log.take();
    }
    void expect(const std::string& calls, const std::string& lines) {
        EXPECT_EQ(al.take(), calls);
        const auto logged = log.take();
        EXPECT_EQ(std::accumulate(logged.begin(), logged.end(), std::string()), lines) << calls;
    }

    FakeAL& al = FakeAL::the();
    LogCapture log;
    OutputCapture errors{STDERR_FILENO};
    TidyWorld world;
    Source* source = nullptr;
    Emitter* emitter = nullptr;
};

void fill(Source& source, unsigned rate, unsigned bits, unsigned channels, std::size_t bytes) {
    const std::vector<unsigned char> data(bytes);
    source.setData(rate, bits, channels, data.data(), static_cast<unsigned>(bytes));
}

} // namespace

TEST(OALBackend, OpensAndClosesInOrderAndStaysInertWithoutDeviceOrContext) {
    const std::string open = "alcOpenDevice(null); ";
    const std::string create = open + "alcCreateContext(device 1, null); ";
    const std::string close = "alcCloseDevice(device 1); ";
    const struct {
        const char* failing;
        std::string construction, line, destruction;
    } rows[] = {
        {"none", create + "alcMakeContextCurrent(context 1); ", kOpened,
         "alGetError(); alcDestroyContext(context 1); " + close},
        {"alcOpen", open, "FATAL: Open OpenAL device failed\n", ""},
        {"alcCreate", create + close, "FATAL: Cannot create OpenAL context\n", ""}};
    for (const auto& row : rows) {
        Scene t;
        t.al.failing = row.failing;
        auto* backend = new OALBackend(t.world, nullptr);
        t.expect(row.construction + "alutInitWithoutContext()", row.line);
        if (!backend->working()) {
            fill(*t.world.createSource(1), 8000, 8, 1, 100);
            t.world.createEmitter()->setSource(t.world.getSource(1));
            t.world.getSource(1)->setState(WorldPart::PLAY);
            t.world.reset();
            EXPECT_TRUE(backend->checkALError("not to be logged\n"));
            EXPECT_EQ(t.al.take(), "");
            t.log.take();
        }
        delete backend;
        t.expect(row.destruction + "alutExit()", "");
    }
}

TEST(OALBackend, ResetDeletesSourcesBeforeBuffersByAscendingId) {
    Scene t;
    OALBackend& backend = t.add();
    t.world.createSource(-3);      // buffer 2
    t.world.createEmitter({}, -3); // AL source 2
    t.forget();
    t.al.failing = "alSourceStop"; // which ends neither loop
    backend.resetBackend();
    t.expect(
        "alSourceStop(2); alDeleteSources(1, 2); alSourceStop(1); alDeleteSources(1, 1); "
        "alDeleteBuffers(1, 2); alDeleteBuffers(1, 1); alGetError()",
        "FATAL: Cannot reset backend\n" + kInjected);
    backend.resetBackend();
    t.expect("alGetError()", "");
}

TEST(OALBackend, MakesItsCallsInItsOwnContextAndReportsTheirErrors) {
    for (const bool disturbed : {false, true}) {
        Scene t;
        const OALBackend& backend = t.add();
        t.al.failing = "alGenBuffers";
        Source* unmade = t.world.createSource();
        World elsewhere;
        const OALBackend other(elsewhere, nullptr); // names repeat there, so a call would hit
        // What follows is done with the own context current and without errors, or neither.
        const auto prepare = [&] {
            t.al.failing = disturbed ? "al" : "none";
            (disturbed ? other : backend).checkALError(nullptr);
            t.forget();
        };
        const auto expect = [&](const std::string& calls, const std::string& failure) {
            t.expect(
                (disturbed ? "alcMakeContextCurrent(context 1); " : "") + calls + "; alGetError()",
                disturbed ? "FATAL: Cannot " + failure + "\n" + kInjected : "");
            prepare();
        };
        prepare();
        t.world.setEnabled(true);
        expect("alListenerf(GAIN, 1)", "set listener gain");
        t.world.setEnabled(false);
        expect("alListenerf(GAIN, 0)", "set listener gain");
        const float half = std::sqrt(0.5F);
        t.world.setListenerTransform({4, 5, 6}, {half, 0, 0, half}); // looks up
        expect(
            "alListenerf(GAIN, 1); alListenerfv(POSITION, 4, 5, 6); "
            "alListenerfv(ORIENTATION, 0, 1, 0, 0, 0, 1); alListenerfv(VELOCITY, 0, 0, 0)",
            "set listener transformation");

        const std::string placed =
            "alSourcefv(1, POSITION, 1, -2, 3.5); alSourcei(1, SOURCE_RELATIVE, 0)";
        const std::string unplaced =
            "alSourcefv(1, POSITION, 0, 0, 0); alSourcei(1, SOURCE_RELATIVE, 1)";
        const struct {
            bool world, emitter;
            float maxBack, maxFront, minBack, minFront;
            std::string place, reference, maximum, rolloff;
        } rows[] = {
            {false, true, 10, 10, 5, 5, unplaced, "1", "2", "0"},
            {true, false, 10, 10, 5, 5, unplaced, "1", "2", "0"},
            {true, true, 30, 50, 2, 4, placed, "3", "40", "1"},
            {true, true, 4, 2, 6, 6, placed, "2.997", "3", "1"}, // inside out
            {true, true, NAN, 1, -1, -1, placed, "0.000999", "0.001", "1"}};
        for (const auto& row : rows) {
            const Vec3f position{1, -2, 3.5F};
            const Vec3f start;
            t.emitter->setTransform(&start, nullptr);
            t.world.setSpatialize(row.world);
            prepare();
            t.emitter->setParam(row.emitter, 9.0F, 0.25F);
            expect("alSourcef(1, GAIN, 0.25)", "set emitter parameters");
            t.emitter->setTransform(&position, nullptr);
            expect(row.place, "set emitter transformation");
            t.emitter->setHull(row.maxBack, row.maxFront, row.minBack, row.minFront);
            expect(
                "alSourcefv(1, DIRECTION, 1, 0, 0); alSourcef(1, CONE_INNER_ANGLE, 360); "
                "alSourcef(1, CONE_OUTER_ANGLE, 360); alSourcef(1, REFERENCE_DISTANCE, " +
                    row.reference + "); alSourcef(1, MAX_DISTANCE, " + row.maximum +
                    "); alSourcef(1, ROLLOFF_FACTOR, " + row.rolloff + ")",
                "set emitter hull");
        }
        t.emitter->setState(WorldPart::PLAY);
        expect("alSourcePlay(1)", "play sound");
        t.emitter->setState(WorldPart::PAUSE);
        expect("alSourcePause(1)", "pause sound");
        t.emitter->setState(WorldPart::STOP);
        expect("alSourceStop(1)", "stop sound");

        t.source->setParam(true, 1.5F); // nothing plays it: no call
        t.emitter->setSource(t.source);
        expect(
            "alSourceStop(1); alSourcei(1, BUFFER, 1); alSourcef(1, PITCH, 1.5); "
            "alSourcei(1, LOOPING, 1)",
            "connect emitter and source");
        t.source->setParam(false, 2.0F);
        expect("alSourcef(1, PITCH, 2); alSourcei(1, LOOPING, 0)", "set source parameters");
        t.emitter->setSource(nullptr);
        expect("alSourceStop(1); alSourcei(1, BUFFER, 0)", "disconnect emitter and source");
        t.emitter->setSource(unmade);
        expect("alSourceStop(1); alSourcei(1, BUFFER, 0)", "connect emitter and source");
        t.emitter->setSource(nullptr);
        prepare();
        delete t.emitter;
        expect("alSourceStop(1); alDeleteSources(1, 1)", "destroy emitter");
        delete t.source;
        expect("alDeleteBuffers(1, 1)", "destroy source");
    }
}

TEST(OALBackend, ErrorsAndStatesHaveTheirTexts) {
    Scene t;
    const OALBackend& backend = t.add();
    for (const auto& [error, text] : std::map<ALenum, const char*>{
             {0xA001, "Invalid Name parameter passed to AL call"},
             {0xA002, "Invalid parameter passed to AL call"},
             {0xA003, "Invalid enum parameter value"},
             {0xA004, "Illegal call"},
             {0xA005, "Out of memory"},
             {0xB001, "0xb001"}}) {
        FakeAL::setPendingError(error);
        EXPECT_TRUE(backend.checkALError("100 %d\n"));
        t.expect("alGetError()", "FATAL: 100 %d\n" + kStateMachine + text + "\n");
    }
    EXPECT_FALSE(backend.checkALError("nothing is wrong\n"));
    t.expect("alGetError()", "");
    t.emitter->setState(static_cast<WorldPart::State>(7));
    t.expect("", "FATAL: OALBackend::setEmitterState(): Bad Orvel::Emitter::state 7 \n");
}

TEST(OALBackend, PartsThatWereNotMadeOrAreNotServedAreIgnored) {
    Scene t;
    t.world.addBackend("openal", "labels=\"a, c\"");
    t.forget();
    t.world.createEmitter({"b", "c"});
    t.expect("alGenSources(1); alGetError()", "");
    Emitter* unserved = t.world.createEmitter({"b"});
    t.expect("", "");
    t.al.failing = "alGen";
    Emitter* unmade = t.world.createEmitter({"a"});
    t.expect("alGenSources(1); alGetError()", "FATAL: Cannot create emitter\n" + kInjected);
    t.source = t.world.createSource();
    t.expect("alGenBuffers(1); alGetError()", "FATAL: Cannot create source\n" + kInjected);
    for (Emitter* emitter : {unserved, unmade}) {
        emitter->setSource(t.source);
        emitter->setState(WorldPart::PLAY);
        t.source->setParam(true, 1.0F);
        fill(*t.source, 8000, 8, 1, 80);
        delete emitter;
    }
    delete t.source;
    t.expect("", "");
}

TEST(OALBackend, SamplesOfTheFourLayoutsAreBufferedAndOthersRefused) {
    const struct {
        unsigned rate, bits, channels, bytes;
        std::string calls, refusal;
        float duration;
        const char* failing = "none";
    } rows[] = {
        {8000, 8, 1, 4000, "alBufferData(1, MONO8, 4000, 8000); alGetError()", "", 0.5F},
        {22050, 16, 1, 11025, "alBufferData(1, MONO16, 11025, 22050); alGetError()", "", 0.25F},
        {8000, 8, 2, 4000, "alBufferData(1, STEREO8, 4000, 8000); alGetError()", "", 0.25F},
        {44100, 16, 2, 176400, "alBufferData(1, STEREO16, 176400, 44100); alGetError()", "", 1.0F},
        {8000, 8, 1, 99, "alBufferData(1, MONO8, 99, 8000); alGetError()",
         "FATAL: alBufferData() call failed\n" + kInjected, 0.0F, "alBufferData"},
        {44100, 24, 1, 300, "", "FATAL: Invalid source bits/channels: 24/1\n", 0.0F},
        {44100, 16, 3, 600, "", "FATAL: Invalid source bits/channels: 16/3\n", 0.0F},
        {0, 16, 1, 200, "", "", 0.0F},
        {44100, 0, 1, 200, "", "", 0.0F},
        {44100, 16, 0, 200, "", "", 0.0F}};
    for (const auto& row : rows) {
        Scene t;
        t.add();
        t.al.failing = row.failing;
        fill(*t.source, row.rate, row.bits, row.channels, row.bytes);
        const std::string numbers = std::to_string(row.rate) + ", " + std::to_string(row.bits) +
                                    ", " + std::to_string(row.channels) + "\n";
        t.expect(row.calls, "NOTICE: Set alBufferData from PCM data: " + numbers + row.refusal);
        EXPECT_FLOAT_EQ(t.source->duration(), row.duration) << numbers;
    }
}

TEST(OALBackend, FilesAreLoadedOrRefusedAndFreedEitherWay) {
    const TemporaryFolder folder;
    std::ofstream(folder.file("x.wav")) << "any content: the stand-in says what is read";
    const std::string url = "file://" + folder.file("x.wav");
    const std::string loading = "LOG: loading: >" + url + "<\n";
    Scene t;
    t.add();
    const auto expect = [&](const std::string& calls, const std::string& lines, float duration) {
        t.source->setDataFromURL(folder.file("x.wav"));
        t.expect("alGetError(); alutGetError(); alutLoadMemoryFromFile(/x.wav); " + calls, lines);
        EXPECT_FLOAT_EQ(t.source->duration(), duration);
        t.al.failing = "none";
    };
    const std::string unknown = loading + "FATAL: Unkown sound format: ";
    t.al.file = {AL_FORMAT_MONO8, 200, 8000.0F, ALUT_ERROR_IO_ERROR};
    t.al.alutError = ALUT_ERROR_OUT_OF_MEMORY; // left unread by somebody
    expect("alutGetError(); alGetError()", unknown + "0\n", 0.0F);
    EXPECT_EQ(t.errors.take(), "AOLError: I/O error\n");
    t.al.file = {0x10010, 200, 8000.0F, 0}; // a format that only AL may know
    expect("alGetError()", unknown + "65552\n", 0.0F);
    t.al.failing = "alutLoad"; // that is, leaves an AL error behind
    expect("alGetError()", loading + "FATAL: wav file load error\n" + kInjected, 0.0F);

    t.al.file = {AL_FORMAT_STEREO16, 176400, 44100.9F, 0};
    const std::string line = "NOTICE: Set alBufferData from URL data: 4355, 44100, 176400\n";
    const std::string good = "alGetError(); alBufferData(1, STEREO16, 176400, 44100)";
    const std::string restart = "alutGetError(); alutInitWithoutContext(); alutGetError(); ";
    t.al.alutRuns = false; // another user has ended it
    expect(restart + "alutLoadMemoryFromFile(/x.wav); " + good, loading + line, 1.0F);
    t.al.failing = "alBufferData";
    expect(good, loading + line, 1.0F);
    expect(good, loading + kInjected + line, 1.0F); // that of the last load, which hinders nothing
    std::filesystem::remove(folder.file("x.wav"));
    t.source->setDataFromURL(folder.file("x.wav"));
    EXPECT_EQ(t.log.lines()[1], "FATAL: OALBackend: Cannot download file \"" + url + "\"\n");
    t.forget();
    EXPECT_THROW(t.source->setDataFromURL("http://[nonsense"), Corvid::URLImpl::Exception);
    t.world.setSourceData(*t.source);
    t.expect("", "FATAL: source.url() not set in Source::URL_SD set\n");
}

TEST(OALLoopbackBackend, OpensTheLoopbackDeviceWithAFormatOfItsOwn) {
    Scene t;
    const OALLoopbackBackend backend(t.world, "rate=22050 sources=300");
    t.expect(
        // stereo, 32-bit float, 22050 Hz, no HRTF, 299 mono and 1 stereo source
        "alcIsExtensionPresent(ALC_SOFT_loopback); alcLoopbackOpenDeviceSOFT(); "
        "alcCreateContext(device 1, 6544=5377 6545=5126 4103=22050 6546=0 4112=299 4113=1); "
        "alcMakeContextCurrent(context 1); alutInitWithoutContext()",
        kOpened);
    t.al.failing = "alcIsExtensionPresent";
    OALLoopbackBackend none(t.world, nullptr);
    t.expect(
        "alcIsExtensionPresent(ALC_SOFT_loopback); alutInitWithoutContext()",
        "FATAL: This OpenAL library has no loopback device\nFATAL: Open OpenAL device failed\n");
    EXPECT_FALSE(none.render(nullptr, 0));
}

} // namespace Orvel::Test

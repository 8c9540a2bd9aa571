// The back end's calls of OpenAL and ALUT, one by one, and its log lines. Linked with FakeAL.
#include "FakeAL.h"

#include <Corvid/URLImpl.h>
#include <Orvel/BackendState.h>
#include <Orvel/OALLoopbackBackend.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <numeric>
#include <support/Capture.h>
#include <support/RecordingBackend.h>
#include <support/TemporaryFolder.h>

namespace Orvel::Test {

namespace {

const std::string kStateMachine = "FATAL: OpenAL state machine error: ";
const std::string kInjected = kStateMachine + "Invalid enum parameter value\n"; // AL_INVALID_VALUE

/// A world, and the calls of its back ends since the last expectation.
struct Scene {
    Scene() { al = {}; }
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
        const Calls logged = log.take();
        EXPECT_EQ(std::accumulate(logged.begin(), logged.end(), std::string()), lines) << calls;
    }

    FakeAL& al = FakeAL::the();
    LogCapture log;
    const OutputCapture errors{STDERR_FILENO};
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
    const std::string create = open + "alcCreateContext(1, null); ";
    const std::string close = "alcCloseDevice(1); ";
    const struct {
        const char* failing;
        std::string construction, line, destruction;
    } rows[] = {
        {"none", create + "alcMakeContextCurrent(1); ",
         "NOTICE: OpenAL device & context open: ok\n",
         "alGetError(); alcDestroyContext(1); " + close},
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
            EXPECT_FALSE(OALBackend::reportRefusedSound(*t.world.createSource()));
            EXPECT_EQ(t.al.take(), "");
            t.log.take();
        }
        delete backend;
        t.expect(row.destruction + "alutExit()", "");
    }
    Scene t;
    OALLoopbackBackend none(t.world, nullptr);
    t.expect(
        "alcIsExtensionPresent(ALC_SOFT_loopback); alutInitWithoutContext()",
        "FATAL: This OpenAL library does not support loopback devices\nFATAL: Open OpenAL device "
        "failed\n");
    EXPECT_FALSE(none.render(nullptr, 0));
}

TEST(OALBackend, ResetDeletesSourcesBeforeBuffersByAscendingId) {
    Scene t;
    OALBackend& backend = t.add();
    t.world.createSource(-3);      // buffer 2
    t.world.createEmitter({}, -3); // AL source 2
    t.forget();
    backend.createSource(*t.source); // again; another buffer would never be deleted
    backend.createEmitter(*t.emitter);
    t.expect("", "");
    t.al.failing = "alSourceStop"; // must not end either loop
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
        const OALBackend other(elsewhere, nullptr); // with the same names
        float x = 0;
        const auto param = [&](bool world, bool flag) {
            t.world.setSpatialize(world);
            t.emitter->setParam(flag, 9, 0.25F);
        };
        const auto move = [&] {
            const Vec3f position{++x, -2, 3.5F};
            t.emitter->setTransform(&position, nullptr);
        };
        const auto hull = [&](float maxBack, float maxFront, float minBack, float minFront) {
            t.emitter->setHull(maxBack, maxFront, minBack, minFront);
        };
        const auto state = [&](WorldPart::State next) { t.emitter->setState(next); };
        const auto attenuation = [](const std::string& least, const char* most,
                                    const char* rolloff) {
            return "alSourcefv(1, DIRECTION, 1, 0, 0); alSourcef(1, CONE_INNER_ANGLE, 360); "
                   "alSourcef(1, CONE_OUTER_ANGLE, 360); alSourcef(1, REFERENCE_DISTANCE, " +
                   least + "); alSourcef(1, MAX_DISTANCE, " + most +
                   "); alSourcef(1, ROLLOFF_FACTOR, " + rolloff + ")";
        };
        const std::string transform = "set emitter transformation";
        const std::string gain = "alSourcef(1, GAIN, 0.25)";
        const std::string placed =
            "alSourcefv(1, POSITION, 3, -2, 3.5); alSourcei(1, SOURCE_RELATIVE, 0)";
        const std::string unplaced =
            "alSourcefv(1, POSITION, 0, 0, 0); alSourcei(1, SOURCE_RELATIVE, 1)";
        const std::string detached = "alSourceStop(1); alSourcei(1, BUFFER, 0)";
        const struct {
            std::function<void()> change;
            std::string calls, operation;
        } rows[] = {
            {[&] { t.world.setEnabled(true); }, "alListenerf(GAIN, 1)", "set listener gain"},
            {[&] { t.world.setEnabled(false); }, "alListenerf(GAIN, 0)", "set listener gain"},
            {[&] { // looks up; the rotation's length is not 1
                 t.world.setListenerTransform({4, 5, 6}, {0.5F, 0, 0, 0.5F});
             },
             "alListenerf(GAIN, 1); alListenerfv(POSITION, 4, 5, 6); "
             "alListenerfv(ORIENTATION, 0, 1, 0, 0, 0, 1); alListenerfv(VELOCITY, 0, 0, 0)",
             "set listener transformation"},
            {[&] { param(false, true); }, gain, "set emitter parameters"},
            {[&] { move(); }, unplaced, transform},
            {[&] { hull(9, 9, 5, 5); }, attenuation("1", "2", "0"), "set emitter hull"},
            {[&] { param(true, false); }, gain, "set emitter parameters"},
            {[&] { move(); }, unplaced, transform},
            {[&] { hull(8, 8, 5, 5); }, attenuation("1", "2", "0"), "set emitter hull"},
            {[&] { param(true, true); }, gain, "set emitter parameters"},
            {[&] { move(); }, placed, transform},
            {[&] { hull(30, 50, 2, 4); }, attenuation("3", "40", "1"), "set emitter hull"},
            {[&] { hull(4, 2, 6, 6); }, attenuation("2.997", "3", "1"), "set emitter hull"},
            {[&] { hull(NAN, 1, -1, -1); }, attenuation("0.000999", "0.001", "1"),
             "set emitter hull"},
            {[&] { state(WorldPart::PLAY); }, "alSourcePlay(1)", "play sound"},
            {[&] { state(WorldPart::PAUSE); }, "alSourcePause(1)", "pause sound"},
            {[&] { state(WorldPart::STOP); }, "alSourceStop(1)", "stop sound"},
            {[&] {
                 t.source->setParam(true, 1.5F); // without a playing emitter: no call
                 t.emitter->setSource(t.source);
             },
             "alSourceStop(1); alSourcei(1, BUFFER, 1); alSourcef(1, PITCH, 1.5); "
             "alSourcei(1, LOOPING, 1)",
             "connect emitter and source"},
            {[&] { t.source->setParam(false, 2); },
             "alSourcef(1, PITCH, 2); alSourcei(1, LOOPING, 0)", "set source parameters"},
            {[&] { t.emitter->setSource(nullptr); }, detached, "disconnect emitter and source"},
            {[&] { t.emitter->setSource(unmade); }, detached, "connect emitter and source"},
            {[&] { delete unmade; }, detached, "disconnect emitter and source"},
            {[&] { delete t.emitter; }, "alSourceStop(1); alDeleteSources(1, 1)",
             "destroy emitter"},
            {[&] { delete t.source; }, "alDeleteBuffers(1, 1)", "destroy source"}};
        for (const auto& row : rows) {
            // Once with the back end's context current and no errors, once with neither.
            t.al.failing = disturbed ? "al" : "none";
            (disturbed ? other : backend).checkALError(nullptr);
            t.forget();
            row.change();
            t.expect(
                (disturbed ? "alcMakeContextCurrent(1); " : "") + row.calls + "; alGetError()",
                disturbed ? "FATAL: Cannot " + row.operation + "\n" + kInjected : "");
        }
    }
}

TEST(OALBackend, ErrorsAndStatesHaveTheirTexts) {
    Scene t;
    const OALBackend& backend = t.add();
    const std::pair<ALenum, const char*> rows[] = {
        {0xA001, "Invalid Name parameter passed to AL call"},
        {0xA002, "Invalid parameter passed to AL call"},
        {0xA003, "Invalid enum parameter value"},
        {0xA004, "Illegal call"},
        {0xA005, "Out of memory"},
        {0xB001, "0xb001"}};
    for (const auto& [error, text] : rows) {
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
    // The same as a value, and how the back end says it is.
    std::vector<Diagnostic> diagnostics;
    setDiagnosticSink([&](const Diagnostic& diagnostic) {
        diagnostics.push_back(diagnostic);
        return diagnostic.code == Diagnostic::Code::OpenAL;
    });
    Emitter* another = t.world.createEmitter({"a"}, 700);
    setDiagnosticSink({});
    t.expect("alGenSources(1); alGetError()", "");
    ASSERT_EQ(diagnostics.size(), 1);
    EXPECT_EQ(diagnostics[0].part.kind, Diagnostic::Part::Kind::Emitter);
    EXPECT_EQ(diagnostics[0].part.id, 700);
    EXPECT_EQ(diagnostics[0].text, "Cannot create emitter");
    EXPECT_EQ(diagnostics[0].reason, "Invalid enum parameter value");
    const BackendState state = t.world.backends().front()->state();
    EXPECT_TRUE(state.working);
    EXPECT_EQ(state.device, "Fake");
    EXPECT_EQ(state.voicesUsed, 1);
    EXPECT_EQ(state.voicesAllowed, 256);
    EXPECT_EQ(state.failures, 2);
    EXPECT_EQ(state.refusedEmitters, (std::vector{unmade->id(), 700}));
    delete another;
    EXPECT_EQ(t.world.backends().front()->state().refusedEmitters.size(), 1);
    t.source = t.world.createSource();
    t.expect("alGenBuffers(1); alGetError()", "FATAL: Cannot create source\n" + kInjected);
    for (Emitter* emitter : {unserved, unmade}) {
        emitter->setSource(t.source);
        emitter->setState(WorldPart::PLAY);
        t.source->setParam(true, 1);
        fill(*t.source, 8000, 8, 1, 80);
        delete emitter;
    }
    delete t.source;
    t.expect("", "");
}

TEST(OALBackend, SamplesOfTheFourLayoutsAreBufferedAndOthersRefused) {
    const struct {
        unsigned rate, bits, channels, bytes;
        std::string buffered, refusal;
        float duration;
        const char* failing = "none";
    } rows[] = {
        {8000, 8, 1, 4000, "1, MONO8, 4000, 8000", "", 0.5F},
        {22050, 16, 1, 11025, "1, MONO16, 11025, 22050", "", 0.25F},
        {8000, 8, 2, 4000, "1, STEREO8, 4000, 8000", "", 0.25F},
        {44100, 16, 2, 176400, "1, STEREO16, 176400, 44100", "", 1},
        {8000, 8, 1, 99, "1, MONO8, 99, 8000", "FATAL: alBufferData() call failed\n" + kInjected, 0,
         "alBufferData"},
        {44100, 24, 1, 300, "", "FATAL: Invalid source bits/channels: 24/1\n", 0},
        {44100, 16, 3, 600, "", "FATAL: Invalid source bits/channels: 16/3\n", 0},
        {0, 16, 1, 200, "", "", 0},
        {44100, 0, 1, 200, "", "", 0},
        {44100, 16, 0, 200, "", "", 0}};
    for (const auto& row : rows) {
        Scene t;
        t.add();
        t.al.failing = row.failing;
        fill(*t.source, row.rate, row.bits, row.channels, row.bytes);
        const std::string numbers = std::to_string(row.rate) + ", " + std::to_string(row.bits) +
                                    ", " + std::to_string(row.channels) + "\n";
        t.expect(
            row.buffered.empty() ? "" : "alBufferData(" + row.buffered + "); alGetError()",
            "NOTICE: Set alBufferData from PCM data: " + numbers + row.refusal);
        EXPECT_FLOAT_EQ(t.source->duration(), row.duration) << numbers;
    }
}

TEST(OALBackend, ErrorsAroundTheLoadingOfAFileAreReportedByTheirOwnNames) {
    const TemporaryFolder folder;
    std::ofstream(folder.file("x.wav")) << "any content: the stand-in says what is read";
    const std::string url = "file://" + folder.file("x.wav");
    const std::string load = "alGetError(); alutGetError(); alutLoadMemoryFromFile(); alGetError()";
    const std::string buffer = load + "; alBufferData(1, STEREO16, 176400, 44100)";
    const std::string set = "NOTICE: Set alBufferData from URL data: 4355, 44100, 176400\n";
    const std::string left = "FATAL: left by an earlier operation, before a wav file load\n";
    const struct {
        ALenum format;
        std::string failing, calls, lines;
        float duration;
    } rows[] = {
        {0x10010, "none", load, "FATAL: Unkown sound format: 65552\n", 0},
        {AL_FORMAT_STEREO16, "alutLoad", load, "FATAL: wav file load error\n" + kInjected, 0},
        {AL_FORMAT_STEREO16, "alBufferData", buffer, set, 1},
        {AL_FORMAT_STEREO16, "alBufferData", buffer, left + kInjected + set, 1}};
    Scene t;
    t.add();
    for (const auto& row : rows) {
        t.al.fileFormat = row.format;
        t.al.failing = row.failing;
        t.source->setDataFromURL(folder.file("x.wav"));
        t.expect(row.calls, "LOG: loading: >" + url + "<\n" + row.lines);
        EXPECT_FLOAT_EQ(t.source->duration(), row.duration);
    }
    EXPECT_TRUE(OALBackend::reportRefusedSound(*t.source));
    t.expect("alGetError()", "FATAL: OpenAL refuses the sound \"" + url + "\"\n" + kInjected);
    EXPECT_FALSE(OALBackend::reportRefusedSound(*t.source));
    t.forget();
    std::filesystem::remove(folder.file("x.wav"));
    t.source->setDataFromURL(folder.file("x.wav"));
    EXPECT_EQ(t.log.lines()[1], "FATAL: OALBackend: Cannot download file \"" + url + "\"\n");
    EXPECT_THROW(t.source->setDataFromURL("http://["), Corvid::URLImpl::Exception);
    t.forget();
    t.world.setSourceData(*t.source);
    t.expect("", "FATAL: source.url() not set in Source::URL_SD set\n");
}

} // namespace Orvel::Test

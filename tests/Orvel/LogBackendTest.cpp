#include "support/Capture.h"
#include "support/RecordingBackend.h"

#include <Orvel/LogBackend.h>

#include <cstdio>
#include <gtest/gtest.h>

namespace Orvel::Test {

TEST(LogBackend, WritesALineForEveryOperation) {
    World world;
    Source* source = nullptr;
    Emitter* emitter = nullptr;
    const Vec3f position{1.5F, -2, 3e6F};
    LogCapture log(Log::Level::Log);
    const struct {
        Calls lines;
        std::function<void()> change;
    } rows[] = {
        {{"create backend", "setEnabled", "setListenerTransform(0.000000, 0.000000, 0.000000)"},
         [&] { world.addBackend("log", "labels=nobody"); }},
        {{"setEnabled"}, [&] { world.setEnabled(false); }},
        {{"setListenerTransform(1.500000, -2.000000, 3000000.000000)"},
         [&] {
             world.setListenerTransform(position, {0, 1, 0, 0});
         }},
        {{"createSource"}, [&] { source = world.createSource(); }},
        {{"setSourceState: unknown"}, [&] { world.setSourceState(*source); }},
        {{"createEmitter"}, [&] { emitter = world.createEmitter({"other"}); }},
        {{"setSourceParam"}, [&] { source->setParam(true, 2); }},
        {{"setSourceData"}, [&] { source->setDataFromURL("bell.wav"); }},
        {{"setEmitterConnection"}, [&] { emitter->setSource(source); }},
        {{"setSourceState: play", "setEmitterState: play"},
         [&] { source->setState(WorldPart::PLAY); }},
        {{"setEmitterState: pause", "setSourceState: pause"},
         [&] { emitter->setState(WorldPart::PAUSE); }},
        {{"setEmitterState: stop", "setSourceState: stop"},
         [&] { emitter->setState(WorldPart::STOP); }},
        {{"setEmitterState: unknown", "setSourceState: unknown"},
         [&] { emitter->setState(WorldPart::NONE); }},
        {{"setEmitterState: unknown", "setSourceState: unknown"},
         [&] { emitter->setState(static_cast<WorldPart::State>(4)); }},
        {{"setEmitterTransform(1.500000, -2.000000, 3000000.000000)"},
         [&] { emitter->setTransform(&position, nullptr); }},
        {{"setEmitterHull(maxBack=10.000000, maxFront=10.000000, minBack=0.000000, "
          "minFront=0.000000)"},
         [&] { world.setEmitterHull(*emitter); }},
        {{"setEmitterHull(maxBack=1.000000, maxFront=2.000000, minBack=3.000000, "
          "minFront=4.000000)"},
         [&] { emitter->setHull(1, 2, 3, 4); }},
        {{"setEmitterParam"}, [&] { emitter->setParam(true, 0, 1); }},
        {{}, [&] { world.update(); }},
        {{"setEmitterConnection", "destroyEmitter", "destroySource", "resetBackend"},
         [&] { world.reset(); }},
        {{"delete backend"}, [&] { world.deleteAllBackends(); }},
    };
    for (const auto& row : rows) {
        log.take();
        row.change();
        Calls expected;
        for (const std::string& line : row.lines) {
            expected.push_back("LOG: LogBackend: " + line + '\n');
        }
        EXPECT_EQ(log.take(), expected);
    }
}

TEST(LogBackend, ReportsItsCopy) {
    TidyWorld world;
    const auto* original = new LogBackend(world, nullptr);
    const LogCapture log;
    {
        const LogBackend copy(*original); // NOLINT(performance-unnecessary-copy-initialization)
    }
    EXPECT_EQ(
        log.lines(), (Calls{
                         "FATAL: ERROR: In Backend copy constructor\n",
                         "LOG: LogBackend: copy backend\n", "LOG: LogBackend: delete backend\n"}));
}

TEST(LogBackend, HeadersNameTheLibrarysFunctions) {
    TidyWorld world;
    LogBackend backend(world, nullptr);
    Emitter& emitter = *world.createEmitter();
    LogCapture log(
        Log::Level::Log, Log::kHeaderModule | Log::kHeaderFile | Log::kHeaderLine |
                             Log::kHeaderFunction | Log::kHeaderTabs);
    backend.setEmitterParam(emitter);
    const Calls lines = log.take();
    ASSERT_EQ(lines.size(), 1U);
    int number = 0;
    int rest = 0;
    std::sscanf(lines[0].c_str(), "LOG: Orvel\tOrvel/LogBackend:%d\t%n", &number, &rest);
    EXPECT_GT(number, 0) << lines[0];
    EXPECT_EQ(
        lines[0].substr(static_cast<std::size_t>(rest)),
        "virtual void Orvel::LogBackend::setEmitterParam(Orvel::Emitter&)\t LogBackend: "
        "setEmitterParam\n");
    Log::the().setModuleFilter([](const char*) { return false; });
    backend.setEmitterParam(emitter);
    Log::the().setModuleFilter(nullptr);
    EXPECT_EQ(log.take(), Calls()) << "only the module filter keeps the lines away";
}

} // namespace Orvel::Test

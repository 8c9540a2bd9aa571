#include "support/Capture.h"
#include "support/RecordingBackend.h"

#include <Orvel/LogBackend.h>

#include <cstdio>
#include <gtest/gtest.h>

namespace Orvel::Test {

TEST(LogBackend, WritesALineForEveryOperation) {
    World world;
    const Vec3f position{1.5F, -2, 3e6F};
    const LogCapture log(Log::Level::Log);
    world.addBackend("log", "labels=nobody");
    world.setEnabled(false);
    world.setListenerTransform(position, {0, 1, 0, 0});
    Source* source = world.createSource();
    world.setSourceState(*source);
    Emitter* emitter = world.createEmitter({"other"});
    source->setParam(true, 2);
    source->setDataFromURL("bell.wav");
    emitter->setSource(source);
    source->setState(WorldPart::PLAY);
    for (const int state : {2, 3, 0, 4}) {
        emitter->setState(static_cast<WorldPart::State>(state));
    }
    emitter->setTransform(&position, nullptr);
    world.setEmitterHull(*emitter);
    emitter->setHull(1, 2, 3, 4);
    emitter->setParam(true, 0, 1);
    world.update();
    world.reset();
    world.deleteAllBackends();
    Calls expected;
    for (const char* line :
         {"create backend",
          "setEnabled",
          "setListenerTransform(0.000000, 0.000000, 0.000000)",
          "setEnabled",
          "setListenerTransform(1.500000, -2.000000, 3000000.000000)",
          "createSource",
          "setSourceState: unknown",
          "createEmitter",
          "setSourceParam",
          "setSourceData",
          "setEmitterConnection",
          "setSourceState: play",
          "setEmitterState: play",
          "setEmitterState: pause",
          "setSourceState: pause",
          "setEmitterState: stop",
          "setSourceState: stop",
          "setEmitterState: unknown",
          "setSourceState: unknown",
          "setEmitterState: unknown",
          "setSourceState: unknown",
          "setEmitterTransform(1.500000, -2.000000, 3000000.000000)",
          "setEmitterHull(maxBack=10.000000, maxFront=10.000000, minBack=0.000000, "
          "minFront=0.000000)",
          "setEmitterHull(maxBack=1.000000, maxFront=2.000000, minBack=3.000000, "
          "minFront=4.000000)",
          "setEmitterParam",
          "setEmitterConnection",
          "destroyEmitter",
          "destroySource",
          "resetBackend",
          "delete backend"}) {
        expected.push_back("LOG: LogBackend: " + std::string(line) + '\n');
    }
    EXPECT_EQ(log.lines(), expected);
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

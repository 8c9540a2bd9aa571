#include "support/Capture.h"
#include "support/RecordingBackend.h"

#include <Orvel/detail/net/Changes.h>

#include <gtest/gtest.h>

namespace Orvel::Test {

TEST(LogBackend, WritesALineForEveryOperation) {
    World world;
    const LogCapture log(Log::Level::Log);
    world.addBackend("log", "labels=nobody");
    world.setListenerTransform({1.5F, -2, 3e6F}, {0, 1, 0, 0});
    Source* source = world.createSource();
    Emitter* emitter = world.createEmitter({"other"});
    const Vec3f position{4, 5, 6.25F};
    emitter->setTransform(&position, nullptr);
    emitter->setHull(1, 2, 3, 4);
    emitter->setParam(true, 0, 1);
    source->setParam(true, 2);
    source->setDataFromURL("bell.wav");
    emitter->setSource(source);
    for (const int state : {1, 2, 3, 4}) {
        source->setState(static_cast<WorldPart::State>(state));
    }
    world.update();
    world.reset();
    world.deleteAllBackends();
    std::string lines;
    for (const std::string& line : log.lines()) {
        EXPECT_EQ(line.substr(0, 17), "LOG: LogBackend: ");
        lines += line.substr(17);
    }
    EXPECT_EQ(
        lines, "create backend\nsetEnabled\nsetListenerTransform(0.000000, 0.000000, 0.000000)\n"
               "setListenerTransform(1.500000, -2.000000, 3000000.000000)\n"
               "createSource\ncreateEmitter\nsetEmitterTransform(4.000000, 5.000000, 6.250000)\n"
               "setEmitterHull(maxBack=1.000000, maxFront=2.000000, minBack=3.000000, "
               "minFront=4.000000)\n"
               "setEmitterParam\nsetSourceParam\nsetSourceData\nsetEmitterConnection\n"
               "setSourceState: play\nsetEmitterState: play\n"
               "setSourceState: pause\nsetEmitterState: pause\n"
               "setSourceState: stop\nsetEmitterState: stop\n"
               "setSourceState: unknown\nsetEmitterState: unknown\n"
               "setEmitterConnection\ndestroyEmitter\ndestroySource\nresetBackend\n"
               "delete backend\n");
    detail::forEachChange([&lines](const auto& row) {
        EXPECT_NE(lines.find('\n' + std::string(row.operation)), std::string::npos);
    });
}

} // namespace Orvel::Test

#include "support/Capture.h"
#include "support/RecordingBackend.h"

#include <Orvel/PlayBackend.h>

#include <gtest/gtest.h>
#include <memory>

namespace Orvel::Test {

TEST(PlayBackend, WritesTheCommandOfWhatStartsToPlay) {
    TidyWorld world;
    const LogCapture log;
    OutputCapture errors(STDERR_FILENO);
    auto output = std::make_unique<OutputCapture>(STDOUT_FILENO);
    Source* source = world.createSource();
    Source* other = world.createSource();
    Emitter* emitter = world.createEmitter();
    Backend* backend = nullptr;
    const unsigned char byte = 0;
    const std::string call = "systemCall: player -q http://host/a.wav &\n";
    const struct {
        std::string output;
        std::function<void()> change;
    } rows[] = {
        {"ERROR: Unknown emitter state in Orvel/PlayBackend:168\n"
         "ERROR: Unknown emitter state in Orvel/PlayBackend:168\n",
         [&] { backend = world.addBackend("play", "command=\"player -q\""); }},
        {"Invalid SourceData\n", [&] { source->setState(WorldPart::PLAY); }},
        {"", [&] { source->setDataFromURL("http://host/a.wav"); }},
        {"", [&] { source->setState(WorldPart::PAUSE); }},
        {call, [&] { source->setState(WorldPart::PLAY); }},
        {"", [&] { source->setState(WorldPart::STOP); }},
        {"", [&] { emitter->setState(WorldPart::PLAY); }},
        {"", [&] { emitter->setState(WorldPart::NONE); }},
        {"", [&] { emitter->setSource(source); }},
        {call + call, [&] { emitter->setState(WorldPart::PLAY); }},
        {"ERROR: Unknown emitter state in Orvel/PlayBackend:269\n"
         "ERROR: Unknown emitter state in Orvel/PlayBackend:168\n",
         [&] { emitter->setState(WorldPart::NONE); }},
        {"ERROR: Unknown emitter state in Orvel/PlayBackend:168\n"
         "ERROR: Unknown emitter state in Orvel/PlayBackend:269\n",
         [&] { source->setState(static_cast<WorldPart::State>(77)); }},
        {"", [&] { backend->params()->setParam("command", "x"); }},
        {"systemCall: x http://host/a.wav &\nsystemCall: x http://host/a.wav &\n",
         [&] { source->setState(WorldPart::PLAY); }},
        {"systemCall:  http://host/a.wav &\n",
         [&] {
             backend->params()->setParamLine("");
             world.setSourceState(*source);
         }},
        {"", [&] { source->setData(8000, 8, 1, &byte, 1); }},
        {"Invalid SourceData\n", [&] { world.setEmitterState(*emitter); }},
        {"", [&] { emitter->setSource(nullptr); }},
        {"systemCall:   &\n",
         [&] {
             EXPECT_ANY_THROW(other->setDataFromURL("http://["));
             other->setState(WorldPart::PLAY);
         }},
    };
    Calls outputs;
    output->take();
    for (const auto& row : rows) {
        row.change();
        outputs.push_back(output->take());
    }
    output.reset(); // failures are written there too
    for (std::size_t i = 0; i < outputs.size(); ++i) {
        EXPECT_EQ(outputs[i], rows[i].output) << "row " << i;
    }
}

} // namespace Orvel::Test

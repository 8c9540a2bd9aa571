#include "support/Capture.h"
#include "support/RecordingBackend.h"

#include <gtest/gtest.h>

namespace Orvel::Test {

TEST(PlayBackend, WritesTheCommandOfWhatStartsToPlay) {
    TidyWorld world;
    Source& source = *world.createSource();
    Emitter& emitter = *world.createEmitter();
    const LogCapture log;
    const std::string call = "systemCall: player -q http://host/a.wav &\n";
    const std::string sourceError = "ERROR: Unknown emitter state in Orvel/PlayBackend:168\n";
    const std::string emitterError = "ERROR: Unknown emitter state in Orvel/PlayBackend:269\n";
    const auto unknown = static_cast<WorldPart::State>(77);
    const struct {
        std::string output;
        std::function<void()> change;
    } rows[] = {
        {sourceError, [&] { world.addBackend("play", "command=\"player -q\""); }},
        {"Invalid SourceData\n", [&] { source.setState(WorldPart::PLAY); }},
        {"", [&] { source.setDataFromURL("http://host/a.wav"); }},
        {"", [&] { source.setState(WorldPart::PAUSE); }},
        {call, [&] { source.setState(WorldPart::PLAY); }},
        {"", [&] { emitter.setState(WorldPart::PLAY); }},
        {"", [&] { emitter.setSource(&source); }},
        {"", [&] { source.setState(WorldPart::STOP); }},
        {call + call, [&] { emitter.setState(WorldPart::PLAY); }},
        {emitterError + sourceError, [&] { emitter.setState(unknown); }},
        {"systemCall:   &\nsystemCall:   &\n",
         [&] {
             EXPECT_ANY_THROW(source.setDataFromURL("http://["));
             world.backends().front()->params()->setParamLine("");
             source.setState(WorldPart::PLAY);
         }},
    };
    for (const auto& row : rows) {
        std::string output;
        {
            OutputCapture capture(STDOUT_FILENO); // briefly: failures are written there too
            row.change();
            output = capture.take();
        }
        EXPECT_EQ(output, row.output) << &row - rows;
    }
}

} // namespace Orvel::Test

#pragma once

#include "Sound.h"

#include <Orvel/VoicesBackend.h>

#include <gtest/gtest.h>
#include <support/Capture.h>
#include <support/RecordingBackend.h>

namespace Orvel::Test {

/// A scene and an offline back end of the kind "voices".
struct Hall {
    explicit Hall(const std::string& params = "")
        : ear(new VoicesBackend(world, ("offline=yes " + params).c_str())) {}

    Stereo hear(double seconds) { return hearFrames(std::lround(seconds * ear->rate())); }
    Stereo hearFrames(std::int64_t frames) {
        const std::size_t channels = ear->layout().channels;
        Stereo samples(channels * static_cast<std::size_t>(frames), 7.0F);
        EXPECT_TRUE(ear->render(samples.data(), static_cast<unsigned>(frames)));
        return samples;
    }

    LogCapture log{Log::Level::Warning};
    OutputCapture errors{STDERR_FILENO};
    TidyWorld world;
    VoicesBackend* ear;
};

} // namespace Orvel::Test

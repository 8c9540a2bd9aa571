#include <Show/LevelMeter.h>

#include <cmath>
#include <gtest/gtest.h>
#include <vector>

using namespace Show;

namespace {

/// A full-scale square wave of `left`, and silence on the right.
std::vector<float> leftOnly(std::size_t frames, float left) {
    std::vector<float> samples;
    for (std::size_t i = 0; i < frames; ++i) {
        samples.push_back(i % 2 == 0 ? left : -left);
        samples.push_back(0.0F);
    }
    return samples;
}

} // namespace

TEST(LevelMeter, KeepsWindowsOfUnevenLengthApartHoweverItIsFed) {
    // 11025 Hz does not divide into tenths: windows of 1102 and 1103 frames.
    const std::vector<float> loud = leftOnly(1103, 0.5F);
    const std::vector<float> soft = leftOnly(1102, 0.25F);
    std::vector<float> all = loud;
    all.insert(all.end(), soft.begin(), soft.end());
    for (const std::size_t block : {std::size_t{2}, std::size_t{94}, all.size()}) {
        LevelMeter meter(11025, 0.1);
        for (std::size_t i = 0; i < all.size(); i += block) {
            meter.add(std::span(all).subspan(i, std::min(block, all.size() - i)));
        }
        const auto windows = meter.windows();
        ASSERT_EQ(windows.size(), 2U) << block;
        EXPECT_DOUBLE_EQ(windows[0][0].rms, 0.5);
        EXPECT_DOUBLE_EQ(windows[1][0].peak, 0.25);
        EXPECT_DOUBLE_EQ(windows[1][0].rms, 0.25);
        EXPECT_EQ(windows[0][1].peak, 0.0);
        EXPECT_DOUBLE_EQ(meter.all()[0].peak, 0.5);
        EXPECT_NEAR(meter.all()[0].rms, std::sqrt((1103 * 0.25 + 1102 * 0.0625) / 2205.0), 1e-12);
    }
}

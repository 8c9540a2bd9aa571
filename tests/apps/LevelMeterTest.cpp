#include "render/LevelMeter.h"

#include "plot/Svg.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

using namespace OrvelTool;

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
    EXPECT_EQ(toDecibels(0.0), -std::numeric_limits<double>::infinity());
}

TEST(Svg, WritesNothingThatXmlCannotHold) {
    const std::pair<const char*, const char*> rows[] = {
        {"a<b>&\"c\"", "a&lt;b&gt;&amp;&quot;c&quot;"},
        {"K\xC3\xBC"
         "che",
         "K\xC3\xBC"
         "che"},
        {"\xF0\x9F\x94\x94", "\xF0\x9F\x94\x94"},
        {"a\x01z", "a\xEF\xBF\xBDz"},
        {"cut \xC3", "cut \xEF\xBF\xBD"},
        {"\xC0\xAF", "\xEF\xBF\xBD\xEF\xBF\xBD"},                 // overlong
        {"\xED\xA0\x80", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"}, // surrogate
        {"\xEF\xBF\xBF", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"}, // no character
    };
    for (const auto& [text, expected] : rows) {
        EXPECT_EQ(svgText(text), expected) << text;
    }
    EXPECT_EQ(svgNumber(-0.001), "0");
    EXPECT_EQ(svgNumber(std::nan("")), "0");
    EXPECT_EQ(svgNumber(1234567.891), "1234567.89");
}

TEST(Svg, PutsLabelsWhereNothingElseIs) {
    Labels labels({0, 0, 200, 100});
    std::vector<Box> boxes;
    for (int i = 0; i < 4; ++i) {
        const Labels::Spot spot = labels.place(100, 50, "label", 10, 8);
        boxes.push_back({spot.x, spot.y - 9.2, textWidth("label", 10), 12});
    }
    for (std::size_t i = 0; i < boxes.size(); ++i) {
        EXPECT_NEAR(boxes[i].overlap({0, 0, 200, 100}), boxes[i].width * 12, 1e-6) << i;
        for (std::size_t k = 0; k < i; ++k) {
            EXPECT_NEAR(boxes[i].overlap(boxes[k]), 0.0, 1e-6) << i << ' ' << k;
        }
    }
}

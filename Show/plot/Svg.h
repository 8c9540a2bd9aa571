#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Show {

/// A number for an SVG attribute: two decimals, no trailing zeros, a point whatever the locale;
/// 0 for what is no number.
std::string svgNumber(double value);

/// A text with what has a meaning in XML escaped, and what XML cannot hold replaced.
std::string svgText(std::string_view text);

/// The colour of axes and of other lines and texts in the background.
inline constexpr const char* kSvgFaint = "#6b7280";

/// A text element with its anchor at (x, y); `more` are further attributes.
std::string svgTextAt(
    double x, double y, double size, const std::string& colour, const std::string& content,
    const std::string& more = "");

/// A rectangle of pixels that is taken by something that can be read.
struct Box {
    double x = 0.0;
    double y = 0.0;
    double width = 0.0;
    double height = 0.0;

    /// The area that both cover.
    [[nodiscard]] double overlap(const Box& other) const;
};

/// Finds places for labels beside their points, so that as few as possible cover one another.
class Labels {
public:
    /// Labels stay within `frame`.
    explicit Labels(const Box& frame) : frame_(frame) {}

    /// Keeps a place free.
    void avoid(const Box& box) { taken_.push_back(box); }
    /// Takes the best place for a text of `size` pixels, `distance` away from the point. Gives the
    /// left end of its base line.
    struct Spot {
        double x;
        double y;
    };
    Spot place(double x, double y, std::string_view text, double size, double distance);

private:
    Box frame_;
    std::vector<Box> taken_;
};

/// About how wide a text of `size` pixels is in a sans-serif font.
double textWidth(std::string_view text, double size);

/// A round step (1, 2 or 5 times a power of ten) so that `range` has at most `most` of them.
double niceStep(double range, int most);

} // namespace Show

#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Show {

/// A number for an SVG attribute: two decimals, no trailing zeros, a decimal point in any locale; 0
/// for NaN and infinity.
std::string svgNumber(double value);

/// Escapes a text for XML, and replaces characters that XML cannot hold.
std::string svgText(std::string_view text);

/// The colour of axes and other background lines and texts.
inline constexpr const char* kSvgFaint = "#6b7280";

/// A text element with its anchor at (x, y); `more` are further attributes.
std::string svgTextAt(
    double x, double y, double size, const std::string& colour, const std::string& content,
    const std::string& more = "");

/// A rectangle of pixels occupied by readable content.
struct Box {
    double x = 0.0;
    double y = 0.0;
    double width = 0.0;
    double height = 0.0;

    /// The area of the intersection.
    [[nodiscard]] double overlap(const Box& other) const;
};

/// Places labels beside their points with as little overlap as possible.
class Labels {
public:
    /// Labels stay within `frame`.
    explicit Labels(const Box& frame) : frame_(frame) {}

    /// Reserves an area.
    void avoid(const Box& box) { taken_.push_back(box); }
    /// Takes the best place for a text of `size` pixels at `distance` from the point. Returns the
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

/// Approximate width of a text of `size` pixels in a sans-serif font.
double textWidth(std::string_view text, double size);

/// A round step (1, 2 or 5 times a power of ten) of which at most `most` fit into `range`.
double niceStep(double range, int most);

} // namespace Show

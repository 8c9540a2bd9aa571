#include <Show/plot/Svg.h>

#include <Show/detail/ValidText.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>

namespace Show {

std::string svgNumber(double value) {
    if (!std::isfinite(value)) {
        return "0";
    }
    const double rounded = std::round(value * 100.0) / 100.0;
    std::array<char, 64> text{};
    const auto [end, error] = std::to_chars(
        text.data(), text.data() + text.size(), rounded == 0.0 ? 0.0 : rounded,
        std::chars_format::general, 12);
    return error == std::errc() ? std::string(text.data(), end) : "0";
}

std::string svgText(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const std::size_t length = characterLength(text, 0);
        const std::string_view character = text.substr(0, length);
        const char first = text.front();
        if (length == 0 || (length == 1 && static_cast<unsigned char>(first) < 0x20) ||
            first == 0x7F || character == "\xEF\xBF\xBE" || character == "\xEF\xBF\xBF") {
            result += "\xEF\xBF\xBD"; // the replacement character
        } else if (first == '&') {
            result += "&amp;";
        } else if (first == '<') {
            result += "&lt;";
        } else if (first == '>') {
            result += "&gt;";
        } else if (first == '"') {
            result += "&quot;";
        } else {
            result += character;
        }
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return result;
}

std::string svgTextAt(
    double x, double y, double size, const std::string& colour, const std::string& content,
    const std::string& more) {
    return "<text x=\"" + svgNumber(x) + "\" y=\"" + svgNumber(y) + "\" font-size=\"" +
           svgNumber(size) + "\" fill=\"" + colour + "\" " + more + ">" + svgText(content) +
           "</text>\n";
}

double Box::overlap(const Box& other) const {
    const double w = std::min(x + width, other.x + other.width) - std::max(x, other.x);
    const double h = std::min(y + height, other.y + other.height) - std::max(y, other.y);
    return w > 0.0 && h > 0.0 ? w * h : 0.0;
}

Labels::Spot
Labels::place(double x, double y, std::string_view text, double size, double distance) {
    const double width = textWidth(text, size);
    const double height = size * 1.2;
    const double slant = distance * 0.75;
    const std::array<Box, 8> candidates{
        {{x + distance, y - height / 2.0, width, height},
         {x - distance - width, y - height / 2.0, width, height},
         {x - width / 2.0, y - distance - height, width, height},
         {x - width / 2.0, y + distance, width, height},
         {x + slant, y - slant - height, width, height},
         {x + slant, y + slant, width, height},
         {x - slant - width, y - slant - height, width, height},
         {x - slant - width, y + slant, width, height}}};
    const Box* best = &candidates.front();
    double least = std::numeric_limits<double>::infinity();
    for (const Box& box : candidates) {
        // Area outside the frame costs more than overlap.
        double cost = 4.0 * (box.width * box.height - box.overlap(frame_));
        for (const Box& other : taken_) {
            cost += box.overlap(other);
        }
        if (cost < least - 1e-9) {
            least = cost;
            best = &box;
        }
    }
    taken_.push_back(*best);
    return {best->x, best->y + size * 0.92};
}

double textWidth(std::string_view text, double size) {
    const auto characters = std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
    });
    return 0.58 * size * static_cast<double>(characters);
}

double niceStep(double range, int most) {
    if (!(range > 0.0) || !std::isfinite(range)) {
        return 1.0;
    }
    const double raw = range / most;
    const double power = std::pow(10.0, std::floor(std::log10(raw)));
    for (const double factor : {1.0, 2.0, 5.0}) {
        if (factor * power >= raw * (1.0 - 1e-9)) {
            return factor * power;
        }
    }
    return 10.0 * power;
}

} // namespace Show

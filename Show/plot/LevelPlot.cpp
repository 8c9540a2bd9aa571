#include <Show/plot/LevelPlot.h>

#include <algorithm>
#include <array>

namespace Show {

namespace {

constexpr double kFloor = -60.0; // in dB; lower levels are on the axis
constexpr double kGap = 14.0;
constexpr std::size_t kMaxPoints = 500; // more windows are merged

/// A line, and the area between it and the axis, closed at (left, bottom).
std::string curve(const std::string& line, double left, double bottom, const std::string& colour) {
    return "<path d=\"" + line + "V" + svgNumber(bottom) + "H" + svgNumber(left) + "Z\" fill=\"" +
           colour + "\" fill-opacity=\"0.22\"/>\n<path d=\"" + line + "\" fill=\"none\" stroke=\"" +
           colour + "\" stroke-width=\"1.4\" stroke-linejoin=\"round\"/>\n";
}

} // namespace

std::string drawLevels(const LevelMeter& meter, const Box& frame) {
    const std::size_t each = meter.windows().size() / kMaxPoints + 1;
    const auto windows = meter.windows(each);
    const double windowSeconds = meter.windowSeconds() * static_cast<double>(each);
    const double seconds = std::max(windowSeconds * static_cast<double>(windows.size()), 1e-3);
    const double perSecond = frame.width / seconds;
    const auto count = static_cast<double>(meter.channels());
    const double height = (frame.height - kGap * (count - 1.0)) / count;
    const std::array<const char*, 2> colours{"#0072b2", "#d55e00"};
    const double bottom = frame.y + frame.height;
    std::string out;
    for (std::size_t channel = 0; channel < meter.channels(); ++channel) {
        const char* const colour = colours[channel % colours.size()];
        const double top = frame.y + static_cast<double>(channel) * (height + kGap);
        const auto yOf = [&](double level) {
            const double dB = std::clamp(toDecibels(level), kFloor, 0.0);
            return top + height * dB / kFloor;
        };
        out += "<rect x=\"" + svgNumber(frame.x) + "\" y=\"" + svgNumber(top) + "\" width=\"" +
               svgNumber(frame.width) + "\" height=\"" + svgNumber(height) +
               "\" fill=\"#ffffff\" stroke=\"#cbd5e1\"/>\n";
        for (const double dB : {0.0, -20.0, -40.0, -60.0}) {
            const double y = top + height * dB / kFloor;
            out += "<line x1=\"" + svgNumber(frame.x) + "\" y1=\"" + svgNumber(y) + "\" x2=\"" +
                   svgNumber(frame.x + frame.width) + "\" y2=\"" + svgNumber(y) +
                   "\" stroke=\"#e9eef4\"/>\n";
            out +=
                svgTextAt(frame.x - 7, y + 4, 11, kSvgFaint, svgNumber(dB), "text-anchor=\"end\"");
        }
        std::string line;
        for (std::size_t i = 0; i < windows.size(); ++i) {
            const double middle = (static_cast<double>(i) + 0.5) * windowSeconds;
            line.append(i == 0 ? "M" : "L")
                .append(svgNumber(frame.x + middle * perSecond))
                .append(" ")
                .append(svgNumber(yOf(windows[i][channel].rms)));
        }
        if (!line.empty()) {
            const double half = 0.5 * windowSeconds * perSecond;
            out += curve(line, frame.x + half, top + height, colour);
        }
        out += svgTextAt(
            frame.x + 8, top + 16, 12, colour, channelName(meter.channels(), channel),
            "font-weight=\"600\" stroke=\"#ffffff\" stroke-width=\"3\" paint-order=\"stroke\"");
    }
    const double step = niceStep(seconds, 15);
    for (double k = 0.0; k * step <= seconds + 1e-9; ++k) {
        const double x = frame.x + k * step * perSecond;
        out += "<line x1=\"" + svgNumber(x) + "\" y1=\"" + svgNumber(bottom) + "\" x2=\"" +
               svgNumber(x) + "\" y2=\"" + svgNumber(bottom + 4) + "\" stroke=\"#94a3b8\"/>\n";
        out +=
            svgTextAt(x, bottom + 17, 11, kSvgFaint, svgNumber(k * step), "text-anchor=\"middle\"");
    }
    out += svgTextAt(
        frame.x + frame.width, bottom + 33, 12, kSvgFaint, "time in seconds →",
        "text-anchor=\"end\"");
    out += "<g transform=\"translate(" + svgNumber(frame.x - 38) + " " + svgNumber(frame.y) +
           ") rotate(-90)\">" +
           svgTextAt(0, 0, 12, kSvgFaint, "RMS level in dBFS", "text-anchor=\"end\"") + "</g>\n";
    return out;
}

} // namespace Show

#include <Show/plot/MapPlot.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace Show {

namespace {

constexpr std::array kColours{"#0072b2", "#d55e00", "#009e73", "#b0408f",
                              "#7a5c00", "#3f51b5", "#c2185b", "#00838f"};
constexpr const char* kInk = "#1f2937";
constexpr double kLabelSize = 13.0;
constexpr double kMarkSize = 10.5;
/// With more emitters than this, labels would only cover the map.
constexpr std::size_t kMaxLabels = 60;

/// With more emitters than this, the map shows how many there are in each place instead of each.
constexpr std::size_t kMaxSigns = 1000;

bool isDense(const ScenePaths& paths) {
    return paths.emitters.size() > kMaxSigns;
}

/// Counts emitters in the cells of a grid over the map.
class Density {
public:
    static constexpr double kCell = 4.0; // pixels
    static constexpr std::array kOpacities{0.15, 0.3, 0.5, 0.75, 1.0};

    explicit Density(const Box& frame)
        : frame_(frame), columns_(static_cast<std::size_t>(frame.width / kCell)),
          counts_(columns_ * static_cast<std::size_t>(frame.height / kCell)) {}

    static constexpr std::size_t kNowhere = static_cast<std::size_t>(-1);
    /// The cell of a point, or kNowhere.
    [[nodiscard]] std::size_t cellAt(double x, double y) const {
        const double column = std::floor((x - frame_.x) / kCell);
        const double row = std::floor((y - frame_.y) / kCell);
        const auto columns = static_cast<double>(columns_);
        const std::size_t wholeRows = counts_.size() / columns_;
        const auto rows = static_cast<double>(wholeRows);
        return column >= 0.0 && column < columns && row >= 0.0 && row < rows
                   ? static_cast<std::size_t>(row * columns + column)
                   : kNowhere;
    }
    void count(std::size_t cell) {
        if (cell != kNowhere) {
            most_ = std::max(most_, ++counts_[cell]);
        }
    }

    /// A path per shade, in which neighbouring cells of a row are one rectangle.
    [[nodiscard]] std::string draw(const char* colour) const {
        std::array<std::string, kOpacities.size()> shades;
        for (std::size_t cell = 0; cell < counts_.size();) {
            const std::size_t rowEnd = cell - cell % columns_ + columns_;
            const std::size_t begin = cell;
            const std::size_t shade = shadeOf(counts_[begin]);
            while (cell < rowEnd && shadeOf(counts_[cell]) == shade) {
                ++cell;
            }
            if (shade < shades.size()) {
                const auto column = static_cast<double>(begin % columns_);
                const std::size_t rowNumber = begin / columns_;
                const auto row = static_cast<double>(rowNumber);
                shades[shade] += "M" + svgNumber(frame_.x + column * kCell) + " " +
                                 svgNumber(frame_.y + row * kCell) + "h" +
                                 svgNumber(static_cast<double>(cell - begin) * kCell) + "v" +
                                 svgNumber(kCell) + "h" +
                                 svgNumber(-static_cast<double>(cell - begin) * kCell) + "z";
            }
        }
        std::string out;
        for (std::size_t shade = 0; shade < shades.size(); ++shade) {
            if (!shades[shade].empty()) {
                out += std::string("<path fill=\"") + colour + "\" fill-opacity=\"" +
                       svgNumber(kOpacities[shade]) + "\" shape-rendering=\"crispEdges\" d=\"" +
                       shades[shade] + "\"/>\n";
            }
        }
        return out;
    }

private:
    /// On a logarithmic scale up to the fullest cell; one beyond the shades for an empty cell.
    [[nodiscard]] std::size_t shadeOf(unsigned count) const {
        if (count == 0) {
            return kOpacities.size();
        }
        const double part = most_ < 2 ? 1.0 : std::log(count) / std::log(most_);
        const double last = static_cast<double>(kOpacities.size() - 1);
        return static_cast<std::size_t>(std::round(part * last));
    }

    Box frame_;
    std::size_t columns_;
    std::vector<unsigned> counts_;
    unsigned most_ = 0;
};

/// Scene units from above to pixels, with the same scale for both axes.
class View {
public:
    View(const ScenePaths& paths, const Box& frame) : frame_(frame) {
        include(paths.listener, 1.0);
        for (const Track& track : paths.emitters) {
            include(track, 0.0);
        }
        // Always includes the inner hulls, the outer ones unless they make everything else tiny.
        const double reach = std::max({right_ - left_, bottom_ - top_, 2.0});
        for (const Track& track : paths.emitters) {
            if (track.spatial) {
                const auto full = static_cast<double>(reachOf(track.hull).full);
                const auto softest = static_cast<double>(reachOf(track.hull).softest);
                include(track, full <= reach ? full : 0.0);
                include(track, softest <= 0.6 * reach ? softest : 0.0);
            }
        }
        const double width = std::max(right_ - left_, 1e-3);
        const double height = std::max(bottom_ - top_, 1e-3);
        scale_ = 0.86 * std::min(frame.width / width, frame.height / height);
        centreX_ = (left_ + right_) / 2.0;
        centreZ_ = (top_ + bottom_) / 2.0;
    }

    [[nodiscard]] double x(double sceneX) const {
        return frame_.x + frame_.width / 2.0 + (sceneX - centreX_) * scale_;
    }
    [[nodiscard]] double y(double sceneZ) const {
        return frame_.y + frame_.height / 2.0 + (sceneZ - centreZ_) * scale_;
    }
    [[nodiscard]] double sceneX(double x) const {
        return centreX_ + (x - frame_.x - frame_.width / 2.0) / scale_;
    }
    [[nodiscard]] double sceneZ(double y) const {
        return centreZ_ + (y - frame_.y - frame_.height / 2.0) / scale_;
    }
    [[nodiscard]] double scale() const { return scale_; }

private:
    void include(const Track& track, double around) {
        for (const Place& place : track.places) {
            const auto px = static_cast<double>(place.position.x);
            const auto pz = static_cast<double>(place.position.z);
            left_ = std::min(left_, px - around);
            right_ = std::max(right_, px + around);
            top_ = std::min(top_, pz - around);
            bottom_ = std::max(bottom_, pz + around);
        }
    }

    Box frame_;
    double left_ = 0.0;
    double right_ = 0.0;
    double top_ = 0.0;
    double bottom_ = 0.0;
    double scale_ = 1.0;
    double centreX_ = 0.0;
    double centreZ_ = 0.0;
};

/// The heading in degrees, clockwise on the page.
double headingOf(const Orvel::Quaternion& rotation) {
    const Orvel::Vec3f ahead = rotation.rotate({0.0F, 0.0F, -1.0F});
    return std::atan2(static_cast<double>(ahead.x), static_cast<double>(-ahead.z)) * 180.0 /
           std::numbers::pi;
}

std::string circle(double radius, const std::string& style) {
    return "<circle r=\"" + svgNumber(radius) + "\" " + style + "/>\n";
}

/// With a light outline, to be readable across lines.
std::string label(
    const Labels::Spot& spot, double size, const std::string& colour, const std::string& content) {
    return svgTextAt(
        spot.x, spot.y, size, colour, content,
        "stroke=\"#ffffff\" stroke-width=\"3\" stroke-linejoin=\"round\" paint-order=\"stroke\"");
}

std::string listenerSign() {
    return "<path d=\"M0 -17L6 -8L-6 -8Z\" fill=\"#1f2937\"/>\n"
           "<circle r=\"10\" fill=\"#1f2937\"/>\n"
           "<rect x=\"-13\" y=\"-4\" width=\"4\" height=\"8\" rx=\"1.5\" fill=\"#1f2937\"/>\n"
           "<rect x=\"9\" y=\"-4\" width=\"4\" height=\"8\" rx=\"1.5\" fill=\"#1f2937\"/>\n";
}

std::string emitterSign(const std::string& colour) {
    return "<circle r=\"6.5\" fill=\"" + colour + "\" stroke=\"#ffffff\" stroke-width=\"1.5\"/>\n";
}

std::string at(double x, double y, const std::string& content) {
    return "<g transform=\"translate(" + svgNumber(x) + " " + svgNumber(y) + ")\">\n" + content +
           "</g>\n";
}

class Map {
public:
    Map(const ScenePaths& paths, const Box& frame)
        : paths_(paths), frame_(frame), view_(paths, frame), labels_(frame) {}

    std::string draw() {
        const Box& f = frame_;
        std::string out = "<clipPath id=\"map\"><rect x=\"" + svgNumber(f.x) + "\" y=\"" +
                          svgNumber(f.y) + "\" width=\"" + svgNumber(f.width) + "\" height=\"" +
                          svgNumber(f.height) + "\"/></clipPath>\n" + grid() +
                          "<g clip-path=\"url(#map)\">\n";
        const std::size_t signs = isDense(paths_) ? 0 : paths_.emitters.size();
        for (std::size_t i = 0; i < signs; ++i) {
            out += hulls(paths_.emitters[i], colour(i));
        }
        if (isDense(paths_)) {
            out += density();
        }
        out += path(paths_.listener, kSvgFaint);
        for (std::size_t i = 0; i < signs; ++i) {
            out += path(paths_.emitters[i], colour(i));
        }
        out += "</g>\n";
        // All signs before all labels, so that no sign covers a label.
        avoidSigns(signs);
        out += scaleBar();
        for (std::size_t i = 0; i < signs; ++i) {
            out += sign(paths_.emitters[i], colour(i));
        }
        const Place& listener = paths_.listener.places.front();
        out +=
            at(x(listener), y(listener),
               "<g transform=\"rotate(" + svgNumber(headingOf(listener.rotation)) + ")\">\n" +
                   listenerSign() + "</g>\n");
        const auto spot = labels_.place(x(listener), y(listener), "listener", kLabelSize, 19.0);
        out += label(spot, kLabelSize, kInk, "listener");
        for (std::size_t i = 0; i < std::min(signs, kMaxLabels); ++i) {
            out += name(paths_.emitters[i], colour(i));
        }
        out += marks(paths_.listener, kSvgFaint);
        for (std::size_t i = 0; i < std::min(signs, kMaxLabels); ++i) {
            out += marks(paths_.emitters[i], colour(i));
        }
        return out;
    }

private:
    static std::string colour(std::size_t index) { return kColours[index % kColours.size()]; }
    [[nodiscard]] double x(const Place& place) const {
        return view_.x(static_cast<double>(place.position.x));
    }
    [[nodiscard]] double y(const Place& place) const {
        return view_.y(static_cast<double>(place.position.z));
    }

    std::string grid() const {
        const Box& f = frame_;
        std::string out = "<rect x=\"" + svgNumber(f.x) + "\" y=\"" + svgNumber(f.y) +
                          "\" width=\"" + svgNumber(f.width) + "\" height=\"" +
                          svgNumber(f.height) + "\" fill=\"#ffffff\" stroke=\"#cbd5e1\"/>\n";
        const double step = niceStep(f.width / view_.scale(), 10);
        const auto line = [](double x1, double y1, double x2, double y2, bool zero) {
            return "<line x1=\"" + svgNumber(x1) + "\" y1=\"" + svgNumber(y1) + "\" x2=\"" +
                   svgNumber(x2) + "\" y2=\"" + svgNumber(y2) + "\" stroke=\"" +
                   (zero ? "#b6c2d1" : "#e9eef4") + "\"/>\n";
        };
        const double right = f.x + f.width;
        const double bottom = f.y + f.height;
        for (double k = std::ceil(view_.sceneX(f.x) / step); view_.x(k * step) <= right; ++k) {
            const double px = view_.x(k * step);
            out += line(px, f.y, px, bottom, k == 0.0);
            out += svgTextAt(
                px, bottom + 16, 11, kSvgFaint, svgNumber(k * step), "text-anchor=\"middle\"");
        }
        for (double k = std::ceil(view_.sceneZ(f.y) / step); view_.y(k * step) <= bottom; ++k) {
            const double py = view_.y(k * step);
            out += line(f.x, py, right, py, k == 0.0);
            out += svgTextAt(
                f.x - 7, py + 4, 11, kSvgFaint, svgNumber(k * step), "text-anchor=\"end\"");
        }
        out += svgTextAt(
            right, bottom + 32, 12, kSvgFaint, "x, to the right →", "text-anchor=\"end\"");
        out += "<g transform=\"translate(" + svgNumber(f.x - 38) + " " + svgNumber(f.y) +
               ") rotate(-90)\">" +
               svgTextAt(0, 0, 12, kSvgFaint, "z, negative ahead →", "text-anchor=\"end\"") +
               "</g>\n";
        return out;
    }

    std::string hulls(const Track& track, const std::string& colour) const {
        if (!track.spatial) {
            return {};
        }
        const Place& place = track.places.front();
        const Orvel::Reach heard = reachOf(track.hull);
        std::string out = circle(
            static_cast<double>(heard.softest) * view_.scale(),
            "fill=\"none\" stroke=\"" + colour +
                "\" stroke-opacity=\"0.4\" stroke-dasharray=\"5 5\"");
        if (track.hull.minFront + track.hull.minBack > 0.0F) {
            out += circle(
                static_cast<double>(heard.full) * view_.scale(),
                "fill=\"" + colour + "\" fill-opacity=\"0.12\" stroke=\"" + colour +
                    "\" stroke-opacity=\"0.6\"");
        }
        return at(x(place), y(place), out);
    }

    std::string path(const Track& track, const std::string& colour) {
        std::string d;
        double lastX = 0.0;
        double lastY = 0.0;
        for (const Place& place : track.places) {
            if (d.empty() || std::hypot(x(place) - lastX, y(place) - lastY) >= 0.5) {
                lastX = x(place);
                lastY = y(place);
                labels_.avoid({lastX - 2, lastY - 2, 4, 4});
                d += (d.empty() ? "M" : "L") + svgNumber(lastX) + " " + svgNumber(lastY);
            }
        }
        return d.find('L') == std::string::npos
                   ? ""
                   : "<path d=\"" + d + "\" fill=\"none\" stroke=\"" + colour +
                         "\" stroke-width=\"2\" stroke-opacity=\"0.75\" "
                         "stroke-linejoin=\"round\"/>\n";
    }

    std::string sign(const Track& track, const std::string& colour) const {
        const Place& place = track.places.front();
        return at(
            x(place), y(place),
            "<title>" + svgText(title(track)) + "</title>\n" + emitterSign(colour));
    }

    static std::string title(const Track& track) {
        return std::to_string(track.id) + (track.sound.empty() ? "" : ": " + track.sound) +
               (track.spatial ? "" : " (at the listener)");
    }

    /// How many emitters appear in each place, over how many pass through it.
    std::string density() const {
        Density starts(frame_);
        Density passed(frame_);
        for (const Track& track : paths_.emitters) {
            double lastX = x(track.places.front());
            double lastY = y(track.places.front());
            std::size_t cell = starts.cellAt(lastX, lastY);
            starts.count(cell);
            for (const Place& place : track.places) {
                const double toX = x(place);
                const double toY = y(place);
                const double length = std::hypot(toX - lastX, toY - lastY);
                // At most the map's size, for a place far outside of it.
                const auto steps =
                    static_cast<int>(std::min(1000.0, std::ceil(length / Density::kCell)));
                for (int step = 1; step <= steps; ++step) {
                    const double part = static_cast<double>(step) / steps;
                    const std::size_t next =
                        passed.cellAt(lastX + (toX - lastX) * part, lastY + (toY - lastY) * part);
                    if (next != cell) {
                        passed.count(next);
                        cell = next;
                    }
                }
                lastX = toX;
                lastY = toY;
            }
        }
        return passed.draw(kColours[1]) + starts.draw(kColours[0]);
    }

    void avoidSigns(std::size_t signs) {
        const auto avoid = [this](const Track& track, double radius) {
            const Place& place = track.places.front();
            labels_.avoid({x(place) - radius, y(place) - radius, 2 * radius, 2 * radius});
        };
        avoid(paths_.listener, 15.0);
        for (std::size_t i = 0; i < signs; ++i) {
            avoid(paths_.emitters[i], 8.0);
        }
    }

    std::string name(const Track& track, const std::string& colour) {
        const Place& place = track.places.front();
        const auto spot = labels_.place(x(place), y(place), title(track), kLabelSize, 12.0);
        return label(spot, kLabelSize, colour, title(track));
    }

    /// The positions of a moving track at round times.
    std::string marks(const Track& track, const std::string& colour) {
        std::string out;
        double lastX = x(track.places.front());
        double lastY = y(track.places.front());
        // Steps that suit the time from its first move to its last.
        const double first = track.places.front().time;
        const double moves =
            track.places.size() < 2 ? 0.0 : track.places.back().time - track.places[1].time;
        const double step = niceStep(moves > 0.0 ? moves : paths_.end, 6);
        for (double k = std::floor(first / step) + 1.0; k * step <= track.places.back().time + 1e-9;
             ++k) {
            const Orvel::Vec3f position = positionAt(track, k * step);
            const double px = view_.x(static_cast<double>(position.x));
            const double py = view_.y(static_cast<double>(position.z));
            if (std::hypot(px - lastX, py - lastY) < 6.0) {
                continue; // it does not move
            }
            lastX = px;
            lastY = py;
            out += "<circle cx=\"" + svgNumber(px) + "\" cy=\"" + svgNumber(py) +
                   "\" r=\"3\" fill=\"#ffffff\" stroke=\"" + colour + "\" stroke-width=\"1.5\"/>\n";
            labels_.avoid({px - 3, py - 3, 6, 6});
            const std::string when = svgNumber(k * step) + " s";
            out += label(labels_.place(px, py, when, kMarkSize, 7.0), kMarkSize, colour, when);
        }
        return out;
    }

    std::string scaleBar() {
        const double units = niceStep(frame_.width / view_.scale(), 8);
        const double length = units * view_.scale();
        const double bx = frame_.x + 14;
        const double by = frame_.y + frame_.height - 14;
        labels_.avoid({bx - 4, by - 22, length + 8, 30});
        return "<path d=\"M" + svgNumber(bx) + " " + svgNumber(by - 5) + "V" + svgNumber(by) + "H" +
               svgNumber(bx + length) + "V" + svgNumber(by - 5) + "\" fill=\"none\" stroke=\"" +
               kInk + "\" stroke-width=\"1.5\"/>\n" +
               svgTextAt(
                   bx + length / 2, by - 8, 11, kInk,
                   svgNumber(units) + (units == 1.0 ? " unit" : " units"),
                   "text-anchor=\"middle\"");
    }

    const ScenePaths& paths_;
    Box frame_;
    View view_;
    Labels labels_;
};

} // namespace

std::string drawMap(const ScenePaths& paths, const Box& frame) {
    return Map(paths, frame).draw();
}

std::string drawLegend(const ScenePaths& paths, double x, double y) {
    const std::string colour = kColours[0];
    using Row = std::pair<std::string, std::string>;
    const auto shades = [](const char* of) {
        std::string out;
        double left = -15.0;
        for (const double opacity : Density::kOpacities) {
            out += "<rect x=\"" + svgNumber(left) +
                   "\" y=\"-6\" width=\"6\" height=\"12\" fill=\"" + of + "\" fill-opacity=\"" +
                   svgNumber(opacity) + "\"/>\n";
            left += 6.0;
        }
        return out;
    };
    const Row listener{
        "<g transform=\"scale(0.8)\">" + listenerSign() + "</g>",
        "listener; the nose points ahead"};
    const std::vector<Row> dense{
        listener,
        {shades(kColours[0]), std::to_string(paths.emitters.size()) + " emitters: few to many"},
        {shades(kColours[1]), "paths: few to many"}};
    const std::vector<Row> each{
        listener,
        {emitterSign(colour), "emitter: id and sound"},
        {"<circle r=\"9\" fill=\"" + colour + "\" fill-opacity=\"0.12\" stroke=\"" + colour +
             "\" stroke-opacity=\"0.6\"/>",
         "inner hull: full level"},
        {"<circle r=\"9\" fill=\"none\" stroke=\"" + colour +
             "\" stroke-opacity=\"0.5\" stroke-dasharray=\"4 3\"/>",
         "outer hull: no softer beyond"},
        {"<path d=\"M-13 5Q0 -8 13 -4\" fill=\"none\" stroke=\"" + colour +
             "\" stroke-width=\"2\"/><circle cy=\"-2.5\" r=\"3\" fill=\"#ffffff\" stroke=\"" +
             colour + "\" stroke-width=\"1.5\"/>",
         "path, with marks of time"},
    };
    std::string out;
    for (const auto& [sign, meaning] : isDense(paths) ? dense : each) {
        out += at(x + 14, y, sign) + svgTextAt(x + 36, y + 4, 12, kInk, meaning);
        y += 30;
    }
    return out;
}

} // namespace Show

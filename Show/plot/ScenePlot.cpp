#include <Show/plot/ScenePlot.h>

#include <Show/player/ScenePaths.h>
#include <Show/plot/LevelPlot.h>
#include <Show/plot/MapPlot.h>
#include <Show/plot/Svg.h>

namespace Show {

namespace {

constexpr double kPlotWidth = 900.0;
constexpr Box kMap{64.0, 56.0, 580.0, 520.0};
constexpr Box kLevels{64.0, 642.0, 812.0, 170.0};
constexpr double kMargin = 44.0; // below the axis numbers and titles

std::string heading(const std::string& path, const ScenePaths& paths) {
    const std::string name = path.substr(path.find_last_of('/') + 1);
    return "<text x=\"" + svgNumber(kMap.x) +
           "\" y=\"34\" font-size=\"18\" font-weight=\"600\" fill=\"#1f2937\">" + svgText(name) +
           "<tspan font-size=\"13\" font-weight=\"400\" fill=\"#6b7280\" dx=\"10\">from above, " +
           svgNumber(paths.end) + " s</tspan></text>\n";
}

} // namespace

std::string drawScene(const LoadedScene& loaded, const LevelMeter* levels) {
    const ScenePaths paths = followScene(loaded);
    const Box& last = levels == nullptr ? kMap : kLevels;
    const double height = last.y + last.height + kMargin;
    std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                      "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " +
                      svgNumber(kPlotWidth) + " " + svgNumber(height) + "\" width=\"" +
                      svgNumber(kPlotWidth) + "\" height=\"" + svgNumber(height) +
                      "\" font-family=\"system-ui, 'DejaVu Sans', Helvetica, Arial, sans-serif\">\n"
                      // Its own background, for pages of any colour.
                      "<rect width=\"100%\" height=\"100%\" fill=\"#f8fafc\"/>\n";
    out += heading(loaded.scene.path, paths);
    out += drawMap(paths, kMap);
    out += drawLegend(paths, kMap.x + kMap.width + 20.0, kMap.y + 20.0);
    if (levels != nullptr) {
        out += drawLevels(*levels, kLevels);
    }
    return out + "</svg>\n";
}

} // namespace Show

#include "commands/LevelReport.h"

#include <nlohmann/json.hpp>

#include <array>
#include <cstdio>
#include <iomanip>
#include <string>

namespace OrvelTool {

namespace {

void writeRow(std::ostream& out, const std::string& name, const Show::LevelMeter::Levels& levels) {
    out << std::setw(8) << name;
    for (const Show::Level& level : levels) {
        std::array<char, 64> text{};
        std::snprintf(
            text.data(), text.size(), "  %10.1f %9.1f", Show::toDecibels(level.peak),
            Show::toDecibels(level.rms));
        out << text.data();
    }
    out << '\n';
}

/// Rounds to hundredths of a dB; the table shows tenths. JSON has no infinity.
nlohmann::ordered_json number(double level) {
    if (level <= 0.0) {
        return nullptr;
    }
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.2f", Show::toDecibels(level));
    return std::stod(text.data());
}

nlohmann::ordered_json channels(const Show::LevelMeter::Levels& levels) {
    nlohmann::ordered_json json;
    for (std::size_t channel = 0; channel < levels.size(); ++channel) {
        json[Show::channelName(levels.size(), channel)] = {
            {"peak", number(levels[channel].peak)}, {"rms", number(levels[channel].rms)}};
    }
    return json;
}

} // namespace

void writeTable(std::ostream& out, const Show::LevelMeter& meter, std::size_t maxRows) {
    constexpr std::array<std::size_t, 13> kRows{1,   2,   5,   10,  15,   30,  60,
                                                120, 300, 600, 900, 1800, 3600};
    const std::size_t seconds = meter.windows().size();
    const auto* const each = std::find_if(kRows.begin(), kRows.end() - 1, [&](std::size_t row) {
        return (seconds + row - 1) / row <= maxRows;
    });
    // "back right peak" is wider than its column, so that it stands without the "peak".
    out << "  second";
    for (std::size_t channel = 0; channel < meter.channels(); ++channel) {
        std::string name = Show::channelName(meter.channels(), channel);
        if (name.size() <= 5) {
            name += " peak";
        }
        out << std::setw(12) << name << std::setw(10) << "RMS";
    }
    out << "   (dBFS";
    if (*each > 1) {
        out << "; a row is " << *each << " s";
    }
    out << ")\n";
    std::size_t second = 0;
    for (const Show::LevelMeter::Levels& levels : meter.windows(*each)) {
        writeRow(out, std::to_string(second), levels);
        second += *each;
    }
    writeRow(out, "all", meter.all());
}

nlohmann::ordered_json toJson(const Show::LevelMeter& meter) {
    nlohmann::ordered_json json;
    json["levels"] = nlohmann::ordered_json::array();
    int second = 0;
    for (const Show::LevelMeter::Levels& levels : meter.windows()) {
        nlohmann::ordered_json row;
        row["second"] = second++;
        row.update(channels(levels));
        json["levels"].push_back(std::move(row));
    }
    json["all"] = channels(meter.all());
    return json;
}

} // namespace OrvelTool

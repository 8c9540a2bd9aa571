#include "commands/PlayStatus.h"

#include "process/Output.h"

#include <Orvel/Backend.h>
#include <Orvel/BackendState.h>
#include <Orvel/BackendType.h>
#include <Orvel/Emitter.h>
#include <Orvel/Source.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <tuple>
#include <vector>

namespace OrvelTool {

namespace {

constexpr std::size_t kMaxShown = 20;

using State = Orvel::BackendState;

std::string summary(const State& state) {
    std::string text =
        std::to_string(state.voicesUsed) + " of " + std::to_string(state.voicesAllowed) +
        " voices, " + std::to_string(state.waitingEmitters.size()) + " waiting, " +
        std::to_string(state.refusedEmitters.size()) + " refused, " +
        std::to_string(state.streams) + " streams, " + std::to_string(state.gaps) + " gaps";
    if (state.deviceState != State::Device::None) {
        text += "; device " + std::string(nameOf(state.deviceState));
        text += state.device.empty() ? "" : " (" + state.device + ")";
    }
    if (state.latency) {
        text += ", latency " + std::to_string(std::lround(*state.latency * 1000.0)) + " ms";
    }
    return text;
}

} // namespace

void writeStatus(Orvel::World& world, double seconds) {
    std::ostream& out = standardOutput();
    char text[96];
    for (Orvel::Backend* backend : world.backends()) {
        State state = backend->state();
        if (state.voicesAllowed == 0) {
            continue;
        }
        std::snprintf(text, sizeof text, "%.1f s, ", seconds);
        out << text << (backend->type() == nullptr ? "" : backend->type()->name()) << ": "
            << summary(state) << '\n';
        std::vector<State::HeardEmitter>& rows = state.emitters;
        const std::size_t shown = std::min(rows.size(), kMaxShown);
        std::partial_sort(
            rows.begin(), rows.begin() + static_cast<std::ptrdiff_t>(shown), rows.end(),
            [](const State::HeardEmitter& a, const State::HeardEmitter& b) {
                return std::tuple(-a.level, a.id) < std::tuple(-b.level, b.id);
            });
        for (std::size_t i = 0; i < shown; ++i) {
            const Orvel::Emitter* emitter = world.getEmitter(rows[i].id);
            const Orvel::Source* source = emitter == nullptr ? nullptr : emitter->source();
            std::snprintf(
                text, sizeof text, "  emitter %5d  source %5s  %-8s", rows[i].id,
                source == nullptr ? "none" : std::to_string(source->id()).c_str(),
                nameOf(rows[i].hearing));
            out << text;
            if (rows[i].level > 0.0F) {
                const double level = 20.0 * std::log10(static_cast<double>(rows[i].level));
                std::snprintf(text, sizeof text, " %7.1f dB", level);
                out << text;
            }
            out << '\n';
        }
        if (rows.size() > shown) {
            out << "  and " << rows.size() - shown << " softer ones; --monitor shows all\n";
        }
    }
    out.flush();
}

void reportGaps(const Orvel::World& world) {
    std::uint64_t gaps = 0;
    for (const Orvel::Backend* backend : world.backends()) {
        gaps += backend->state().gaps;
    }
    if (gaps > 0) {
        report(
            "sounds that are read while they play had no data in time, " + std::to_string(gaps) +
            (gaps == 1 ? " time" : " times") + ": the disk or this machine is too slow");
    }
}

} // namespace OrvelTool

#include <Show/monitor/Hearings.h>

#include <Orvel/Backend.h>

#include <array>
#include <cmath>
#include <cstddef>

namespace Show {

namespace {

using Hearing = Orvel::BackendState::Hearing;

/// The better it is off, the higher.
int rank(Hearing hearing) {
    constexpr std::array kRanks{1, 5, 4, 3, 0, 2}; // in the order of the values
    return kRanks.at(static_cast<std::size_t>(hearing));
}

} // namespace

Hearings hearingsOf(const Orvel::World& world) {
    Hearings hearings;
    const auto add = [&hearings](const Orvel::BackendState::HeardEmitter& heard) {
        const auto [found, isNew] = hearings.try_emplace(heard.id, heard);
        if (!isNew && rank(heard.hearing) > rank(found->second.hearing)) {
            found->second = heard;
        }
    };
    for (const Orvel::Backend* backend : world.backends()) {
        const Orvel::BackendState state = backend->state();
        for (const auto& heard : state.emitters) {
            add(heard);
        }
        for (const int id : state.refusedEmitters) {
            add({id, Hearing::Refused, 0.0F});
        }
    }
    return hearings;
}

double decibelsOf(float level) {
    return std::round(200.0 * std::log10(static_cast<double>(level))) / 10.0 + 0.0; // never -0
}

} // namespace Show

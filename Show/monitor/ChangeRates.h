#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Show {

/// The kinds of changes, in the order of `kChangeNames`.
enum class ChangeKind {
    Scene,
    Listener,
    Source,
    SourceState,
    Emitter,
    Transform,
    Hull,
    Param,
    Connection,
    EmitterState
};

/// Their names in JSON and in metrics.
constexpr std::array kChangeNames{"scene",      "listener", "sources", "sourceStates", "emitters",
                                  "transforms", "hulls",    "params",  "connections",  "states"};

/// Counts changes, in total and per second for the last seconds. Confined to one thread at a time.
class ChangeRates {
public:
    static constexpr std::size_t kSeconds = 120;

    void count(ChangeKind change) {
        ++totals_[static_cast<std::size_t>(change)];
        ++ring_[static_cast<std::size_t>(second_) % kSeconds][static_cast<std::size_t>(change)];
    }
    /// Sets the current second, counted from the start, for all later changes; must not decrease.
    void advanceTo(std::uint64_t second);

    [[nodiscard]] std::uint64_t total(ChangeKind change) const {
        return totals_[static_cast<std::size_t>(change)];
    }
    /// The changes of a kind in each completed second, oldest first, at most kSeconds - 1.
    [[nodiscard]] std::vector<std::uint32_t> perSecond(ChangeKind change) const;

private:
    template <class Number>
    using Counts = std::array<Number, kChangeNames.size()>;

    std::uint64_t second_ = 0;
    Counts<std::uint64_t> totals_{};
    std::array<Counts<std::uint32_t>, kSeconds> ring_{}; // by second, the current one included
};

} // namespace Show

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Show {

/// What can change in a scene, in the order of `kChangeNames`.
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

/// As they are called in JSON and in metrics.
constexpr std::array kChangeNames{"scene",      "listener", "sources", "sourceStates", "emitters",
                                  "transforms", "hulls",    "params",  "connections",  "states"};

/// Counts changes, in all and in each of the last seconds. Confined to one thread at a time.
class ChangeRates {
public:
    static constexpr std::size_t kSeconds = 120;

    void count(ChangeKind change) {
        ++totals_[static_cast<std::size_t>(change)];
        ++ring_[static_cast<std::size_t>(second_) % kSeconds][static_cast<std::size_t>(change)];
    }
    /// What is counted from now on belongs to this second, counted from the start; seconds must not
    /// go down.
    void advanceTo(std::uint64_t second);

    [[nodiscard]] std::uint64_t total(ChangeKind change) const {
        return totals_[static_cast<std::size_t>(change)];
    }
    /// The changes of a kind in each second that is over, the oldest first, at most kSeconds - 1.
    [[nodiscard]] std::vector<std::uint32_t> perSecond(ChangeKind change) const;

private:
    template <class Number>
    using Counts = std::array<Number, kChangeNames.size()>;

    std::uint64_t second_ = 0;
    Counts<std::uint64_t> totals_{};
    std::array<Counts<std::uint32_t>, kSeconds> ring_{}; // by second, the current one included
};

} // namespace Show

#include <Orvel/detail/net/SceneSweep.h>

#include <Orvel/Emitter.h>
#include <Orvel/Source.h>
#include <Orvel/World.h>
#include <Orvel/detail/net/PartHash.h>
#include <Orvel/detail/net/SentState.h>

#include <algorithm>
#include <cstdint>
#include <limits>

namespace Orvel::detail {

namespace {

constexpr int kMaxSentId = std::numeric_limits<short>::max();
constexpr std::chrono::seconds kPause{1}; // after which a sweep is not continued

} // namespace

void SceneSweep::begin() {
    number_ = 0;
    stage_ = Stage::Scene;
    next_ = 1;
}

template <class Parts, class Add>
bool SceneSweep::addParts(const Parts& parts, std::size_t most, CheckEvent& event, const Add& add) {
    auto entry = parts.lower_bound(next_);
    for (; entry != parts.end() && entry->first <= kMaxSentId && event.size() < most; ++entry) {
        add(static_cast<short>(entry->first), *entry->second);
        next_ = entry->first + 1;
    }
    return entry == parts.end() || entry->first > kMaxSentId;
}

bool SceneSweep::next(
    CheckEvent& event, World& world, Clock::time_point now, std::optional<bool> enabled) {
    using Kind = CheckEvent::Kind;
    if (now - last_ > kPause) {
        begin();
        last_ = now - kInterval;
    }
    const std::chrono::duration<double> elapsed = now - last_;
    const std::size_t all = world.sources().size() + world.emitters().size() + 2;
    const auto due = static_cast<std::size_t>(static_cast<double>(all) * (elapsed / kTime)) + 1;
    if (elapsed < kInterval && due < CheckEvent::kMaxParts) {
        return false;
    }
    const std::size_t most = std::min(due, CheckEvent::kMaxParts);
    last_ = now;
    event.clear();
    event.number = number_++;
    event.isLast = false;
    event.first = 1;
    event.last = 0;
    if (stage_ == Stage::Scene) {
        if (enabled) {
            event.add({Kind::Switch, 0, 0, hashOf(*enabled)});
        }
        Rounding rounding;
        const std::uint64_t hash = hashOfListener(world, rounding);
        event.add({Kind::Listener, rounding.chosen(), 0, hash});
        stage_ = Stage::Sources;
    }
    if (stage_ == Stage::Sources) {
        const auto add = [&event](short id, const Source& source) {
            event.add({Kind::Source, 0, id, hashOf(source, sentState(source), source.pitch())});
        };
        if (addParts(world.sources(), most, event, add)) {
            stage_ = Stage::Emitters;
            next_ = 1;
        }
    }
    if (stage_ == Stage::Emitters) {
        event.first = static_cast<short>(next_);
        const auto add = [&event](short id, const Emitter& emitter) {
            Rounding rounding;
            const std::uint64_t hash =
                hashOf(emitter, sentState(emitter), emitter.gain(), rounding);
            event.add({Kind::Emitter, rounding.chosen(), id, hash});
        };
        event.isLast = addParts(world.emitters(), most, event, add);
        event.last = static_cast<short>(event.isLast ? kMaxSentId : next_ - 1);
    }
    if (event.isLast) {
        begin();
    }
    return true;
}

} // namespace Orvel::detail

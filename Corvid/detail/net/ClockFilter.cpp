#include <Corvid/detail/net/ClockFilter.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <vector>

namespace Corvid {

std::int64_t PeerClock::peerTime(std::int64_t own) const noexcept {
    return own + offset + std::llround(drift * static_cast<double>(own - at));
}

std::int64_t PeerClock::ownTime(std::int64_t peer) const noexcept {
    const std::int64_t since = peer - offset - at; // of the peer's clock
    return at + since - std::llround(static_cast<double>(since) * drift / (1.0 + drift));
}

double PeerClock::errorAt(std::int64_t own) const noexcept {
    return error + driftError * std::abs(static_cast<double>(own - at)) * 1e-9;
}

namespace detail {

namespace {

/// A limit of the offset. Nanoseconds; `x` is from the time of the estimate on.
struct Limit {
    double x;
    double y;
};

/// Steps of the clocks' readings, and what a crystal wanders in a window.
constexpr double kSlack = 2000.0;
/// Clocks that count from the start of a machine do not get here, in 36 years, and differences of
/// such times cannot overflow.
constexpr std::int64_t kMaxTime = std::int64_t{1} << 60U;
/// Until the samples span this long, the drift is unknown and 0 is used.
constexpr std::int64_t kTimeToDrift = 2'000'000'000;
/// With many samples a new one changes little, and not each is worth a new estimate.
constexpr std::size_t kManySamples = 64;
constexpr unsigned kFitEvery = 4;
constexpr int kSteps = 48; // halvings of an interval of drifts

/// Appends a point to the lower hull of those before.
void extendHull(std::vector<Limit>& hull, Limit point) {
    const auto turns = [&] {
        const Limit& a = hull[hull.size() - 2];
        const Limit& b = hull.back();
        return (b.x - a.x) * (point.y - a.y) - (b.y - a.y) * (point.x - a.x) > 0.0;
    };
    while (hull.size() >= 2 && !turns()) {
        hull.pop_back();
    }
    if (hull.empty() || hull.back().x != point.x) {
        hull.push_back(point);
    } else {
        hull.back().y = std::min(hull.back().y, point.y);
    }
}

/// The lines between the limits, by their drift.
struct Corridor {
    std::vector<Limit> above; // lower hull of the upper limits
    std::vector<Limit> below; // of the lower limits, upside down

    static double lowest(const std::vector<Limit>& hull, double drift) {
        double least = std::numeric_limits<double>::max();
        for (const Limit& limit : hull) {
            least = std::min(least, limit.y - drift * limit.x);
        }
        return least;
    }
    /// Offsets at x = 0 of the highest and the lowest line with this drift.
    [[nodiscard]] double top(double drift) const { return lowest(above, drift); }
    [[nodiscard]] double bottom(double drift) const { return -lowest(below, -drift); }
    [[nodiscard]] double width(double drift) const { return top(drift) - bottom(drift); }

    /// The drift at which it is widest.
    [[nodiscard]] double widest() const {
        double low = -ClockFilter::kMaxDrift;
        double high = ClockFilter::kMaxDrift;
        for (int i = 0; i < kSteps; ++i) { // the width is a concave function
            const double third = (high - low) / 3.0;
            (width(low + third) < width(high - third) ? low : high) +=
                width(low + third) < width(high - third) ? third : -third;
        }
        return (low + high) / 2.0;
    }
    /// The last drift from a fitting one towards `limit` that fits.
    [[nodiscard]] double last(double fitting, double limit) const {
        if (width(limit) >= 0.0) {
            return limit;
        }
        for (int i = 0; i < kSteps; ++i) {
            const double middle = (fitting + limit) / 2.0;
            (width(middle) >= 0.0 ? fitting : limit) = middle;
        }
        return fitting;
    }
};

} // namespace

bool ClockFilter::add(const ClockSample& sample) {
    for (const std::int64_t time :
         {sample.sent, sample.peerReceived, sample.peerSent, sample.received}) {
        if (time < -kMaxTime || time > kMaxTime) {
            return false;
        }
    }
    if (sample.received < sample.sent || sample.peerSent < sample.peerReceived) {
        return false;
    }
    samples_.push_back(sample);
    while (samples_.size() > kMaxSamples ||
           samples_.front().sent < samples_.back().received - kWindow) {
        if (samples_.size() == 1) {
            break;
        }
        samples_.pop_front();
    }
    ++estimate_.samples;
    if (samples_.size() > kManySamples && ++unfitted_ < kFitEvery) {
        return true;
    }
    unfitted_ = 0;
    // If no line fits, one of the clocks was set or stood still: only the newer samples count.
    while (!fit()) {
        samples_.erase(
            samples_.begin(),
            samples_.begin() + static_cast<long>(std::max<std::size_t>(samples_.size() / 4, 1)));
        if (samples_.empty()) {
            return false;
        }
    }
    return true;
}

bool ClockFilter::fit() {
    const std::int64_t at =
        std::ranges::max_element(samples_, {}, &ClockSample::received)->received;
    const std::int64_t base = samples_.back().peerSent - at;
    std::vector<Limit> questions;
    std::vector<Limit> answers;
    Corridor corridor;
    std::int64_t roundTrip = std::numeric_limits<std::int64_t>::max();
    double roundTrips = 0.0; // their sum
    std::int64_t begin = at;
    for (const ClockSample& sample : samples_) {
        questions.push_back(
            {static_cast<double>(sample.sent - at),
             static_cast<double>(sample.peerReceived - sample.sent - base) + kSlack});
        answers.push_back(
            {static_cast<double>(sample.received - at),
             -static_cast<double>(sample.peerSent - sample.received - base) + kSlack});
        const std::int64_t onTheWay =
            sample.received - sample.sent - (sample.peerSent - sample.peerReceived);
        roundTrip = std::min(roundTrip, onTheWay);
        roundTrips += static_cast<double>(onTheWay);
        begin = std::min(begin, sample.sent);
    }
    const auto hullOf = [](std::vector<Limit>& limits) { // messages may overtake each other
        std::ranges::sort(limits, {}, &Limit::x);
        std::vector<Limit> hull;
        for (const Limit& limit : limits) {
            extendHull(hull, limit);
        }
        return hull;
    };
    corridor.above = hullOf(questions);
    corridor.below = hullOf(answers);
    double drift = corridor.widest();
    if (corridor.width(drift) < 0.0) {
        return false;
    }
    const double slowest = corridor.last(drift, -kMaxDrift);
    const double fastest = corridor.last(drift, kMaxDrift);
    if (at - begin < kTimeToDrift) {
        drift = std::clamp(0.0, slowest, fastest);
    }
    const double offset = (corridor.top(drift) + corridor.bottom(drift)) / 2.0;
    // No sample is later than x = 0, so the extremes are those of the extreme drifts.
    const double most = corridor.top(fastest);
    const double least = corridor.bottom(slowest);
    estimate_.known = true;
    estimate_.at = at;
    estimate_.offset = base + std::llround(offset);
    estimate_.error = std::max(most - offset, offset - least) * 1e-9;
    estimate_.drift = drift;
    estimate_.driftError = std::max(fastest - drift, drift - slowest);
    estimate_.roundTrip = static_cast<double>(std::max<std::int64_t>(roundTrip, 0)) * 1e-9;
    estimate_.jitter =
        (roundTrips / static_cast<double>(samples_.size()) - static_cast<double>(roundTrip)) * 1e-9;
    return true;
}

void ClockFilter::clear() {
    samples_.clear();
    estimate_ = {};
}

} // namespace detail

} // namespace Corvid

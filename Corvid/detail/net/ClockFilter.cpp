#include <Corvid/detail/net/ClockFilter.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>
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

/// A limit of the offset in nanoseconds, from the time of the estimate on.
struct Limit {
    double x;
    double y;
};

/// Steps of the clocks' readings, and what a crystal wanders in a window.
constexpr double kSlack = 2000.0;
/// Clocks that count from the start of a machine do not get here, in 36 years, and differences of
/// such times cannot overflow.
constexpr std::int64_t kMaxTime = std::int64_t{1} << 60U;
/// The standard deviation of the drift between two machines, before anything is measured.
constexpr double kUsualDrift = 50e-6;
/// With many samples a new one changes little, and not each is worth a new estimate.
constexpr std::uint64_t kManySamples = 64;
constexpr unsigned kFitEvery = 4;
constexpr int kSteps = 48;           // divisions of an interval of drifts
constexpr int kDrifts = 64;          // that are averaged
constexpr double kNegligible = 12.0; // minus the logarithm of a weight

double slope(const Limit& from, const Limit& to) {
    return (to.y - from.y) / (to.x - from.x);
}

/// The lower hull of points.
std::vector<Limit> hullOf(std::vector<Limit>& points) {
    std::ranges::sort(points, {}, &Limit::x); // messages may overtake each other
    std::vector<Limit> hull;
    for (const Limit& point : points) {
        if (!hull.empty() && hull.back().x == point.x) {
            if (hull.back().y <= point.y) {
                continue;
            }
            hull.pop_back();
        }
        while (hull.size() >= 2 &&
               slope(hull[hull.size() - 2], hull.back()) >= slope(hull.back(), point)) {
            hull.pop_back();
        }
        hull.push_back(point);
    }
    return hull;
}

/// Leaves out the points that limit no line with a possible drift.
void prune(std::vector<std::pair<std::int64_t, std::int64_t>>& limits, int sign) {
    const auto [x0, y0] = limits.front();
    std::vector<Limit> points;
    points.reserve(limits.size());
    for (const auto& [x, y] : limits) {
        points.push_back({static_cast<double>(x - x0), sign * static_cast<double>(y - y0)});
    }
    const std::vector<Limit> hull = hullOf(points);
    limits.clear();
    for (std::size_t i = 0; i < hull.size(); ++i) {
        if ((i == 0 || slope(hull[i - 1], hull[i]) <= ClockFilter::kMaxDrift) &&
            (i + 1 == hull.size() || slope(hull[i], hull[i + 1]) >= -ClockFilter::kMaxDrift)) {
            limits.emplace_back(x0 + std::llround(hull[i].x), y0 + sign * std::llround(hull[i].y));
        }
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
};

/// Where a concave function is highest.
template <class Function>
double highest(double low, double high, const Function& function) {
    for (int i = 0; i < kSteps; ++i) {
        const double third = (high - low) / 3.0;
        if (function(low + third) < function(high - third)) {
            low += third;
        } else {
            high -= third;
        }
    }
    return (low + high) / 2.0;
}

/// The last value from `begin` towards `limit` at which a concave function is not below 0, as it is
/// not at `begin`.
template <class Function>
double last(double begin, double limit, const Function& function) {
    if (function(limit) >= 0.0) {
        return limit;
    }
    for (int i = 0; i < kSteps; ++i) {
        const double middle = (begin + limit) / 2.0;
        (function(middle) >= 0.0 ? begin : limit) = middle;
    }
    return begin;
}

} // namespace

void ClockFilter::append(const ClockSample& sample) {
    if (pieces_.empty() || sample.sent >= pieces_.back().begin + kPiece) {
        if (!pieces_.empty()) {
            prune(pieces_.back().above, 1);
            prune(pieces_.back().below, -1);
        }
        pieces_.emplace_back().begin = sample.sent;
    }
    Piece& piece = pieces_.back();
    piece.above.emplace_back(sample.sent, sample.peerReceived - sample.sent);
    piece.below.emplace_back(sample.received, sample.peerSent - sample.received);
    const std::int64_t roundTrip =
        sample.received - sample.sent - (sample.peerSent - sample.peerReceived);
    piece.roundTrip = std::min(piece.roundTrip, roundTrip);
    piece.roundTrips += static_cast<double>(roundTrip);
    piece.latest = std::max(piece.latest, sample.received);
    ++piece.samples;
}

bool ClockFilter::add(const ClockSample& sample) {
    for (const std::int64_t time :
         {sample.sent, sample.peerReceived, sample.peerSent, sample.received}) {
        if (time < -kMaxTime || time > kMaxTime) {
            return false;
        }
    }
    const std::int64_t elapsed = sample.received - sample.sent;
    const std::int64_t answering = sample.peerSent - sample.peerReceived;
    if (elapsed < 0 || answering < 0 ||
        static_cast<double>(answering - elapsed) >
            2.0 * kSlack + kMaxDrift * static_cast<double>(elapsed)) {
        return false;
    }
    append(sample);
    while (pieces_.front().begin < sample.received - kWindow && pieces_.size() > 1) {
        pieces_.pop_front();
    }
    if (++estimate_.samples > kManySamples && ++unfitted_ < kFitEvery) {
        return true;
    }
    unfitted_ = 0;
    // If no line fits, one of the clocks was set or stood still: only the newer samples count.
    while (!fit()) {
        if (pieces_.size() == 1) {
            if (pieces_.front().samples == 1) {
                pieces_.clear();
                return false;
            }
            pieces_.clear();
            append(sample);
        } else {
            pieces_.erase(
                pieces_.begin(),
                pieces_.begin() + static_cast<long>(std::max<std::size_t>(pieces_.size() / 4, 1)));
        }
    }
    return true;
}

bool ClockFilter::fit() {
    const std::int64_t at = std::ranges::max_element(pieces_, {}, &Piece::latest)->latest;
    const std::int64_t base = pieces_.back().below.back().second;
    std::vector<Limit> questions;
    std::vector<Limit> answers;
    std::int64_t roundTrip = std::numeric_limits<std::int64_t>::max();
    double roundTrips = 0.0; // their sum
    double samples = 0.0;
    for (const Piece& piece : pieces_) {
        for (const auto& [time, offset] : piece.above) {
            questions.push_back(
                {static_cast<double>(time - at), static_cast<double>(offset - base) + kSlack});
        }
        for (const auto& [time, offset] : piece.below) {
            answers.push_back(
                {static_cast<double>(time - at), -static_cast<double>(offset - base) + kSlack});
        }
        roundTrip = std::min(roundTrip, piece.roundTrip);
        roundTrips += piece.roundTrips;
        samples += static_cast<double>(piece.samples);
    }
    const Corridor corridor{hullOf(questions), hullOf(answers)};
    const auto width = [&](double drift) { return corridor.width(drift); };
    const double widest = highest(-kMaxDrift, kMaxDrift, width);
    if (width(widest) < 0.0) {
        return false;
    }
    const double slowest = last(widest, -kMaxDrift, width);
    const double fastest = last(widest, kMaxDrift, width);

    // The mean of the lines in the middle, each with its likelihood: in a corridor that is wider by
    // w, all messages have taken that much less than it was possible, and with n messages in each
    // direction that take up to t longer than the least, that has the likelihood exp(n w / t).
    const double mean = roundTrips / samples;
    const double perWidth = samples / std::max(mean - width(widest), kSlack);
    const auto weight = [&](double drift) {
        const double usual = drift / kUsualDrift;
        return perWidth * width(drift) - usual * usual / 2.0;
    };
    const double likeliest = highest(slowest, fastest, weight);
    const double least = weight(likeliest) - kNegligible;
    const auto counts = [&](double drift) { return weight(drift) - least; };
    const double first = last(likeliest, slowest, counts);
    const double step = (last(likeliest, fastest, counts) - first) / kDrifts;
    double weights = 0.0;
    double drift = 0.0;
    double offset = 0.0;
    double square = 0.0; // of the offset
    for (int i = 0; i < kDrifts; ++i) {
        const double each = first + (i + 0.5) * step;
        const double likelihood = std::exp(counts(each));
        const double middle = (corridor.top(each) + corridor.bottom(each)) / 2.0;
        weights += likelihood;
        drift += likelihood * each;
        offset += likelihood * middle;
        square += likelihood * middle * middle;
    }
    drift /= weights;
    offset /= weights;
    const double variance = std::max(square / weights - offset * offset, 0.0);

    estimate_.known = true;
    estimate_.at = at;
    estimate_.offset = base + std::llround(offset);
    // No sample is later than x = 0, so the extremes are those of the extreme drifts.
    estimate_.error =
        std::max(corridor.top(fastest) - offset, offset - corridor.bottom(slowest)) * 1e-9;
    estimate_.deviation = std::sqrt(variance + 0.5 / (perWidth * perWidth)) * 1e-9;
    estimate_.drift = drift;
    estimate_.driftError = std::max(fastest - drift, drift - slowest);
    estimate_.roundTrip = static_cast<double>(std::max<std::int64_t>(roundTrip, 0)) * 1e-9;
    estimate_.jitter = (mean - static_cast<double>(roundTrip)) * 1e-9;
    return true;
}

void ClockFilter::clear() {
    pieces_.clear();
    estimate_ = {};
}

} // namespace detail

} // namespace Corvid

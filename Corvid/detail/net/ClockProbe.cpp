#include <Corvid/detail/net/ClockProbe.h>

#include <Corvid/MultiServer.h>

#include <algorithm>

namespace Corvid::detail {

namespace {

using namespace std::chrono_literals;

/// The time between two questions: at first, then by the deviation of the estimate.
constexpr std::chrono::microseconds kAtFirst{1'000'000 / MultiServer::kMaxQuestions};
constexpr auto kOften = 5ms;
constexpr double kRough = 10e-6; // seconds
constexpr auto kRegularly = 10ms;
/// When the network delays all datagrams alike, few are enough.
constexpr auto kSeldom = 200ms;
constexpr double kSteady = 0.0002; // jitter in seconds
/// For how many measurements there are kAtFirst, and on a network with jitter for how long.
constexpr std::uint64_t kFirst = 32;
constexpr auto kFirstTime = 1500ms;
/// The shortest over the connection.
constexpr auto kByConnection = 20ms;
/// After so many without an answer for so long, datagrams are taken to be blocked, and tried now
/// and then.
constexpr std::uint32_t kMaxUnanswered = 10;
constexpr auto kPatience = 250ms;
constexpr std::uint32_t kTryAgain = 32;

} // namespace

bool ClockProbe::byDatagram() const {
    return port_ != 0 && (unanswered_ < kMaxUnanswered ||
                          Clock::now() < unansweredSince_ + kPatience || numbers_ % kTryAgain == 0);
}

std::uint32_t ClockProbe::begin(bool byDatagram) {
    const auto now = Clock::now();
    const bool steady = estimate_.jitter < kSteady;
    Clock::duration pause = estimate_.deviation > kRough ? kOften : kRegularly;
    if (estimate_.samples < kFirst || (!steady && now < begun_ + kFirstTime)) {
        pause = kAtFirst;
    } else if (steady) {
        pause = kSeldom;
    }
    next_ = now + (byDatagram ? pause : std::max<Clock::duration>(pause, kByConnection));
    if (byDatagram && unanswered_++ == 0) {
        unansweredSince_ = now;
    }
    if (++numbers_ == 0) {
        ++numbers_;
    }
    open_[numbers_ % open_.size()] = {numbers_, byDatagram, nanoseconds(now)};
    return numbers_;
}

bool ClockProbe::answer(
    std::uint32_t number, std::int64_t received, std::int64_t sent, Clock::time_point arrived,
    bool overConnection) {
    Question& question = open_[number % open_.size()];
    if (number == 0 || question.number != number || question.byDatagram == overConnection) {
        return false;
    }
    question.number = 0;
    if (!overConnection) {
        unanswered_ = 0;
    }
    if (!filter_.add({question.sent, received, sent, nanoseconds(arrived)})) {
        return false;
    }
    estimate_ = filter_.estimate();
    estimate_.byConnection = overConnection;
    return true;
}

} // namespace Corvid::detail

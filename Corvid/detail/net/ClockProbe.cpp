#include <Corvid/detail/net/ClockProbe.h>

#include <Corvid/MultiServer.h>

namespace Corvid::detail {

namespace {

using namespace std::chrono_literals;

constexpr auto kAtFirst = 1000ms / MultiServer::kMaxQuestions;
constexpr auto kOften = 20ms;
/// When the network delays all datagrams alike, fewer are enough.
constexpr auto kSeldom = 200ms;
constexpr double kSteady = 0.0002;              // jitter in seconds
constexpr std::uint64_t kFirstSteady = 32;      // measurements at that rate
constexpr std::uint64_t kFirstWithJitter = 400; // on a network with jitter
/// After so many without an answer, datagrams are taken to be blocked, and tried now and then.
constexpr std::uint32_t kMaxUnanswered = 10;
constexpr std::uint32_t kTryAgain = 32;

} // namespace

bool ClockProbe::byDatagram() const {
    return port_ != 0 && (unanswered_ < kMaxUnanswered || numbers_ % kTryAgain == 0);
}

std::uint32_t ClockProbe::begin(bool byDatagram) {
    const auto now = Clock::now();
    const bool steady = estimate_.jitter < kSteady;
    if (estimate_.samples < (steady ? kFirstSteady : kFirstWithJitter)) {
        next_ = now + kAtFirst;
    } else {
        next_ = now + (steady ? Clock::duration(kSeldom) : Clock::duration(kOften));
    }
    unanswered_ += byDatagram ? 1U : 0U;
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

// How the clock of a peer is estimated.
#include <Corvid/detail/net/ClockFilter.h>

#include <cmath>
#include <cstdlib>
#include <gtest/gtest.h>
#include <random>

namespace {

using Corvid::detail::ClockFilter;

constexpr double kSecond = 1e9;

/// Exchanges with a peer over a network that delays each message by up to `jitter`.
struct Network {
    double drift = 0.0;
    double offset = 12345.6; // seconds
    double jitter = 0.0;
    double longer = 0.0; // least delay of questions, beyond that of answers
    std::mt19937_64 random{1};
    ClockFilter filter{};
    double now = 100.0;

    [[nodiscard]] std::int64_t peer(double time) const {
        return std::llround((time * (1.0 + drift) + offset) * kSecond);
    }
    double squares = 0.0; // sum of the errors' squares, in squares of the deviation
    int estimates = 0;
    /// Some seconds of exchanges. Returns the largest error of the estimate, and checks its bound.
    double run(double seconds, double rate = 50.0) {
        std::uniform_real_distribution<double> part(0.0, 1.0);
        double worst = 0.0;
        for (const double end = now + seconds; now < end; now += 1.0 / rate) {
            const bool heldUp = part(random) < 0.01;
            const double there = longer + part(random) * (heldUp ? 0.2 : jitter);
            const double back = part(random) * jitter;
            if (part(random) < 0.01) {
                continue; // one of both is lost
            }
            const double answered = now + there + 1e-5;
            EXPECT_TRUE(filter.add(
                {std::llround(now * kSecond), peer(now + there), peer(answered),
                 std::llround((answered + back) * kSecond)}));
            const double later = answered + back + 0.02;
            const std::int64_t own = std::llround(later * kSecond);
            const auto& clock = filter.estimate();
            const double error = static_cast<double>(clock.peerTime(own) - peer(later)) / kSecond;
            EXPECT_LE(std::abs(error), clock.errorAt(own));
            EXPECT_LE(std::abs(clock.ownTime(clock.peerTime(own)) - own), 2);
            worst = std::max(worst, std::abs(error));
            squares += error * error / (clock.deviation * clock.deviation);
            ++estimates;
        }
        return worst;
    }
};

} // namespace

TEST(ClockFilter, FindsAClockThatDriftsBehindANetworkThatJitters) {
    for (const double drift : {-100e-6, 100e-6}) {
        Network network{.drift = drift, .jitter = 0.005};
        EXPECT_LT(network.run(4.0), 0.005);
        network.run(12.0);
        EXPECT_LT(network.run(8.0), 0.0001) << drift;
        EXPECT_NEAR(network.filter.estimate().drift, drift, 5e-6);
    }
}

TEST(ClockFilter, IsExactSoonAfterItBegins) {
    int bad = 0;
    double squares = 0.0;
    constexpr unsigned kNetworks = 20;
    for (unsigned seed = 0; seed < kNetworks; ++seed) {
        Network network{
            .drift = seed % 2 == 0 ? 100e-6 : -100e-6,
            .jitter = 0.005,
            .random = std::mt19937_64(seed)};
        network.run(1.2, 400.0);
        network.squares = network.estimates = 0;
        bad += network.run(3.0, 200.0) > 0.0001 ? 1 : 0;
        squares += network.squares / network.estimates;
    }
    EXPECT_LE(bad, 2);
    EXPECT_GT(squares / kNetworks, 0.2);
    EXPECT_LT(squares / kNetworks, 2.0) << "its deviation says how exact";
}

TEST(ClockFilter, CountsAnAsymmetryThatItCannotSeeAmongItsErrors) {
    Network network{.jitter = 0.001, .longer = 0.01};
    EXPECT_GT(network.run(5.0), 0.0045); // and within the bound, which run() checks
}

TEST(ClockFilter, FollowsAClockThatWasSetAndRefusesNonsense) {
    Network network{.jitter = 0.001};
    network.run(5.0);
    network.offset += 3600.0;
    EXPECT_LT(network.run(5.0), 0.001);
    EXPECT_FALSE(network.filter.add({10, 5, 5, 9})) << "answered before it was asked";
    EXPECT_FALSE(network.filter.add({INT64_MIN, INT64_MAX, INT64_MAX, INT64_MAX}));
}

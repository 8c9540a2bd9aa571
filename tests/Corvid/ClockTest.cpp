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
    /// Some seconds of exchanges. Returns the largest error of the estimate, and checks its bound.
    double run(double seconds) {
        std::uniform_real_distribution<double> part(0.0, 1.0);
        double worst = 0.0;
        for (const double end = now + seconds; now < end; now += 0.02) {
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

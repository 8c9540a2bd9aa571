#pragma once

#include <Orvel/Vec3f.h>

#include <cstddef>
#include <vector>

namespace Orvel::detail {

/// The velocity of something that is moved now and then, from its successive positions and their
/// times. It is the mean over the last kWindow seconds, so that it does not waver with the times of
/// the calls, and it leaves out jumps: single displacements that are much faster than the others.
/// The first two displacements after a rest do not count, because they may be jumps. Confined.
class Motion {
public:
    /// `seconds` never decreases.
    void add(double seconds, const Vec3f& position);

    /// Units per second.
    [[nodiscard]] const Vec3f& velocity() const noexcept { return velocity_; }
    /// How long the velocity holds without a new position, in seconds.
    [[nodiscard]] float hold() const noexcept { return hold_; }

private:
    static constexpr double kWindow = 0.2;
    /// After that long without a move, it was at rest.
    static constexpr double kRest = 0.25;
    static constexpr std::size_t kMaxPlaces = 32;
    /// Displacements that count are at most so many times faster than the median, and so much.
    static constexpr float kMaxRatio = 2.0F;
    static constexpr float kMaxExcess = 5.0F;

    struct Place {
        double seconds;
        Vec3f position;
    };

    void estimate();

    std::vector<Place> places_; // in the order of time
    Vec3f velocity_{};
    float hold_ = 0.0F;
};

} // namespace Orvel::detail

#include <Orvel/detail/voices/Motion.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace Orvel::detail {

namespace {

constexpr std::array kAxes{&Vec3f::x, &Vec3f::y, &Vec3f::z};
constexpr std::size_t kMinMoves = 3;
/// Limits of hold(), and its ratio to the time between two moves.
constexpr double kMinHold = 0.05;
constexpr double kMaxHold = 0.25;
constexpr double kHoldMoves = 3.0;

float length(const Vec3f& v) {
    return std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z);
}

} // namespace

void Motion::add(double seconds, const Vec3f& position) {
    if (!places_.empty() && seconds - places_.back().seconds > kRest) {
        places_.clear();
    }
    if (!places_.empty() && seconds <= places_.back().seconds) {
        places_.back().position = position;
    } else {
        if (places_.size() == kMaxPlaces) {
            places_.erase(places_.begin());
        }
        places_.push_back({seconds, position});
    }
    // Keeps one place beyond the window, where its first displacement begins.
    while (places_.size() > kMinMoves + 1 && seconds - places_[1].seconds > kWindow) {
        places_.erase(places_.begin());
    }
    estimate();
}

void Motion::estimate() {
    velocity_ = {};
    if (places_.size() <= kMinMoves) {
        return;
    }
    const std::size_t moves = places_.size() - 1;
    std::array<Vec3f, kMaxPlaces> velocities{};
    std::array<float, kMaxPlaces> values{};
    for (std::size_t i = 0; i < moves; ++i) {
        const auto seconds = static_cast<float>(places_[i + 1].seconds - places_[i].seconds);
        for (const auto axis : kAxes) {
            velocities[i].*axis =
                (places_[i + 1].position.*axis - places_[i].position.*axis) / seconds;
        }
    }
    Vec3f median{};
    for (const auto axis : kAxes) {
        std::transform(
            velocities.begin(), velocities.begin() + static_cast<std::ptrdiff_t>(moves),
            values.begin(), [axis](const Vec3f& v) { return v.*axis; });
        const auto middle = values.begin() + static_cast<std::ptrdiff_t>(moves / 2);
        std::nth_element(
            values.begin(), middle, values.begin() + static_cast<std::ptrdiff_t>(moves));
        median.*axis = *middle;
    }
    const float most = kMaxRatio * length(median) + kMaxExcess;
    double total = 0.0;
    Vec3f path{};
    for (std::size_t i = 0; i < moves; ++i) {
        if (length(velocities[i]) <= most) {
            total += places_[i + 1].seconds - places_[i].seconds;
            for (const auto axis : kAxes) {
                path.*axis += places_[i + 1].position.*axis - places_[i].position.*axis;
            }
        }
    }
    if (total > 0.0) {
        for (const auto axis : kAxes) {
            velocity_.*axis = path.*axis / static_cast<float>(total);
        }
    }
    const double interval =
        (places_.back().seconds - places_.front().seconds) / static_cast<double>(moves);
    hold_ = static_cast<float>(std::clamp(kHoldMoves * interval, kMinHold, kMaxHold));
}

} // namespace Orvel::detail

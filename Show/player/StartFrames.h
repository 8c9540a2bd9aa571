#pragma once

#include <Orvel/VoicesBackend.h>
#include <Orvel/World.h>

#include <chrono>
#include <vector>

namespace Show {

/// The back ends of a world that start sounds at given frames of a device. Confined to the world's
/// thread.
class StartFrames {
public:
    using Clock = std::chrono::steady_clock;
    /// How long before they are due changes must be made: those that start sounds, and others.
    struct Lead {
        std::chrono::nanoseconds start{};
        std::chrono::nanoseconds value{};
    };

    explicit StartFrames(const Orvel::World& world);

    [[nodiscard]] bool empty() const { return exact_.empty(); }
    [[nodiscard]] const std::vector<Orvel::VoicesBackend*>& backends() const& { return exact_; }
    /// A loop over those of a temporary would use them after its end.
    void backends() && = delete;
    [[nodiscard]] Lead lead() const;
    /// What is started from now on begins at this time. Returns by how much that is too late, or
    /// `lateness` if that is more.
    std::chrono::nanoseconds begin(Clock::time_point due, std::chrono::nanoseconds lateness = {});
    /// What is started from now on begins at once.
    void end();

private:
    std::vector<Orvel::VoicesBackend*> exact_;
};

} // namespace Show

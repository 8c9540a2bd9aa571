#pragma once

#include <Orvel/OutputLayout.h>
#include <Orvel/World.h>

#include <cstddef>
#include <string>

namespace Orvel {
class OALLoopbackBackend;
class VoicesBackend;
} // namespace Orvel

namespace Show {

/// A back end that frames are pulled from: of the kind "voices", or of "openal" as its loopback
/// form. Owned by its world, which must outlive this. Confined to the world's thread.
class FrameSource {
public:
    /// Adds it to the world. `params` are those of the kind, `rate` is in Hz, and `emitters` the
    /// largest number of emitters. Check isWorking() afterwards.
    FrameSource(
        Orvel::World& world, const std::string& kind, const std::string& params, unsigned rate,
        std::size_t emitters);

    /// False if OpenAL has no loopback device.
    [[nodiscard]] bool isWorking() const;
    [[nodiscard]] unsigned rate() const;
    [[nodiscard]] const Orvel::OutputLayout& layout() const;
    /// Renders the next frames, interleaved, in the layout.
    void render(float* samples, unsigned frames);

private:
    // One of them, or none.
    Orvel::VoicesBackend* voices_ = nullptr;
    Orvel::OALLoopbackBackend* loopback_ = nullptr;
};

} // namespace Show

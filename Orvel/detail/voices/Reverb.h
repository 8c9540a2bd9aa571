#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Orvel::detail {

/// An effect slot of the current context with a reverberation of EFX, to which sources send. The
/// context is current in every call. Confined.
class Reverb {
public:
    /// The names of all presets: those of EFX in lower case, with hyphens.
    static std::vector<std::string> names();
    static bool isName(std::string_view name);
    /// The time in which a preset's reverberation falls by 60 dB, in seconds; 0 for no preset.
    static float decayOf(std::string_view name);

    /// `wet` is the linear gain of the reverberation. Without EFX, or with an unknown name, nothing
    /// is sent.
    Reverb(std::string_view name, float wet);
    Reverb(const Reverb&) = delete;
    Reverb& operator=(const Reverb&) = delete;
    ~Reverb();

    /// Has a source send to the slot, or not, through a filter (0: none).
    void send(unsigned source, bool sends, unsigned filter) const;

private:
    unsigned slot_ = 0;
};

/// A low-pass filter of EFX whose values are handed to sources. The context is current in every
/// call. Confined.
class LowPass {
public:
    LowPass();
    LowPass(const LowPass&) = delete;
    LowPass& operator=(const LowPass&) = delete;
    ~LowPass();

    /// Closes it: 0 is open, 1 is closed. Returns its name, 0 if it is open.
    unsigned close(float value);

private:
    unsigned filter_ = 0;
};

} // namespace Orvel::detail

#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace Orvel {

/// What a mix is made for: headphones, or loudspeakers around the listener.
struct OutputLayout {
    const char* name;  ///< as the parameter "output" of the kind "voices" takes it
    unsigned channels; ///< in the order of their bits in `mask`
    /// The channels' places, as in a WAV file with a channel mask: front left 1, front right 2,
    /// front centre 4, subwoofer 8, back left 0x10, back right 0x20, back centre 0x100, side left
    /// 0x200, side right 0x400.
    std::uint32_t mask;
    bool isBinaural = false; ///< for headphones
};

/// All layouts. The first one is the usual one.
inline constexpr std::array kOutputLayouts{
    OutputLayout{"stereo", 2, 0x3}, OutputLayout{"headphones", 2, 0x3, true},
    OutputLayout{"mono", 1, 0x4},   OutputLayout{"quad", 4, 0x33},
    OutputLayout{"5.1", 6, 0x60f},  OutputLayout{"6.1", 7, 0x70f},
    OutputLayout{"7.1", 8, 0x63f}};

/// The layout of a name, or null.
constexpr const OutputLayout* findOutputLayout(std::string_view name) noexcept {
    for (const OutputLayout& layout : kOutputLayouts) {
        if (name == layout.name) {
            return &layout;
        }
    }
    return nullptr;
}

} // namespace Orvel

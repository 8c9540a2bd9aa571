#include <Corvid/WebServer.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace Corvid {

namespace {

constexpr std::size_t kSide = 16;

// A sound and its waves: '#' is the source, '+' and '-' are waves, '.' is nothing.
constexpr std::array<std::string_view, kSide> kDrawing{
    "................", //
    ".........---....", //
    "...........--...", //
    "......++....--..", //
    "........++...-..", //
    ".........+...--.", //
    "..###.....+...-.", //
    ".#####....+...-.", //
    ".#####....+...-.", //
    "..###.....+...-.", //
    ".........+...--.", //
    "........++...-..", //
    "......++....--..", //
    "...........--...", //
    ".........---....", //
    "................", //
};

/// Blue, green, red, opacity.
constexpr std::array<unsigned, 4> colourOf(char character) {
    switch (character) {
    case '#':
        return {0x99, 0x33, 0x00, 0xFF};
    case '+':
        return {0xC8, 0x6E, 0x20, 0xFF};
    case '-':
        return {0xE0, 0xA0, 0x60, 0xFF};
    default:
        return {};
    }
}

constexpr std::size_t kHeaderSize = 6 + 16;
constexpr std::size_t kBitmapHeaderSize = 40;
constexpr std::size_t kMaskSize = kSide * 4; // one bit a pixel, rows of four bytes
constexpr std::size_t kBitmapSize = kBitmapHeaderSize + kSide * kSide * 4 + kMaskSize;

/// An .ico file with one bitmap of 32 bits a pixel, rows from the bottom up.
constexpr auto kIcon = [] {
    std::array<char, kHeaderSize + kBitmapSize> file = {};
    std::size_t size = 0;
    const auto put = [&file, &size](std::size_t value, int bytes) {
        for (int i = 0; i < bytes; ++i) {
            file[size++] = static_cast<char>(value & 0xFFU);
            value >>= 8U;
        }
    };
    put(0, 2); // the directory
    put(1, 2); // of icons
    put(1, 2); // with one entry
    put(kSide, 1);
    put(kSide, 1);
    put(0, 2);  // no palette
    put(1, 2);  // planes
    put(32, 2); // bits a pixel
    put(kBitmapSize, 4);
    put(kHeaderSize, 4); // where the bitmap begins
    put(kBitmapHeaderSize, 4);
    put(kSide, 4);
    put(2 * kSide, 4); // the mask's rows count too
    put(1, 2);
    put(32, 2);
    put(0, 24); // not compressed, no resolution, no palette
    for (std::size_t row = kSide; row-- > 0;) {
        for (const char character : kDrawing[row]) {
            for (const unsigned part : colourOf(character)) {
                put(part, 1);
            }
        }
    }
    for (std::size_t row = kSide; row-- > 0;) { // a bit set is a pixel not drawn
        unsigned bits = 0;
        for (const char character : kDrawing[row]) {
            bits = bits << 1U | (character == '.' ? 1U : 0U);
        }
        put(bits >> 8U, 1);
        put(bits & 0xFFU, 1);
        put(0, 2);
    }
    return file;
}();

} // namespace

std::string_view WebServer::icon() {
    return {kIcon.data(), kIcon.size()};
}

} // namespace Corvid

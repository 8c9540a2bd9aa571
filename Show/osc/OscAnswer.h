#pragma once

#include <Orvel/Quaternion.h>
#include <Orvel/Vec3f.h>

#include <array>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <span>
#include <string>

namespace Show {

/// The arguments of one path: up to four numbers, or a text.
struct OscValues {
    char type = 'f'; ///< 'f' or 'i': `numbers`; 's': `text`
    std::size_t count = 0;
    std::array<float, 4> numbers{};
    std::string text;

    static OscValues floats(std::initializer_list<float> numbers);
    static OscValues floats(const Orvel::Vec3f& v) { return floats({v.x, v.y, v.z}); }
    static OscValues floats(const Orvel::Quaternion& q) { return floats({q.x, q.y, q.z, q.w}); }
    static OscValues whole(int number);
    static OscValues ofText(std::string text);

    /// Compares the bits of numbers, so that one that is not a number equals itself.
    friend bool operator==(const OscValues& a, const OscValues& b) noexcept;
};

/// A message to a controller: an answer, or feedback.
struct OscAnswer {
    std::string path;
    OscValues values;
};

/// Limit of one packet of several messages, in bytes, so that no network splits it.
inline constexpr std::size_t kMaxAnswerBytes = 1400;

/// Encodes messages and passes the packets to `send`: one message as it is, several as bundles of
/// at most kMaxAnswerBytes.
void encode(
    std::span<const OscAnswer> answers,
    const std::function<void(std::span<const std::byte> packet)>& send);

} // namespace Show

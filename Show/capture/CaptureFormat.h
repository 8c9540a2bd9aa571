#pragma once

#include <boost/crc.hpp>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>

/// The byte format of a capture, as defined in docs/capture.md. All numbers are little-endian.
namespace Show::CaptureFormat {

inline constexpr std::string_view kMagic = "ORVELREC";
inline constexpr std::uint16_t kVersion = 1;
/// Magic, version, protocol, start time, and the lengths of path and text.
inline constexpr std::size_t kFixedHeaderBytes = 8 + 2 + 2 + 8 + 4 + 4;
inline constexpr std::size_t kSumBytes = 4;
inline constexpr std::size_t kEndMarkBytes = 1 + 8 + 8 + kSumBytes;
inline constexpr std::size_t kMaxVarintBytes = 10;

/// The kind of a record: the low bits of a number whose other bits are the client's number.
enum Kind : std::uint64_t { kEvent = 0, kClient = 1, kLost = 2 };
inline constexpr unsigned kKindBits = 2;

template <class Value>
void put(std::string& out, Value value) {
    out.append(reinterpret_cast<const char*>(&value), sizeof value);
}

template <class Value>
Value get(std::span<const std::byte> bytes, std::size_t at) {
    Value value{};
    std::memcpy(&value, bytes.data() + at, sizeof value);
    return value;
}

/// Writes seven bits per byte, lowest first; the high bit is set in all but the last byte.
inline void putVarint(std::string& out, std::uint64_t value) {
    for (; value >= 0x80; value >>= 7U) {
        out += static_cast<char>(value | 0x80U);
    }
    out += static_cast<char>(value);
}

/// Removes a varint from the front. Returns false, without effect, if it is incomplete.
inline bool takeVarint(std::span<const std::byte>& bytes, std::uint64_t& value) {
    value = 0;
    for (std::size_t i = 0; i < bytes.size() && i < kMaxVarintBytes; ++i) {
        const auto byte = std::to_integer<std::uint64_t>(bytes[i]);
        value |= (byte & 0x7fU) << (7U * i);
        if (byte < 0x80) {
            bytes = bytes.subspan(i + 1);
            return true;
        }
    }
    return false;
}

/// The CRC-32 of Ethernet and ZIP.
inline std::uint32_t sum(const void* data, std::size_t size) {
    boost::crc_32_type crc;
    crc.process_bytes(data, size);
    return crc.checksum();
}

} // namespace Show::CaptureFormat

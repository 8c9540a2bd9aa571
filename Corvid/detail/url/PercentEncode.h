#pragma once

#include <string>
#include <string_view>

namespace Corvid::detail {

/// Encodes a path for a URL: every byte except slashes and the unreserved characters of RFC 3986
/// becomes "%XX". The result is plain ASCII and safe in a shell.
inline std::string percentEncode(std::string_view path) {
    constexpr std::string_view kKept = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                       "0123456789-._~/";
    constexpr std::string_view kHex = "0123456789ABCDEF";
    std::string encoded;
    for (const char c : path) {
        if (kKept.find(c) != std::string_view::npos) {
            encoded += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            encoded += '%';
            encoded += kHex[byte >> 4U];
            encoded += kHex[byte & 0xfU];
        }
    }
    return encoded;
}

} // namespace Corvid::detail

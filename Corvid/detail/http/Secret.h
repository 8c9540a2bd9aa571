#pragma once

#include <openssl/crypto.h>
#include <string_view>

namespace Corvid::detail {

/// Compares texts in a time that depends on their sizes only.
inline bool isSameSecret(std::string_view a, std::string_view b) {
    return a.size() == b.size() && ::CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

} // namespace Corvid::detail

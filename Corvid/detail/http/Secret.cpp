#include <Corvid/detail/http/Secret.h>

#include <openssl/crypto.h>

namespace Corvid::detail {

bool isSameSecret(std::string_view a, std::string_view b) {
    return a.size() == b.size() && ::CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

} // namespace Corvid::detail

#include <Show/detail/RandomHex.h>

#include <random>
#include <string_view>

namespace Show {

std::string randomHex(std::size_t digits) {
    constexpr std::string_view kHexDigits = "0123456789abcdef";
    std::random_device device;
    std::string text;
    while (text.size() < digits) {
        text += kHexDigits[device() % kHexDigits.size()];
    }
    return text;
}

} // namespace Show

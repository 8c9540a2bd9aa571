#include <Show/monitor/AccessToken.h>

#include <cstddef>
#include <random>

namespace Show {

AccessToken::AccessToken() {
    constexpr std::string_view kHexDigits = "0123456789abcdef";
    std::random_device device; // the system's generator
    for (int i = 0; i < 32; ++i) {
        text_ += kHexDigits[device() % kHexDigits.size()];
    }
}

bool AccessToken::isIn(const std::string* authorization) const {
    constexpr std::string_view kScheme = "Bearer ";
    if (authorization == nullptr || !authorization->starts_with(kScheme) ||
        authorization->size() != kScheme.size() + text_.size()) {
        return false;
    }
    unsigned difference = 0;
    for (std::size_t i = 0; i < text_.size(); ++i) {
        difference |= static_cast<unsigned char>(
            static_cast<unsigned char>(text_[i]) ^
            static_cast<unsigned char>((*authorization)[kScheme.size() + i]));
    }
    return difference == 0;
}

} // namespace Show

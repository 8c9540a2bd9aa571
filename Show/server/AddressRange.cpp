#include <Show/server/AddressRange.h>

#include <charconv>

namespace Show {

std::optional<AddressRange> AddressRange::parse(const std::string& text) {
    constexpr unsigned kAllBits = 32;
    const auto slash = text.find('/');
    const auto address = Corvid::InetAddress::getByAddress(text.substr(0, slash));
    unsigned bits = kAllBits;
    if (slash != std::string::npos) {
        const char* end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data() + slash + 1, end, bits);
        if (error != std::errc() || stop != end || bits > kAllBits) {
            return std::nullopt;
        }
    }
    if (!address.isValid()) {
        return std::nullopt;
    }
    AddressRange range;
    range.mask_ = bits == 0 ? 0 : ~std::uint32_t{0} << (kAllBits - bits);
    range.bits_ = address.bits() & range.mask_;
    return range;
}

} // namespace Show

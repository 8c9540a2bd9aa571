// Any bytes as the start of a connection, in pieces: if each prefix could still become a greeting,
// the whole must be one, and encode to the same bytes.
#include "Require.h"

#include <Corvid/detail/net/Wire.h>

#include <algorithm>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using Corvid::detail::Greeting;
    std::array<std::byte, Greeting::kSize> bytes{};
    const std::size_t used = std::min(size, bytes.size());
    if (used != 0) {
        std::memcpy(bytes.data(), data, used);
    }
    bool possible = true;
    for (std::size_t i = 0; i <= used; ++i) {
        const bool now = Greeting::canBegin(std::span(bytes).first(i));
        require(possible || !now); // more bytes cannot correct a wrong start
        possible = now;
    }
    if (used < bytes.size()) {
        return 0;
    }
    const auto greeting = Greeting::decode(bytes);
    require(greeting.has_value() == possible);
    if (greeting) {
        auto again = greeting->encode();
        std::copy_n(bytes.begin() + 10, 2, again.begin() + 10); // flags are ignored
        require(again == bytes);
    }
    return 0;
}

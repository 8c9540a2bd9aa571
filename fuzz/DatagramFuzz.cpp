// Parses any bytes as a discovery datagram: an accepted one must encode to the same bytes.
#include "Require.h"

#include <Corvid/detail/net/Wire.h>

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto bytes = std::as_bytes(std::span(data, size));
    const auto datagram = Corvid::detail::DiscoveryDatagram::decode(bytes);
    require(!datagram || std::ranges::equal(datagram->encode(), bytes));
    return 0;
}

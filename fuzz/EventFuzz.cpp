// Decodes any bytes as an event. An accepted one must encode to the same bytes, so nothing is lost,
// and nothing may read or allocate beyond the input.
#include "Require.h"

#include <Corvid/Event.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // The length field is corrected, as a connection would have split the stream by it.
    std::vector<std::byte> frame(std::max<std::size_t>(size, 4));
    if (size != 0) {
        std::memcpy(frame.data(), data, size);
    }
    const auto length = static_cast<std::uint32_t>(frame.size() - 4);
    std::memcpy(frame.data(), &length, sizeof(length));
    std::string fault;
    const std::unique_ptr<Corvid::Event> event(Corvid::Event::decode(frame, &fault));
    std::vector<std::byte> again;
    require(event == nullptr ? !fault.empty() : event->encode(again) && again == frame);
    return 0;
}

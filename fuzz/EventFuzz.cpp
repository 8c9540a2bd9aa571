// Decodes any bytes as an event. What is accepted must be written again as it came, so nothing that
// was sent is lost, and nothing reads or takes memory beyond the input.
#include "require.h"

#include <Corvid/Event.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // The length field is made to fit, as a connection does that cuts frames out of its stream.
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

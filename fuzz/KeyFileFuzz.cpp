// Reads any text as a key file: an accepted one must be written so that it reads the same.
#include "Require.h"

#include <Corvid/Keys.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Corvid::Keys keys;
    if (keys.parse({reinterpret_cast<const char*>(data), size}).empty()) {
        Corvid::Keys again;
        require(again.parse(keys.text()).empty() && again.all() == keys.all());
    }
    return 0;
}

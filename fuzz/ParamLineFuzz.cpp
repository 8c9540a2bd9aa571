#include "Require.h"

#include <Config/ParamLine.h>

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    Config::ParamLine line;
    bool good = true;
    try {
        line.setParamLine(text.c_str());
    } catch (const Config::ParamLine::Exception& fault) {
        good = false;
        require(fault.column() >= 1 && fault.column() <= text.size() + 1 && *fault.what() != '\0');
    }
    // A parameter appended to a valid line must be read unchanged and must not affect the others.
    if (good) {
        const char* before = line.getParam("labels", nullptr);
        const std::string labels = before == nullptr ? "" : before;
        Config::ParamLine longer;
        longer.setParamLine((std::string(text.c_str()) + " zz_added=\"a 'b' \\\"c\"").c_str());
        const char* added = longer.getParam("zz_added", nullptr);
        const char* after = longer.getParam("labels", "");
        require(added != nullptr && std::string(added) == "a 'b' \"c" && labels == after);
    }
    return 0;
}

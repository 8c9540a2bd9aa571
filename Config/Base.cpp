#include <Config/Base.h>

#include <initializer_list>
#include <strings.h>

namespace Config {

bool Base::string2Value(const char* text, bool defaultValue) noexcept {
    if (text == nullptr) {
        return defaultValue;
    }
    for (const char* yes : {"true", "yes", "on", "1"}) {
        if (strcasecmp(text, yes) == 0) {
            return true;
        }
    }
    for (const char* no : {"false", "no", "off", "0"}) {
        if (strcasecmp(text, no) == 0) {
            return false;
        }
    }
    return defaultValue;
}

} // namespace Config

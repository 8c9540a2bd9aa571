#pragma once

#include <orvel_export.h>

namespace Config {

/// Conversions of parameter texts. Immutable: static functions only, any thread.
class ORVEL_EXPORT Base {
public:
    /// Parses a yes/no text: "true", "yes", "on", "1" and "false", "no", "off", "0", in any case.
    /// Any other text, or a null pointer, gives `defaultValue`.
    [[nodiscard]] static bool string2Value(const char* text, bool defaultValue) noexcept;
};

} // namespace Config

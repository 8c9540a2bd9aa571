#pragma once

#include <Config/Base.h>

#include <map>
#include <string>

#include <orvel_export.h>

namespace Config {

/// Named text parameters. Confined to one thread at a time.
class ORVEL_EXPORT ParamBag : public Base {
public:
    /// The value of a parameter, or `defaultValue` (which may be null) if it is not set. The text
    /// stays valid until that parameter is set again or the bag is destroyed.
    [[nodiscard]] const char* getParam(const char* name, const char* defaultValue) const;

    /// Sets or replaces a parameter; a null value counts as empty.
    void setParam(const char* name, const char* value);

protected:
    // By name; the order has no meaning.
    std::map<std::string, std::string, std::less<>> params_;
};

} // namespace Config

#include <Config/ParamBag.h>

#include <string_view>

namespace Config {

const char* ParamBag::getParam(const char* name, const char* defaultValue) const {
    const auto found = params_.find(std::string_view(name));
    return found == params_.end() ? defaultValue : found->second.c_str();
}

void ParamBag::setParam(const char* name, const char* value) {
    params_[name] = value == nullptr ? "" : value;
}

} // namespace Config

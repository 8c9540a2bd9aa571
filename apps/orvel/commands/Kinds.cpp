#include "commands/Kinds.h"

#include <Show/MonitorPage.h>

#include <Orvel/BackendFactory.h>
#include <Orvel/BackendType.h>
#include <Orvel/OALLoopbackBackend.h>
#include <Orvel/VoicesBackend.h>

#include <algorithm>
#include <iomanip>
#include <sstream>
#include <utility>
#include <vector>

namespace OrvelTool {

void registerKinds() {
    Orvel::OALLoopbackBackend::registerType();
    Orvel::VoicesBackend::registerType();
    Show::MonitorPage::registerKind();
}

std::vector<std::string> kinds() {
    std::vector<std::string> names = Orvel::BackendFactory::names();
    names.emplace_back("default"); // an alias in the library, not a registered kind
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

bool isKind(const std::string& name) {
    return Orvel::BackendFactory::type(name) != nullptr;
}

std::vector<Config::Param> parametersOf(const std::string& kind) {
    std::vector<Config::Param> params{Orvel::kLabelsParam};
    if (const auto* type = Orvel::BackendFactory::type(kind)) {
        params.insert(params.end(), type->params().begin(), type->params().end());
    }
    return params;
}

std::vector<const char*> parameterNames(const std::string& kind) {
    std::vector<const char*> names;
    for (const Config::Param& param : parametersOf(kind)) {
        names.push_back(param.name);
    }
    return names;
}

std::string describeKinds(bool verbose) {
    std::ostringstream text;
    for (const std::string& kind : kinds()) {
        text << std::left << std::setw(9) << kind << ' '
             << (kind == "default" ? "the same as \"openal\""
                                   : Orvel::BackendFactory::type(kind)->description());
        if (!verbose) {
            std::string separator = " [";
            for (const char* parameter : parameterNames(kind)) {
                text << std::exchange(separator, " ") << parameter;
            }
            text << "]\n";
            continue;
        }
        text << '\n';
        for (const Config::Param& param : parametersOf(kind)) {
            const char* usual = *param.defaultValue == '\0' ? "empty" : param.defaultValue;
            text << "    " << std::setw(15) << param.name << std::setw(32) << valuesOf(param)
                 << std::setw(15) << usual << param.help << '\n';
        }
    }
    return text.str();
}

} // namespace OrvelTool

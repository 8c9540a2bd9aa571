#include "commands/Kinds.h"

#include <Orvel/BackendFactory.h>
#include <Orvel/OALLoopbackBackend.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <utility>
#include <vector>

namespace OrvelTool {

namespace {

/// The description of a kind for the user.
struct KindText {
    const char* description;
    std::vector<const char*> parameters; // besides "labels", which every kind has
};

/// The kinds of the library and of the tool.
const std::map<std::string, KindText>& table() {
    static const std::map<std::string, KindText> kinds{
        {"client",
         {"plays the scene on sound servers (orvel serve)",
          {"deferred", "followEnabled", "group", "interfaces", "newestOnly", "only", "port",
           "servers", "transferData", "ttl"}}},
        {"default", {"the same as \"openal\"", {}}},
        {"log", {"writes each change of the scene to standard error", {}}},
        {"loopback", {"renders offline; used by \"orvel render\"", {"rate", "sources"}}},
        {"monitor",
         {"shows the scene in a browser as it plays; added by --monitor",
          {"address", "names", "port"}}},
        {"openal", {"plays through this machine's sound device", {}}},
        {"play",
         {"prints a player command line for each sound (command=\"player -q\")", {"command"}}},
        {"silent", {"does nothing", {}}},
        {"web", {"serves a status page to browsers on this machine (--web)", {}}},
    };
    return kinds;
}

} // namespace

void registerKinds() {
    Orvel::OALLoopbackBackend::registerType();
}

std::vector<std::string> kinds() {
    std::vector<std::string> names = Orvel::BackendFactory::names();
    names.emplace_back("default"); // an alias in the library, not a registered kind
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

bool isKind(const std::string& name) {
    const auto names = kinds();
    return std::find(names.begin(), names.end(), name) != names.end();
}

std::vector<const char*> parametersOf(const std::string& kind) {
    std::vector<const char*> names{"labels"};
    if (const auto found = table().find(kind); found != table().end()) {
        const auto& own = found->second.parameters;
        names.insert(names.end(), own.begin(), own.end());
    }
    return names;
}

std::string describeKinds() {
    std::ostringstream text;
    for (const std::string& kind : kinds()) {
        constexpr std::size_t kColumn = 10;
        text << kind;
        if (const auto found = table().find(kind); found != table().end()) {
            text << std::string(kColumn - std::min(kColumn - 1, kind.size()), ' ')
                 << found->second.description;
        }
        std::string separator = " [";
        for (const char* parameter : parametersOf(kind)) {
            text << std::exchange(separator, " ") << parameter;
        }
        text << "]\n";
    }
    return text.str();
}

} // namespace OrvelTool

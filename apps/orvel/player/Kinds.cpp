#include "player/Kinds.h"

#include <Orvel/BackendFactory.h>
#include <Orvel/OALLoopbackBackend.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <vector>

namespace OrvelTool {

namespace {

const char* descriptionOf(const std::string& kind) {
    static const std::map<std::string, const char*> descriptions{
        {"client", "drives sound servers on other machines (orvel serve)"},
        {"default", "the kind \"openal\""},
        {"log", "writes each change of the scene to standard error"},
        {"loopback", "renders into the program; what \"orvel render\" uses"},
        {"monitor", "shows the scene to browsers as it plays; what --monitor adds"},
        {"openal", "plays through this machine's sound device"},
        {"play", "writes the command line that would play each sound (command=\"player -q\")"},
        {"silent", "does nothing"},
        {"web", "shows in a browser on this machine what runs (--web)"},
    };
    const auto found = descriptions.find(kind);
    return found == descriptions.end() ? "" : found->second;
}

} // namespace

void registerKinds() {
    Orvel::OALLoopbackBackend::registerType();
}

std::vector<std::string> kinds() {
    std::vector<std::string> names = Orvel::BackendFactory::names();
    names.emplace_back("default"); // which the library takes for another kind's name
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

bool isKind(const std::string& name) {
    const auto names = kinds();
    return std::find(names.begin(), names.end(), name) != names.end();
}

std::string describeKinds() {
    std::ostringstream text;
    for (const std::string& kind : kinds()) {
        constexpr std::size_t kColumn = 10;
        const std::string description = descriptionOf(kind);
        text << kind;
        if (!description.empty()) {
            text << std::string(kColumn - std::min(kColumn - 1, kind.size()), ' ') << description;
        }
        text << '\n';
    }
    return text.str();
}

} // namespace OrvelTool

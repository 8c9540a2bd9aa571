#include "Kinds.h"

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
        {"default", "the kind \"openal\""},
        {"log", "writes each change of the scene to standard error"},
        {"loopback", "renders into the program; what \"orvel render\" uses"},
        {"openal", "plays through this machine's sound device"},
        {"play", "writes the command line that would play each sound (command=\"player -q\")"},
        {"silent", "does nothing"},
    };
    const auto found = descriptions.find(kind);
    return found == descriptions.end() ? "" : found->second;
}

/// Sorted, with "default", which the library takes for another kind's name.
std::vector<std::string> allKinds() {
    std::vector<std::string> kinds = Orvel::BackendFactory::names();
    kinds.emplace_back("default");
    std::sort(kinds.begin(), kinds.end());
    kinds.erase(std::unique(kinds.begin(), kinds.end()), kinds.end());
    return kinds;
}

} // namespace

void registerKinds() {
    Orvel::OALLoopbackBackend::registerType();
}

bool isKind(const std::string& name) {
    const auto kinds = allKinds();
    return std::find(kinds.begin(), kinds.end(), name) != kinds.end();
}

std::string playableKinds() {
    std::string text;
    for (const std::string& kind : allKinds()) {
        if (kind != "loopback") {
            text += (text.empty() ? "" : ", ") + kind;
        }
    }
    return text;
}

std::string describeKinds() {
    std::ostringstream text;
    for (const std::string& kind : allKinds()) {
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

#include "commands/WaitOption.h"

#include "process/Output.h"
#include "process/ServiceManager.h"
#include "process/StopSignals.h"
#include <Show/scene/SceneFile.h>

#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <netinet/in.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <variant>

namespace OrvelTool {

namespace {

using namespace std::chrono_literals;

constexpr auto kPollInterval = 500ms;

bool isMissing(const std::string& path) {
    std::error_code error;
    return std::filesystem::status(path, error).type() == std::filesystem::file_type::not_found;
}

} // namespace

void WaitOption::declare(CLI::App& app) {
    app.add_flag(
        "--wait-for-device", given_,
        "Wait for a missing sound device, interface, scene file or sound file instead of exiting");
}

bool WaitOption::wait(const std::vector<Need>& needs) const {
    if (!given_) {
        return true;
    }
    const StopSignals signals;
    const ServiceManager manager;
    std::string reported;
    for (;;) {
        std::string missing;
        for (const Need& need : needs) {
            missing = missing.empty() ? need() : missing;
        }
        if (missing.empty()) {
            return true;
        }
        if (missing != reported) {
            report("waiting for " + missing);
            reported = missing;
        }
        manager.waiting(missing);
        std::this_thread::sleep_for(kPollInterval);
        if (StopSignals::came()) {
            return false;
        }
    }
}

std::string missingFile(const std::string& scenePath) {
    if (scenePath.empty() || isMissing(scenePath)) {
        return scenePath;
    }
    std::ifstream file(scenePath, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    std::vector<Show::Problem> problems;
    const auto scene = parseScene(text.str(), scenePath, problems);
    if (!scene) {
        return {};
    }
    std::string missing;
    const auto look = [&missing](const Show::Sound& sound) {
        const auto* found = std::get_if<Show::SoundFile>(&sound);
        if (missing.empty() && found != nullptr && isMissing(found->path)) {
            missing = found->path;
        }
    };
    for (const Show::SourceSpec& source : scene->sources) {
        look(source.sound);
    }
    for (const Show::Change& change : scene->timeline) {
        look(change.newSource ? change.newSource->sound : change.sound);
    }
    return missing;
}

std::string missingAddress(const std::string& address) {
    sockaddr_in place{};
    place.sin_family = AF_INET;
    if (inet_pton(AF_INET, address.c_str(), &place.sin_addr) != 1) {
        return {};
    }
    const int probe = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool missing =
        probe >= 0 && bind(probe, reinterpret_cast<const sockaddr*>(&place), sizeof place) != 0 &&
        errno == EADDRNOTAVAIL;
    if (probe >= 0) {
        close(probe);
    }
    return missing ? "an interface with the address " + address : "";
}

bool worksElsewhere(const std::function<bool()>& opens) {
    const pid_t child = fork();
    if (child == 0) {
        const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(nowhere, STDERR_FILENO);
        bool works = false;
        try {
            works = opens();
        } catch (...) { // failed
        }
        _exit(works ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    int status = EXIT_FAILURE;
    while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return child < 0 || (WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS);
}

} // namespace OrvelTool

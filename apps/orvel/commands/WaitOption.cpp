#include "commands/WaitOption.h"

#include "process/Output.h"
#include "process/ServiceManager.h"
#include "process/StopSignals.h"

#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace OrvelTool {

namespace {

using namespace std::chrono_literals;

constexpr auto kPollInterval = 500ms;

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

#include "commands/MonitorOption.h"

#include "network/NetworkOptions.h"
#include "process/Output.h"
#include <Show/MonitorPage.h>

#include <Orvel/Backend.h>
#include <Orvel/BackendState.h>
#include <Orvel/BackendType.h>

#include <algorithm>

namespace OrvelTool {

namespace {

std::string checkAddress(const std::string& text) {
    if (text.empty()) {
        return {};
    }
    const auto colon = text.rfind(':');
    const bool anyPort = colon != std::string::npos && text.substr(colon) == ":0";
    return checkHostAndPort(anyPort ? text.substr(0, colon) + ":1" : text).empty()
               ? ""
               : "expected ADDR:PORT, such as 127.0.0.1:33790 (port 0: any free port); found \"" +
                     text + "\"";
}

} // namespace

void MonitorOption::declare(CLI::App& app) {
    option_ = app.add_option(
                     "--monitor", text_,
                     "Show the scene to browsers as it plays, as a page, JSON and metrics, at this "
                     "address (default: 127.0.0.1:" +
                         std::to_string(Show::MonitorPage::kDefaultPort) +
                         ", or a free port if that is taken). Beyond this machine, "
                         "browsers need the token in the printed address")
                  ->type_name("[ADDR:PORT]")
                  ->expected(0, 1)
                  ->check(CLI::Validator(checkAddress, "", "address"));
}

void MonitorOption::separate(std::vector<std::string>& words) {
    const auto end = std::find(words.begin(), words.end(), "--");
    const auto option = std::find(words.begin(), end, "--monitor");
    if (option == end || option + 1 == end || option[1].find(':') != std::string::npos) {
        return;
    }
    std::rotate(option, option + 1, end); // to the end, where no word follows it
}

std::string MonitorOption::host() const {
    return text_.empty() ? "" : hostAndPort(text_).first;
}

void MonitorOption::addTo(std::vector<BackendOption::Choice>& choices) const {
    if (option_->count() == 0) {
        return;
    }
    BackendOption::Choice choice{"monitor", ""};
    if (!text_.empty()) {
        const auto [host, port] = hostAndPort(text_);
        choice.params = "address='" + host + "' port=" + std::to_string(port);
    }
    choices.push_back(std::move(choice));
}

bool announceMonitors(const Orvel::World& world, const std::string& desk) {
    bool good = true;
    for (Orvel::Backend* backend : world.backends()) {
        if (backend->type()->name() == "monitor") {
            const Orvel::BackendState state = backend->state();
            good = good && state.working;
            if (state.working && !desk.starts_with(state.page)) {
                report("the monitor is at " + state.page);
            }
        }
    }
    return good;
}

std::vector<Corvid::PolledWebServer*> webServers(const Orvel::World& world) {
    std::vector<Corvid::PolledWebServer*> servers;
    for (const Orvel::Backend* backend : world.backends()) {
        if (auto* server = backend->state().webServer) {
            servers.push_back(server);
        }
    }
    return servers;
}

} // namespace OrvelTool

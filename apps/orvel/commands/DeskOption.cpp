#include "commands/DeskOption.h"

#include "network/NetworkOptions.h"
#include "process/Output.h"

namespace OrvelTool {

namespace {

/// With the default address.
std::string completed(const std::string& text) {
    return text.find(':') == std::string::npos ? "127.0.0.1:" + text : text;
}

std::string checkDesk(const std::string& text) {
    const std::string whole = completed(text);
    const auto colon = whole.rfind(':');
    const bool anyPort = whole.substr(colon) == ":0";
    return checkHostAndPort(anyPort ? whole.substr(0, colon) + ":1" : whole).empty()
               ? ""
               : "expected [ADDR:]PORT, such as 33790 (port 0: any free port); found \"" + text +
                     "\"";
}

} // namespace

void DeskOption::declare(CLI::App& app) {
    app.add_option(
           "--desk", text_,
           "Show the scene to browsers as with --monitor, and let them change it: move, mute, "
           "play, "
           "save. The printed URL contains a token that permits changes. Plays until Ctrl-C. "
           "Default address: 127.0.0.1")
        ->type_name("[ADDR:]PORT")
        ->check(CLI::Validator(checkDesk, "", "address"));
}

std::unique_ptr<Show::DeskPage>
DeskOption::open(Orvel::World& world, Show::Playback& playback, const Show::ShowFile& file) const {
    const auto [host, port] = hostAndPort(completed(text_));
    Show::MonitorPage::Settings settings;
    settings.address = host;
    settings.port = port;
    auto desk = std::make_unique<Show::DeskPage>(world, playback, file, settings);
    if (!desk->isOpen()) {
        report(desk->error());
        return nullptr;
    }
    report("the desk is at " + desk->url());
    return desk;
}

} // namespace OrvelTool

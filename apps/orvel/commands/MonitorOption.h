#pragma once

#include "commands/BackendOption.h"

#include <Corvid/PolledWebServer.h>
#include <Orvel/World.h>

#include <CLI/App.hpp>

#include <string>
#include <vector>

namespace OrvelTool {

/// The option --monitor of a command: it adds a back end "monitor", which lets browsers look.
class MonitorOption {
public:
    void declare(CLI::App& app);
    /// Keeps a word that is no address, such as the scene's path, from being taken for the option's
    /// value. To be called with all words of the command line, before they are parsed.
    static void separate(std::vector<std::string>& words);
    /// The address or name at which browsers look; empty without one.
    [[nodiscard]] std::string host() const;
    /// Adds the back end to those that were chosen, if the option was given.
    void addTo(std::vector<BackendOption::Choice>& choices) const;

private:
    const CLI::Option* option_ = nullptr; // owned by the application
    std::string text_;                    // empty: the usual address
};

/// Tells where the monitors of a world are. False if one of them could not be opened, which has
/// been told.
bool announceMonitors(const Orvel::World& world);
/// The web servers of a world's back ends, owned by those: World::update() serves them.
std::vector<const Corvid::PolledWebServer*> webServers(const Orvel::World& world);

} // namespace OrvelTool

#pragma once

#include "commands/BackendOption.h"

#include <Corvid/PolledWebServer.h>
#include <Orvel/World.h>

#include <CLI/App.hpp>

#include <string>
#include <vector>

namespace OrvelTool {

/// The option --monitor, which adds a back end "monitor" to show the scene in browsers.
class MonitorOption {
public:
    void declare(CLI::App& app);
    /// Moves --monitor to the end unless an address follows it, so that the parser does not take
    /// another word, such as the scene's path, for its value. Call it with all words of the command
    /// line before they are parsed.
    static void separate(std::vector<std::string>& words);
    /// The host part of the option's address; empty if none was given.
    [[nodiscard]] std::string host() const;
    /// Adds the back end to `choices` if the option was given.
    void addTo(std::vector<BackendOption::Choice>& choices) const;

private:
    const CLI::Option* option_ = nullptr; // owned by the application
    std::string text_;                    // empty: the default address
};

/// Prints the addresses of a world's monitors except that of a desk, whose URL has been printed.
/// Returns false if one could not be opened, which has been reported.
bool announceMonitors(const Orvel::World& world, const std::string& desk = {});
/// The web servers of a world's back ends. The back ends own them; World::update() serves them.
std::vector<Corvid::PolledWebServer*> webServers(const Orvel::World& world);

} // namespace OrvelTool

#pragma once

#include "process/Diagnostics.h"

#include <Orvel/World.h>

#include <CLI/App.hpp>

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace OrvelTool {

/// The options that choose back ends: --backend, with parameters, and --web.
class BackendOption {
public:
    struct Choice {
        std::string kind;
        std::string params;
    };

    void declare(CLI::App& app, const std::string& description);

    /// Reads the options into `choices`, which stays empty if none was given. `refused` maps kinds
    /// that the command does not support to the reason. On wrong usage reports it and returns
    /// false.
    bool
    read(std::vector<Choice>& choices, const std::map<std::string, std::string>& refused) const;

    /// The same for one text.
    static bool read(
        const std::string& text, Choice& choice, const std::map<std::string, std::string>& refused);

    [[nodiscard]] bool web() const { return web_; }

private:
    std::vector<std::string> texts_;
    bool web_ = false;
};

/// Whether a kind plays through a sound device.
[[nodiscard]] bool opensDevice(const std::string& kind);

/// Gives back ends of the kind "voices" these parameters, unless the user gave others.
void setUsualParams(std::vector<BackendOption::Choice>& choices, const std::string& params);

/// Adds the back end of --web. Reports problems; returns false if it cannot serve.
bool addWeb(Orvel::World& world, Diagnostics& diagnostics);

/// Adds back ends to a world and reports problems. Returns false if nothing would play; `advice` is
/// the message's suggestion when there is no sound device.
bool addBackends(
    Orvel::World& world, Diagnostics& diagnostics,
    const std::vector<BackendOption::Choice>& choices, const std::string& advice, bool verbose);

} // namespace OrvelTool

#pragma once

#include "process/LibraryMessages.h"

#include <Orvel/World.h>

#include <CLI/App.hpp>

#include <map>
#include <string>
#include <vector>

namespace OrvelTool {

/// The options of a command that choose back ends: --backend, each with its parameters, and --web.
class BackendOption {
public:
    struct Choice {
        std::string kind;
        std::string params;
    };

    void declare(CLI::App& app, const std::string& description);

    /// Reads what was given, nothing if nothing was; false, with a message, for wrong use.
    /// `refused` are kinds that make no sense for the command, with the reason.
    bool
    read(std::vector<Choice>& choices, const std::map<std::string, std::string>& refused) const;

    /// Whether --web was given.
    [[nodiscard]] bool web() const { return web_; }

private:
    std::vector<std::string> texts_;
    bool web_ = false;
};

/// Adds the back end that --web asks for, and writes what went wrong. False if it cannot serve.
bool addWeb(Orvel::World& world, LibraryMessages& messages);

/// Adds back ends to a world and writes what went wrong. False if nothing would play; `advice` says
/// what to do without a sound device.
bool addBackends(
    Orvel::World& world, LibraryMessages& messages,
    const std::vector<BackendOption::Choice>& choices, const std::string& advice, bool verbose);

} // namespace OrvelTool

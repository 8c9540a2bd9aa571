#pragma once

#include "process/LibraryMessages.h"

#include <Orvel/World.h>

#include <CLI/App.hpp>

#include <map>
#include <string>
#include <vector>

namespace OrvelTool {

/// The option --backend of a command: kinds of back ends, each with its parameters.
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

private:
    std::vector<std::string> texts_;
};

/// Adds back ends to a world and writes what went wrong. False if nothing would play; `advice` says
/// what to do without a sound device.
bool addBackends(
    Orvel::World& world, LibraryMessages& messages,
    const std::vector<BackendOption::Choice>& choices, const std::string& advice, bool verbose);

} // namespace OrvelTool

#pragma once

#include "process/Output.h"
#include <Show/ShowFile.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <string>

namespace OrvelTool {

/// One command of the tool. The constructor declares its options; run() does the work after they
/// are parsed. Confined to the main thread.
class Command {
public:
    Command() = default;
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;
    virtual ~Command() = default;

    /// Does the work and returns the exit code. Messages go to standard error. Throws OutputError
    /// if a file cannot be written.
    virtual int run() = 0;
    /// Whether this command was given on the command line.
    [[nodiscard]] bool chosen() const { return app_->parsed(); }

protected:
    /// Adds a command with --help, --version and --verbose.
    void declare(CLI::App& parent, const std::string& name, const std::string& description);
    /// Declares the positional argument SCENE.
    void declareScene(const std::string& description = "The scene file (JSON)");
    /// Declares --fetch, for commands that accept captures.
    void declareFetch();
    /// Declares --from.
    void declareFrom(const std::string& description);
    /// Declares --seconds.
    void declareSeconds(const std::string& description);

    /// Loads the scene or capture, and reports its problems.
    [[nodiscard]] Show::ShowFile load() const;
    /// The message for a --from that is not before the end.
    [[nodiscard]] std::string tooLate(double end) const;

    [[nodiscard]] CLI::App& app() const noexcept { return *app_; }

    std::string scenePath_;
    double from_ = 0.0;    // 0 if not given
    double seconds_ = 0.0; // 0 if not given
    bool verbose_ = false;
    bool fetch_ = false;

private:
    CLI::App* app_ = nullptr; // owned by its parent
};

} // namespace OrvelTool

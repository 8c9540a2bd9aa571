#pragma once

#include "process/Complaint.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <string>

namespace OrvelTool {

/// One command of the tool: it declares its options when it is made, and run() does its work once
/// they are parsed. Confined to the main thread.
class Command {
public:
    Command() = default;
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;
    virtual ~Command() = default;

    /// Does the work, with its messages on standard error. Gives the exit code. Throws
    /// OutputError where a file cannot be written.
    virtual int run() = 0;
    /// Whether the command line asks for this command.
    [[nodiscard]] bool chosen() const { return app_->parsed(); }

protected:
    /// Adds a command with --help, --version and --verbose.
    void declare(CLI::App& parent, const std::string& name, const std::string& description);
    /// The argument SCENE, which stands first.
    void declareScene(const std::string& description = "The scene file (JSON)");
    /// The option --fetch, for what may be a capture.
    void declareFetch();
    /// The option --from.
    void declareFrom(const std::string& description);
    /// The option --seconds.
    void declareSeconds(const std::string& description);

    /// What to say if --from is not before the end.
    [[nodiscard]] std::string tooLate(double end) const;

    [[nodiscard]] CLI::App& app() const noexcept { return *app_; }

    std::string scenePath_;
    double from_ = 0.0;    // 0 when not given
    double seconds_ = 0.0; // 0 when not given
    bool verbose_ = false;
    bool fetch_ = false;

private:
    CLI::App* app_ = nullptr; // owned by its parent
};

} // namespace OrvelTool

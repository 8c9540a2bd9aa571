#pragma once

#include "commands/BackendOption.h"
#include "commands/Command.h"
#include <Show/Render.h>

#include <memory>
#include <string>

namespace OrvelTool {

/// `orvel render`: renders a scene to a WAV file, without a sound device.
class RenderCommand : public Command {
public:
    explicit RenderCommand(CLI::App& parent);
    int run() override;

private:
    struct Result;

    /// Reads the back end from the command line. On wrong usage reports it and returns false.
    bool choose(BackendOption::Choice& choice) const;
    int render(const Show::ShowFile& file, const BackendOption::Choice& choice);
    /// Reports why a render failed; returns the exit code.
    [[nodiscard]] int explain(const Show::RenderResult& result) const;
    void writeResult(const Result& result) const;

    std::string output_;
    unsigned rate_;
    std::string backend_ = "voices";
    std::string layout_;
    std::string format_ = "s16";
    std::string plot_; // empty: no picture
    bool all_ = false;
    bool json_ = false;
};

} // namespace OrvelTool

#pragma once

#include "commands/Command.h"
#include <Show/player/Playable.h>

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

    int render(const Show::Playable& what);
    void writeResult(const Result& result) const;

    std::string output_;
    unsigned rate_;
    std::string format_ = "s16";
    std::string plot_; // empty: no picture
    bool all_ = false;
    bool json_ = false;
};

} // namespace OrvelTool

#pragma once

#include <Show/osc/OscServer.h>

#include <CLI/App.hpp>

#include <memory>
#include <string>

namespace OrvelTool {

/// The options --osc and --osc-scale of a command.
class OscOption {
public:
    void declare(CLI::App& app);
    [[nodiscard]] bool given() const noexcept { return !text_.empty(); }

    /// The address of the interface to listen on.
    [[nodiscard]] std::string address() const;
    /// Opens the server and prints its address. On failure reports it and returns null.
    std::unique_ptr<Show::OscServer> open(
        Orvel::World& world, Show::OscScene::Apply apply, std::shared_ptr<Corvid::Loop> loop) const;

private:
    std::string text_; // empty: no Open Sound Control
    float scale_ = Show::OscServer::Settings().scale;
};

} // namespace OrvelTool

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

    /// The address of the interface.
    [[nodiscard]] std::string address() const;
    /// Opens what was asked for and tells where; null, with a message, if that is impossible.
    std::unique_ptr<Show::OscServer> open(Orvel::World& world, Show::OscScene::Apply apply) const;

private:
    std::string text_; // empty: no Open Sound Control
    float scale_ = Show::OscServer::Settings().scale;
};

} // namespace OrvelTool

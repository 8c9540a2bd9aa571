#pragma once

#include "network/NetworkOptions.h"
#include <Show/OscInput.h>

#include <CLI/App.hpp>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace OrvelTool {

/// The options --osc, --osc-scale, --osc-reply-port, --osc-query and --osc-feedback of a command.
class OscOption {
public:
    void declare(CLI::App& app);
    [[nodiscard]] bool given() const noexcept { return !text_.empty(); }

    /// The address of the interface to listen on.
    [[nodiscard]] std::string address() const;
    /// Whether it may be opened: for other machines only with --open, as it has no keys. Reports it
    /// if not.
    [[nodiscard]] bool check(bool open) const;
    /// Opens the input and prints its address. On failure reports it and returns null. `playback`
    /// and `apply` as in Show::OscInput::Settings.
    std::unique_ptr<Show::OscInput> open(
        Orvel::World& world, std::shared_ptr<Corvid::Loop> loop,
        std::function<void(Orvel::CommandEvent&)> apply = {}) const;
    /// Announces the input, and the description of its paths.
    void announce(
        Announcement& announcement, const NetworkOptions& network,
        const Show::OscInput& input) const;

private:
    std::string text_; // empty: no Open Sound Control
    unsigned short replyPort_ = 0;
    std::optional<unsigned short> queryPort_;
    std::vector<std::string> feedback_;
    float scale_ = Show::OscInput::Settings().scale;
};

} // namespace OrvelTool

#pragma once

#include <Show/DeskPage.h>
#include <Show/Playback.h>
#include <Show/ShowFile.h>

#include <Orvel/World.h>

#include <CLI/App.hpp>

#include <memory>
#include <string>

namespace OrvelTool {

/// The option --desk, which lets browsers change the scene as it plays.
class DeskOption {
public:
    void declare(CLI::App& app);
    [[nodiscard]] bool given() const { return !text_.empty(); }
    /// Opens the desk and reports its address. Null if that fails, which has been reported.
    [[nodiscard]] std::unique_ptr<Show::DeskPage>
    open(Orvel::World& world, Show::Playback& playback, const Show::ShowFile& file) const;

private:
    std::string text_;
};

} // namespace OrvelTool

#pragma once

#include "commands/BackendOption.h"
#include "commands/OutputGuard.h"
#include "process/Diagnostics.h"
#include <Show/render/LiveRecording.h>

#include <Orvel/World.h>

#include <CLI/App.hpp>

#include <cstddef>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace OrvelTool {

/// The options that write the output of a scene in real time, to a file or a stream: --render,
/// --render-rate and --render-raw.
class RenderOption {
public:
    void declare(CLI::App& app);

    [[nodiscard]] bool given() const { return !path_.empty(); }
    /// Whether the output may be written; otherwise reports the reason. True without the option.
    [[nodiscard]] bool accept(OutputGuard& guard) const;
    /// Adds the back end that is recorded: the same as the one of `choices` that mixes, if that is
    /// one alone, else of the kind "voices" with `params`. Reports a failure and returns false.
    bool open(
        std::optional<Show::FrameSource>& frames, Orvel::World& world, std::size_t emitters,
        const std::vector<BackendOption::Choice>& choices, const std::string& params,
        Diagnostics& diagnostics) const;
    /// Creates the output; see LiveRecording. Throws OutputError.
    void begin(
        std::optional<Show::LiveRecording>& recording, Show::FrameSource& frames,
        Show::LiveRecording::Clock::time_point begin, double skew = 0.0) const;

    /// Reports once that the reader of a stream is too slow; call it from time to time.
    void look(const Show::LiveRecording& recording);

    /// The stream for results: not standard output if the recording goes there.
    [[nodiscard]] std::ostream& results() const;
    void writeLevels(const Show::LiveRecording& recording) const;
    /// Reports what a reader has missed and, unless `complete`, why the recording has ended.
    void reportEnd(const Show::LiveRecording& recording, bool complete) const;

private:
    std::string path_; // empty: no recording
    unsigned rate_ = 44100;
    bool raw_ = false;
    bool saidSlow_ = false;
};

} // namespace OrvelTool

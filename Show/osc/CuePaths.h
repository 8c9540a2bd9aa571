#pragma once

#include <Show/osc/OscFamily.h>
#include <Show/player/Transport.h>

#include <Orvel/World.h>

#include <memory>

namespace Show {

/// The paths that control a playback, such as `/orvel/go`. After its end they are refused. Confined
/// to the world's thread.
class CuePaths {
public:
    explicit CuePaths(const std::shared_ptr<Transport>& transport);
    CuePaths(const CuePaths&) = delete;
    CuePaths& operator=(const CuePaths&) = delete;

    [[nodiscard]] const OscFamily<Orvel::World>& playback() const { return playbackPaths_; }
    [[nodiscard]] const OscFamily<Orvel::World>& cues() const { return cuePaths_; }

    /// Plays the cue with this name if there is one.
    void cue(const std::string& name) const;

private:
    OscFamily<Orvel::World> playbackPaths();
    OscFamily<Orvel::World> cuePaths();
    /// A command without a value; `run(transport)` returns null, or why not.
    template <class Run>
    OscEntry<Orvel::World> commandEntry(const std::string& name, const char* meaning, Run run);

    const std::weak_ptr<Transport> transport_;
    const OscFamily<Orvel::World> playbackPaths_;
    const OscFamily<Orvel::World> cuePaths_;
};

} // namespace Show

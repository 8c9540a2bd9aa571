#pragma once

#include <Show/Playback.h>
#include <Show/ShowFile.h>
#include <Show/desk/DeskFile.h>
#include <Show/player/Overrides.h>
#include <Show/player/Transport.h>

#include <Orvel/World.h>

#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Show {

/// Changes a scene while it plays, as docs/desk.md describes: its requests, undo and saving. The
/// world and the playback must outlive it. Confined to the world's thread.
class Desk {
public:
    /// Number of steps that can be undone.
    static constexpr std::size_t kMaxUndo = 200;
    /// Limit of a gain.
    static constexpr double kMaxGain = 16.0;
    /// Limit of the size of a coordinate.
    static constexpr double kMaxCoordinate = 1e6;

    /// The result of a request: 200, or another status of HTTP and a sentence for the user.
    struct Answer {
        int status = 200;
        std::string error;
    };

    Desk(Orvel::World& world, Playback& playback, const ShowFile& file);

    /// Carries out a request in JSON, either completely or not at all.
    Answer take(std::string_view request);
    /// Appends its state in JSON.
    void write(std::string& out) const;

private:
    using State = Orvel::WorldPart::State;
    /// A change of one part.
    struct Edit {
        int id = 0;
        Override before;
        Override after;
        std::optional<State> stateBefore;
        std::optional<State> stateAfter;
    };
    using Step = std::vector<Edit>;
    struct Request;

    static Request read(std::string_view text);
    void carryOut(const Request& request);
    /// The command of the playback, checked; empty if there is none.
    [[nodiscard]] Transport::Command commandOf(const Request& request) const;
    void apply(const Step& step, bool forward);
    void remember(Step step, const std::string& gesture);
    bool undo();
    bool redo();
    [[nodiscard]] std::map<int, Override> savable() const;

    Orvel::World& world_;
    const std::shared_ptr<Transport> transport_; // null: the file is not good
    const ShowFile file_;
    Overrides* const overrides_; // null: nothing can be changed
    std::optional<DeskFile> disk_;
    std::map<int, Override> saved_;
    std::deque<Step> done_;
    std::vector<Step> undone_;
    std::string gesture_; // that the last step belongs to
};

} // namespace Show

#pragma once

#include "process/LibraryMessages.h"
#include <Show/scene/LoadedScene.h>

#include <Orvel/Server.h>
#include <Orvel/World.h>

#include <map>
#include <string>
#include <utility>

namespace Show {

/// A world in which the tool uses a scene: it knows which part a back end is busy with when
/// something goes wrong, and leaves nothing behind. The scene and the messages must outlive it.
/// `Base` is a world. Confined to one thread at a time.
template <class Base>
class StageOn : public Base {
public:
    /// `base` is what the constructor of the class beneath takes.
    template <class... Arguments>
    StageOn(const Scene& scene, OrvelTool::LibraryMessages& messages, Arguments&&... base)
        : Base(std::forward<Arguments>(base)...), path_(scene.path), messages_(messages) {
        noteSounds(scene);
    }
    StageOn(const StageOn&) = delete;
    StageOn& operator=(const StageOn&) = delete;
    /// Destroys the parts, then the back ends.
    ~StageOn() override;

    using Base::createEmitter;
    using Base::createSource;
    void createSource(Orvel::Source& source) override;
    void setSourceData(Orvel::Source& source) override;
    void setSourceDuration(Orvel::Source& source) override;
    void createEmitter(Orvel::Emitter& emitter) override;

    /// Writes what the library has reported since the last call to standard error, each message
    /// behind the scene file's name. False if there was nothing.
    bool tell() { return messages_.tell(); }

    /// Whether the playing time of a source has become known since the last call.
    bool takeNewDurations() { return std::exchange(newDurations_, false); }

private:
    void noteSounds(const Scene& scene);
    [[nodiscard]] std::string part(const char* kind, int id) const;
    [[nodiscard]] std::string subject(const Orvel::Source& source) const;

    std::string path_; // empty without a scene file
    OrvelTool::LibraryMessages& messages_;
    std::map<int, Where> sounds_; // where a source gets its sound, for those that keep it
    bool newDurations_ = false;
};

extern template class StageOn<Orvel::World>;
extern template class StageOn<Orvel::Server>;

/// The world of a scene that is played here.
using Stage = StageOn<Orvel::World>;

} // namespace Show

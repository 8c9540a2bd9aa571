#pragma once

#include <Show/scene/LoadedScene.h>

#include <Orvel/Server.h>
#include <Orvel/World.h>

#include <functional>
#include <map>
#include <string>
#include <utility>

namespace Show {

/// Receives the part that a world is working on, such as "source 3"; an empty text when it is done.
/// May be empty.
using SetSubject = std::function<void(std::string subject)>;

/// A world for a scene in an application. It knows which part a back end is working on when a
/// problem occurs, and cleans up after itself. The scene must outlive it. `Base` is a world class.
/// Confined to one thread at a time.
template <class Base>
class StageOn : public Base {
public:
    /// `base`: arguments for the constructor of the base class.
    template <class... Arguments>
    StageOn(const Scene& scene, SetSubject setSubject, Arguments&&... base)
        : Base(std::forward<Arguments>(base)...), path_(scene.path),
          setSubject_(std::move(setSubject)) {
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

    /// Whether the duration of a source has become known since the last call.
    bool takeNewDurations() { return std::exchange(newDurations_, false); }

private:
    void noteSounds(const Scene& scene);
    [[nodiscard]] std::string part(const char* kind, int id) const;
    [[nodiscard]] std::string subject(const Orvel::Source& source) const;

    std::string path_; // empty without a scene file
    SetSubject setSubject_;
    std::map<int, Where> sounds_; // origin of each source's sound, for messages
    bool newDurations_ = false;
};

extern template class StageOn<Orvel::World>;
extern template class StageOn<Orvel::Server>;

/// The world of a local scene.
using Stage = StageOn<Orvel::World>;

} // namespace Show

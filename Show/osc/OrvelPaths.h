#pragma once

#include <Show/osc/AdmPaths.h>
#include <Show/osc/OscEdits.h>
#include <Show/osc/OscFamily.h>

#include <Orvel/Emitter.h>
#include <Orvel/Source.h>
#include <Orvel/World.h>

#include <functional>

namespace Show {

/// The paths of Orvel's own, in scene units. Confined to the world's thread.
class OrvelPaths {
public:
    /// Subscribes the sender of the message being applied to changes, or unsubscribes it. Returns
    /// null, or why not.
    using Subscribe = std::function<OscExpected(bool subscribe)>;

    /// `edits` and `adm` must outlive it.
    OrvelPaths(const OscEdits& edits, AdmPaths& adm);
    OrvelPaths(const OrvelPaths&) = delete;
    OrvelPaths& operator=(const OrvelPaths&) = delete;

    /// Without it there is no subscription.
    void setSubscribe(Subscribe subscribe) { subscribe_ = std::move(subscribe); }

    [[nodiscard]] const OscFamily<Orvel::Emitter>& emitters() const { return emitterPaths_; }
    [[nodiscard]] const OscFamily<Orvel::Source>& sources() const { return sourcePaths_; }
    [[nodiscard]] const OscFamily<Orvel::World>& listener() const { return listenerPaths_; }
    [[nodiscard]] const OscFamily<Orvel::World>& world() const { return worldPaths_; }

private:
    OscFamily<Orvel::Emitter> emitterPaths();
    OscFamily<Orvel::Source> sourcePaths();
    OscFamily<Orvel::World> listenerPaths();
    OscFamily<Orvel::World> worldPaths();
    template <class Part>
    OscEntry<Part> stateEntry(const char* name, const char* meaning, OscEdits::State state);
    OscEntry<Orvel::World> subscriptionEntry(const char* name, const char* meaning, bool wanted);

    const OscEdits& edits_;
    AdmPaths& adm_;
    Subscribe subscribe_;
    const OscFamily<Orvel::Emitter> emitterPaths_;
    const OscFamily<Orvel::Source> sourcePaths_;
    const OscFamily<Orvel::World> listenerPaths_;
    const OscFamily<Orvel::World> worldPaths_;
};

} // namespace Show

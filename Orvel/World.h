#pragma once

#include <Orvel/Quaternion.h>
#include <Orvel/Vec3f.h>

#include <list>
#include <map>
#include <string>
#include <vector>

#include <orvel_export.h>

namespace Orvel {

class Backend;
class Emitter;
class Source;

/// The scene: its sources, its emitters and one listener, and the back ends that render it.
///
/// A change goes through a setter of a part, or of the world itself, then through the world's
/// operation of the same name, and from there to every back end in the order in which they were
/// added. A derived world intercepts any change by overriding that operation.
///
/// Confined: there are no locks, so a world, its parts and its back ends are used by one thread at
/// a time. The world owns neither parts nor back ends at its end: call `clearWorld()` and
/// `deleteAllBackends()` before it is destroyed. Failures give null and one log line.
class ORVEL_EXPORT World {
public:
    World();
    /// Exists only to report misuse: logs, and makes an empty world.
    World(const World& other);
    World& operator=(const World&) = delete;

    /// Destroys all parts, then tells every back end to drop what it holds.
    virtual void resetWorld();

    // Each of these tells every back end. The parts and the setters below call them; a host calls
    // one itself only to repeat a notification.
    virtual void setEnabled();
    virtual void setListenerTransform();
    virtual void createSource(Source& source);
    virtual void destroySource(Source& source);
    virtual void setSourceData(Source& source);
    virtual void setSourceParam(Source& source);
    /// A back end has measured the playing time of a source. Tells nobody; derived worlds override.
    virtual void setSourceDuration(Source& source);
    virtual void setSourceState(Source& source);
    virtual void createEmitter(Emitter& emitter);
    virtual void destroyEmitter(Emitter& emitter);
    virtual void setEmitterTransform(Emitter& emitter);
    virtual void setEmitterHull(Emitter& emitter);
    virtual void setEmitterParam(Emitter& emitter);
    virtual void setEmitterConnection(Emitter& emitter);
    virtual void setEmitterState(Emitter& emitter);

    /// Deletes every emitter, then every source, in ascending order of their ids.
    virtual void clearWorld();

    /// Logs a warning if parts are left, which then stay alive without a world.
    virtual ~World();

    /// Calls resetWorld().
    virtual void reset();

    /// The scene-wide switch, true at first. Setting it tells the back ends every time.
    virtual bool enabled();
    virtual void setEnabled(bool enabled);

    /// Whether emitters are spatial, true at first. Setting it tells nobody: back ends look
    /// at it when an emitter's transform or hull reaches them.
    virtual bool spatialize();
    virtual void setSpatialize(bool spatialize);

    virtual const Vec3f& listenerPosition();
    virtual const Quaternion& listenerRotation();
    /// Values within 1e-6 of the stored ones in every component count as equal; if all do, nothing
    /// happens.
    virtual void setListenerTransform(const Vec3f& position, const Quaternion& rotation);

    /// A new emitter, served by the back ends that share a label with it or have none (no labels:
    /// by all). Id 0 takes the next free one; sources and emitters share the counter. Null for an
    /// id that is taken. Destroy it with `delete`, or leave it to clearWorld().
    virtual Emitter* createEmitter(const std::vector<std::string>& labels = {}, int id = 0);
    /// The emitter with that id, or null.
    virtual Emitter* getEmitter(int id);

    /// A new source; the rules of createEmitter hold.
    virtual Source* createSource(int id = 0);
    /// The source with that id, or null.
    virtual Source* getSource(int id);

    /// Gives every back end a turn; to be called from the host's loop. Always true.
    virtual bool update();

    /// Makes a back end of a registered kind ("client", "log", "play", "silent", "openal", "web";
    /// "default" is "openal") with a parameter line (see Config::ParamLine; null is an empty one),
    /// appends it and replays the scene to it. Null for an unknown kind. The back end is owned by
    /// the host, which deletes it or calls deleteAllBackends().
    Backend* addBackend(const char* type, const char* params);

    /// Tells one back end the whole scene. Durations are not told. Ends with setEnabled() if the
    /// world is disabled and the listener has not moved since: moving it unmutes some back ends.
    void initBackendState(Backend& backend);

    /// Deletes the back ends, the first added first.
    void deleteAllBackends();

    /// Logs how many emitters, sources and back ends there are.
    void print();

    [[nodiscard]] const std::map<int, Emitter*>& emitters() const noexcept { return emitters_; }
    [[nodiscard]] const std::map<int, Source*>& sources() const noexcept { return sources_; }
    [[nodiscard]] const std::list<Backend*>& backends() const noexcept { return backends_; }

private:
    friend class Backend; // enter, leave
    friend class Emitter; // enter, leave
    friend class Source;  // enter, leave

    void enter(Backend& backend) { backends_.push_back(&backend); }
    void leave(Backend& backend) { backends_.remove(&backend); }
    void enter(Emitter& emitter);
    void leave(Emitter& emitter);
    void enter(Source& source);
    void leave(Source& source);

    /// The next id of the counter; 0 when it has wrapped.
    int nextId();

    int lastId_ = 0;
    bool enabled_ = true;
    bool spatialize_ = true;
    bool listenerMoved_ = false; // since enabled_ was set
    std::map<int, Emitter*> emitters_;
    Emitter* latest_ = nullptr; // that getEmitter() was asked for
    std::map<int, Source*> sources_;
    Vec3f listenerPosition_;
    Quaternion listenerRotation_;
    std::list<Backend*> backends_;
};

} // namespace Orvel

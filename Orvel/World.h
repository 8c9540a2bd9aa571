#pragma once

#include <Orvel/Quaternion.h>
#include <Orvel/Vec3f.h>

#include <array>
#include <cstddef>
#include <functional>
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
/// A setter of a part, or of the world itself, calls the world's operation of the same name, which
/// notifies every back end in the order in which they were added. A derived world intercepts any
/// change by overriding that operation.
///
/// Confined: there are no locks, so a world, its parts and its back ends are used by one thread at
/// a time. Only reading is safe on several threads, while none changes anything: reading stores
/// nothing, look-ups included. The destructor deletes neither parts nor back ends: call
/// `clearWorld()` and `deleteAllBackends()` before. Failures return null and write one log line.
class ORVEL_EXPORT World {
public:
    World();
    /// Only reports misuse: logs, and creates an empty world.
    World(const World& other);
    World& operator=(const World&) = delete;

    /// Destroys all parts, then has every back end release everything.
    virtual void resetWorld();

    // Each of these notifies every back end. The setters of the parts and those below call them; a
    // host calls one only to repeat a notification.
    virtual void setEnabled();
    virtual void setListenerTransform();
    virtual void createSource(Source& source);
    virtual void destroySource(Source& source);
    virtual void setSourceData(Source& source);
    virtual void setSourceParam(Source& source);
    /// A back end has measured the duration of a source. Notifies no back end; for derived worlds.
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

    /// Logs a warning if parts are left; they stay alive without a world.
    virtual ~World();

    /// Calls resetWorld().
    virtual void reset();

    /// Whether the scene is audible; initially true. Setting it always notifies the back ends.
    virtual bool enabled();
    virtual void setEnabled(bool enabled);

    /// Whether emitters are spatial; initially true. Setting it notifies no one: back ends read it
    /// at the next change of an emitter's transform or hull.
    virtual bool spatialize();
    virtual void setSpatialize(bool spatialize);

    virtual const Vec3f& listenerPosition();
    virtual const Quaternion& listenerRotation();
    /// If every component is within 1e-6 of the stored value, the call has no effect.
    virtual void setListenerTransform(const Vec3f& position, const Quaternion& rotation);

    /// Creates an emitter, served by the back ends that share a label with it or have none (without
    /// labels: by all). Id 0 takes the next free one; sources and emitters share the counter.
    /// Returns null if the id is in use. Destroy it with `delete`, or leave it to clearWorld().
    virtual Emitter* createEmitter(const std::vector<std::string>& labels = {}, int id = 0);
    /// The emitter with that id, or null.
    virtual Emitter* getEmitter(int id);

    /// Creates a source; the rules of createEmitter apply.
    virtual Source* createSource(int id = 0);
    /// The source with that id, or null.
    virtual Source* getSource(int id);

    /// Calls update() of every back end; call it from the host's loop. Always true.
    virtual bool update();

    /// Creates a back end of a registered kind ("client", "log", "play", "silent", "openal", "web";
    /// "default" is "openal") with a parameter line (see Config::ParamLine; null is an empty one),
    /// appends it and replays the scene to it. Returns null for an unknown kind. The host owns the
    /// back end and deletes it or calls deleteAllBackends().
    Backend* addBackend(const char* type, const char* params);

    /// Replays the whole scene to one back end, except durations. Ends with setEnabled() if the
    /// world is disabled and the listener has not moved since, because moving it unmutes some back
    /// ends.
    void initBackendState(Backend& backend);

    /// Replaces the scene by the result of `change`. The back ends receive none of its steps: they
    /// release everything before it, and receive the whole scene after it, as initBackendState()
    /// replays it. Those for which `follows` is true receive the steps as well. Not inside
    /// update().
    void replaceScene(
        const std::function<void()>& change,
        const std::function<bool(const Backend& backend)>& follows);

    /// Deletes the back ends in the order in which they were added.
    void deleteAllBackends();

    /// Logs the number of emitters, sources and back ends.
    void print();

    [[nodiscard]] const std::map<int, Emitter*>& emitters() const noexcept {
        return emitters_.all();
    }
    [[nodiscard]] const std::map<int, Source*>& sources() const noexcept { return sources_.all(); }
    [[nodiscard]] const std::list<Backend*>& backends() const noexcept { return backends_; }

private:
    friend class Backend; // enter, leave
    friend class Emitter; // enter, leave, moves_
    friend class Source;  // enter, leave

    /// The parts of one type by their ids. Small ids, which are those of every received event, are
    /// found in a table.
    template <class Part>
    class Parts {
    public:
        void enter(int id, Part& part);
        void leave(int id);
        [[nodiscard]] Part* find(int id) const;
        [[nodiscard]] const std::map<int, Part*>& all() const noexcept { return all_; }

    private:
        static constexpr std::size_t kMaxTable = 65536;

        std::map<int, Part*> all_;
        std::vector<Part*> table_; // by id, up to the largest so far below kMaxTable
    };

    /// The latest moves of emitters, for Emitter::fetchLater().
    struct Moves {
        std::array<Emitter*, 8> latest{};
        std::array<const Emitter*, 8> fetched{}; // some may be gone
        unsigned count = 0;
        bool isFrameNew = false;
    };

    void enter(Backend& backend);
    void leave(Backend& backend);
    void enter(Emitter& emitter);
    void leave(Emitter& emitter);
    void enter(Source& source);
    void leave(Source& source);

    /// The next id of the counter; 0 after it has wrapped.
    int nextId();

    int lastId_ = 0;
    bool enabled_ = true;
    bool spatialize_ = true;
    bool listenerMoved_ = false; // since enabled_ was set
    Parts<Emitter> emitters_;
    Parts<Source> sources_;
    Moves moves_;
    Vec3f listenerPosition_;
    Quaternion listenerRotation_;
    std::list<Backend*> backends_;
    std::list<Backend*> notified_; // the same, except during replaceScene()
};

} // namespace Orvel

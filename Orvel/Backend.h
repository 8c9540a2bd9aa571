#pragma once

#include <Config/ParamLine.h>

#include <memory>
#include <string>
#include <vector>

#include <orvel_export.h>

namespace Orvel {

class BackendType;
class Emitter;
class Source;
class World;

/// What receives every change of a world. Each kind derives from it, carries a static
/// `BackendType _type` with its name, and a static `createMethod` that the registry calls.
///
/// The notifications say what changed, not how: a back end reads the current values from the world
/// or the part it is handed, and never changes the scene. It must not be deleted from within one.
/// Confined: everything is called on the thread that changes the world at that time.
///
/// Owned by the host; it enters its world's list in its base constructor and leaves it in its
/// destructor, so the world must outlive it. Nothing here can fail: what goes wrong is logged.
class ORVEL_EXPORT Backend {
public:
    /// Parses the parameter line (null is an empty one; see Config::ParamLine), takes the labels
    /// from the parameter "labels", separated by commas, and appends the back end to the world's
    /// list. A malformed line is reported, and what stood before the fault is used.
    Backend(World& world, const char* params);
    /// Exists only to report misuse: logs, and makes a back end that is in no list.
    Backend(const Backend& other);
    Backend& operator=(const Backend&) = delete;

    virtual void resetBackend() = 0; ///< the world was cleared: drop all that is held for it
    virtual void setEnabled() = 0;   ///< read World::enabled()
    virtual void setListenerTransform() = 0;
    virtual void createSource(Source& source) = 0;
    virtual void destroySource(Source& source) = 0;
    virtual void setSourceData(Source& source) = 0;
    virtual void setSourceParam(Source& source) = 0;
    virtual void setSourceState(Source& source) = 0;
    virtual void createEmitter(Emitter& emitter) = 0;
    virtual void destroyEmitter(Emitter& emitter) = 0;
    virtual void setEmitterTransform(Emitter& emitter) = 0;
    virtual void setEmitterHull(Emitter& emitter) = 0;
    virtual void setEmitterParam(Emitter& emitter) = 0;
    virtual void setEmitterConnection(Emitter& emitter) = 0;
    virtual void setEmitterState(Emitter& emitter) = 0;

    virtual ~Backend();

    /// True; for kinds that can be switched off.
    virtual bool enabled();
    /// Called by World::update(), from the host's loop; must not block.
    virtual bool update();
    /// The kind's record in the registry.
    virtual BackendType* type() = 0;

    /// Whether this back end serves an emitter: they share a label, or one of them has none. The
    /// world tells every back end of every emitter; kinds that filter do so in createEmitter.
    [[nodiscard]] bool hasSameLabel(Emitter& emitter) const;

    /// For a back end that has learnt how long a source plays, in seconds: stores the time in the
    /// source and tells the world.
    void setSourceDuration(Source& source, float duration);

    [[nodiscard]] World& world() const noexcept { return world_; }
    [[nodiscard]] const std::vector<std::string>& labels() const noexcept { return labels_; }
    /// The parameters, owned by the back end; null in a copy.
    [[nodiscard]] Config::ParamLine* params() const noexcept { return params_.get(); }

private:
    World& world_;
    bool enabled_ = true;
    std::vector<std::string> labels_;
    std::unique_ptr<Config::ParamLine> params_;
};

} // namespace Orvel

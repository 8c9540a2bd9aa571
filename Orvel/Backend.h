#pragma once

#include <Config/ParamLine.h>

#include <memory>
#include <string>
#include <vector>

#include <orvel_export.h>

namespace Orvel {

class BackendType;
struct BackendState;
class Emitter;
class Source;
class World;

/// Receives every change of a world. Each kind derives from it and has a static `BackendType _type`
/// with its name and a static `createMethod` for the registry.
///
/// Notifications carry no values: a back end reads them from the world or the part, and never
/// changes the scene. Do not delete a back end from within a notification. Confined: all calls come
/// from the thread that uses the world at that time.
///
/// Owned by the host. The base constructor adds it to its world's list and the destructor removes
/// it, so the world must outlive it. Operations cannot fail; failures are logged.
class ORVEL_EXPORT Backend {
public:
    /// Parses the parameter line (null is an empty one; see Config::ParamLine), reads the labels
    /// from the parameter "labels", separated by commas, and appends the back end to the world's
    /// list. A malformed line is reported, and the part before the error is used.
    Backend(World& world, const char* params);
    /// Only reports misuse: logs, and creates a back end that is in no list.
    Backend(const Backend& other);
    Backend& operator=(const Backend&) = delete;

    virtual void resetBackend() = 0; ///< the world was cleared: release everything
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

    /// Always true here; for kinds that can be disabled.
    virtual bool enabled();
    /// Called by World::update() from the host's loop. Must not block.
    virtual bool update();
    /// The kind's record in the registry.
    virtual BackendType* type() = 0;
    /// The state: whether it works, its resources in use, and its failures. Kinds that can fail
    /// override it; by default a working one without details. May allocate; not for a setter's
    /// path.
    [[nodiscard]] virtual BackendState state() const;

    /// Whether this back end serves an emitter: they share a label, or one of them has none. The
    /// world notifies every back end of every emitter; kinds that filter do so in createEmitter.
    [[nodiscard]] bool hasSameLabel(Emitter& emitter) const;

    /// Called by a back end that has measured a source: stores the duration, in seconds, in the
    /// source and notifies the world.
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

#pragma once

#include <Orvel/CommandEvent.h>
#include <Orvel/Emitter.h>
#include <Orvel/Source.h>
#include <Orvel/World.h>

#include <functional>

namespace Show {

/// Changes of a world as the events that a client would send, so that they are recorded and can be
/// refused as any other. The world must outlive it. Confined to the world's thread.
class OscEdits {
public:
    /// Applies an event to the world.
    using Apply = std::function<void(Orvel::CommandEvent&)>;
    using State = Orvel::WorldPart::State;

    OscEdits(Orvel::World& world, Apply apply);

    [[nodiscard]] Orvel::World& world() const { return world_; }

    void create(int emitter, const std::vector<std::string>& labels) const;
    void destroy(const Orvel::Emitter& emitter) const;
    void move(const Orvel::Emitter& emitter, const Orvel::Vec3f& place) const;
    void rotate(const Orvel::Emitter& emitter, const Orvel::Quaternion& rotation) const;
    void setHull(const Orvel::Emitter& emitter, const Orvel::Hull& hull) const;
    void setGain(const Orvel::Emitter& emitter, float gain) const;
    void setValue(const Orvel::Emitter& emitter, float value) const;
    void setParam(const Orvel::Source& source, bool loop, float pitch) const;

    // The steps of Orvel/SceneEdits.h.
    void setSource(const Orvel::Emitter& emitter, const Orvel::Source* source) const;
    void setState(const Orvel::Emitter& emitter, State state) const;
    void setState(const Orvel::Source& source, State state) const;
    void setEnabled(const Orvel::World& world, bool enabled) const;
    void setListenerTransform(
        const Orvel::World& world, const Orvel::Vec3f& place,
        const Orvel::Quaternion& rotation) const;

private:
    void send(short command, int id) const;

    Orvel::World& world_;
    Apply apply_;
};

} // namespace Show

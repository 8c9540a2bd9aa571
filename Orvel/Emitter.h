#pragma once

#include <Orvel/Hull.h>
#include <Orvel/Quaternion.h>
#include <Orvel/Vec3f.h>
#include <Orvel/WorldPart.h>

#include <string>
#include <vector>

#include <orvel_export.h>

namespace Orvel {

class Source;

/// A sound's place in space: its transform, range and gain, and the source it plays. Created by
/// `World::createEmitter`. No setter checks the range of its values.
///
/// Confined to one thread at a time, together with its world. Its destructor disconnects it from
/// its source, then notifies the back ends.
/// Aligned, so that a move touches one cache line. (With ORVEL_EXPORT, alignas does not parse.)
class ORVEL_EXPORT __attribute__((aligned(64))) Emitter : public WorldPart {
public:
    /// Adds itself to the world's map, in place of any emitter with that id, and notifies no back
    /// end; hosts call World::createEmitter instead.
    Emitter(World& world, int id, const std::vector<std::string>& labels);
    Emitter(const Emitter&) = delete;
    Emitter& operator=(const Emitter&) = delete;
    ~Emitter() override;

    /// Also sets the state of the connected source, and through it of the source's other emitters.
    void setState(State state) override;

    /// Sets position and rotation; a null pointer leaves that one unchanged. If every component is
    /// within 1e-6 of the stored value, the call has no effect.
    void setTransform(const Vec3f* position, const Quaternion* rotation);

    /// Sets the range of the sound. Always notifies the back ends.
    void setHull(const Hull& hull);
    void setHull(float maxBack, float maxFront, float minBack, float minFront);

    /// Sets the radius of the sound, in scene units; initially 0, a point. It is heard as wide as a
    /// ball of that size, and from all sides inside it; its level does not change. Notifies the
    /// back ends as setHull() does. It is not sent to other machines, and only OpenAL back ends use
    /// it.
    void setRadius(float radius);

    /// `paramFlag`: whether the sound is spatial (false: heard at the listener). `paramValue`: a
    /// value of the host's own, passed on. `gain`: linear, 1 being the recorded level. Always
    /// notifies the back ends.
    void setParam(bool paramFlag, float paramValue, float gain);

    /// Connects to a source of the same world, or disconnects (null). Neither state changes;
    /// rendering stops until the next change of state.
    void setSource(Source* source);

    /// The offset at which the sound starts each time it is played, in seconds of the sound;
    /// initially 0. For a host that enters a scene in the middle. Notifies no one and is not sent
    /// to other machines; only OpenAL back ends use it. Beyond the end, a sound that does not loop
    /// stays silent.
    void setStartOffset(double seconds) noexcept { startOffset_ = seconds; }

    [[nodiscard]] const Vec3f& position() const noexcept { return position_; }
    [[nodiscard]] const Quaternion& rotation() const noexcept { return rotation_; }
    [[nodiscard]] const Hull& hull() const noexcept { return hull_; }
    [[nodiscard]] float maxBack() const noexcept { return hull_.maxBack; }
    [[nodiscard]] float maxFront() const noexcept { return hull_.maxFront; }
    [[nodiscard]] float minBack() const noexcept { return hull_.minBack; }
    [[nodiscard]] float minFront() const noexcept { return hull_.minFront; }
    [[nodiscard]] float radius() const noexcept { return radius_; }
    [[nodiscard]] float gain() const noexcept { return gain_; }
    [[nodiscard]] float paramValue() const noexcept { return paramValue_; }
    [[nodiscard]] bool paramFlag() const noexcept { return paramFlag_; }
    /// Whether it is heard at its position: both the emitter and its world are spatial.
    [[nodiscard]] bool isSpatial() const;
    /// The connected source, not owned; null when there is none.
    [[nodiscard]] Source* source() const noexcept { return source_; }
    [[nodiscard]] double startOffset() const noexcept { return startOffset_; }
    [[nodiscard]] const std::vector<std::string>& labels() const noexcept { return labels_; }

private:
    void fetchLater();

    // Up to later_, the line that a move touches.
    bool paramFlag_ = true;
    Vec3f position_;
    Quaternion rotation_;
    float radius_ = 0.0F;
    const Emitter* later_ = nullptr; // moved some places later the last time; may be gone
    Hull hull_;
    float gain_ = 1.0F;
    float paramValue_ = 0.0F;
    double startOffset_ = 0.0;
    Source* source_ = nullptr;
    std::vector<std::string> labels_;
};

} // namespace Orvel

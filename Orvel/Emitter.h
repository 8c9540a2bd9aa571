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

/// A spatial sound: where it stands, how far it reaches, how loud it is, and the source it plays.
/// Made by `World::createEmitter`. No setter checks the range of its values.
///
/// Confined to one thread at a time, together with its world. Destroying it first disconnects it
/// from its source, then tells the back ends.
class ORVEL_EXPORT Emitter : public WorldPart {
public:
    /// Enters the world's map, in place of any emitter with that id, and tells no back end; hosts
    /// call World::createEmitter instead.
    Emitter(World& world, int id, const std::vector<std::string>& labels);
    Emitter(const Emitter&) = delete;
    Emitter& operator=(const Emitter&) = delete;
    ~Emitter() override;

    /// Also sets the state of the connected source, and through it of the source's other emitters.
    void setState(State state) override;

    /// Moves and turns the emitter; a null pointer leaves that half as it is. Values within 1e-6 of
    /// the stored ones in every component count as equal; if nothing changes, nobody is told.
    void setTransform(const Vec3f* position, const Quaternion* rotation);

    /// How far the emitter is heard. Always tells the back ends.
    void setHull(const Hull& hull);
    void setHull(float maxBack, float maxFront, float minBack, float minFront);

    /// `paramFlag` says whether the sound is spatial (false: it is heard at the listener);
    /// `paramValue` is the host's own, carried along; `gain` is linear, 1 as recorded. Always tells
    /// the back ends.
    void setParam(bool paramFlag, float paramValue, float gain);

    /// Connects to a source of the same world, or disconnects (null). Neither part's state changes;
    /// rendering stops until the next change of state.
    void setSource(Source* source);

    /// Where the sound begins each time that it is told to play, in seconds of the sound; 0 at
    /// first. It is for a host that comes into a scene in the middle. Tells nobody, is not sent to
    /// other machines, and back ends other than OpenAL pay no heed to it. Beyond the end a sound
    /// that does not loop stays silent.
    void setStartOffset(double seconds) noexcept { startOffset_ = seconds; }

    [[nodiscard]] const Vec3f& position() const noexcept { return position_; }
    [[nodiscard]] const Quaternion& rotation() const noexcept { return rotation_; }
    [[nodiscard]] const Hull& hull() const noexcept { return hull_; }
    [[nodiscard]] float maxBack() const noexcept { return hull_.maxBack; }
    [[nodiscard]] float maxFront() const noexcept { return hull_.maxFront; }
    [[nodiscard]] float minBack() const noexcept { return hull_.minBack; }
    [[nodiscard]] float minFront() const noexcept { return hull_.minFront; }
    [[nodiscard]] float gain() const noexcept { return gain_; }
    [[nodiscard]] float paramValue() const noexcept { return paramValue_; }
    [[nodiscard]] bool paramFlag() const noexcept { return paramFlag_; }
    /// Whether it is heard where it stands: the emitter and its world are spatial.
    [[nodiscard]] bool isSpatial() const;
    /// The connected source, not owned; null when there is none.
    [[nodiscard]] Source* source() const noexcept { return source_; }
    [[nodiscard]] double startOffset() const noexcept { return startOffset_; }
    [[nodiscard]] const std::vector<std::string>& labels() const noexcept { return labels_; }

private:
    Vec3f position_;
    Quaternion rotation_;
    Hull hull_;
    float gain_ = 1.0F;
    float paramValue_ = 0.0F;
    bool paramFlag_ = true;
    double startOffset_ = 0.0;
    Source* source_ = nullptr;
    std::vector<std::string> labels_;
};

} // namespace Orvel

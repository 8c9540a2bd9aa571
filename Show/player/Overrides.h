#pragma once

#include <Orvel/Emitter.h>
#include <Orvel/Quaternion.h>
#include <Orvel/Vec3f.h>
#include <Orvel/World.h>

#include <map>
#include <optional>

namespace Show {

/// The values of a part that are set by hand. Of the listener only position and rotation count.
struct Override {
    std::optional<Orvel::Vec3f> position;
    std::optional<Orvel::Quaternion> rotation;
    std::optional<float> gain;
    bool muted = false;
    bool solo = false; ///< all emitters without it are silent while any has it

    bool operator==(const Override&) const = default;
    [[nodiscard]] bool empty() const { return *this == Override(); }
};

/// Values set by hand, which a timeline does not change until they are released. The timeline
/// passes its values through here: those of overridden properties are kept, and take effect when
/// the property is released. Overrides are kept while their emitter is not there, so they survive a
/// restart.
///
/// The world must outlive it. Confined to the world's thread.
class Overrides {
public:
    /// The id of the listener.
    static constexpr int kListener = 0;

    explicit Overrides(Orvel::World& world) : world_(world) {}

    // For the timeline: its own values, and where it sets them.
    [[nodiscard]] Orvel::Vec3f position(const Orvel::Emitter& emitter) const;
    [[nodiscard]] Orvel::Quaternion rotation(const Orvel::Emitter& emitter) const;
    [[nodiscard]] float gain(const Orvel::Emitter& emitter) const;
    [[nodiscard]] Orvel::Vec3f listenerPosition() const;
    [[nodiscard]] Orvel::Quaternion listenerRotation() const;
    void setTransform(
        Orvel::Emitter& emitter, const Orvel::Vec3f& position, const Orvel::Quaternion& rotation);
    void setParam(Orvel::Emitter& emitter, bool spatial, float value, float gain);
    void moveListener(const Orvel::Vec3f& position, const Orvel::Quaternion& rotation);
    /// All emitters are about to be destroyed.
    void forgetEmitters();

    // For the hand.
    /// Those of an emitter, or of kListener.
    [[nodiscard]] Override get(int id) const;
    /// Sets them, and releases the properties that are not in it.
    void set(int id, const Override& override);
    [[nodiscard]] std::map<int, Override> all() const;

private:
    /// A part with the timeline's values for its overridden properties, as far as it has any.
    struct Entry {
        Override hand;
        std::optional<Orvel::Vec3f> position;
        std::optional<Orvel::Quaternion> rotation;
        std::optional<float> gain;
    };

    [[nodiscard]] const Entry* find(int id) const;
    /// The entry of an emitter if it needs one, or null.
    Entry* entryOf(const Orvel::Emitter& emitter);
    [[nodiscard]] bool isSilent(const Override& hand) const {
        return hand.muted || (solos_ > 0 && !hand.solo);
    }
    void applyGain(Orvel::Emitter& emitter, Entry& entry) const;
    void removeUnused();

    Orvel::World& world_;
    std::map<int, Entry> entries_; // while an emitter has solo, of all emitters
    int solos_ = 0;
};

} // namespace Show

#pragma once

#include <Orvel/CommandEvent.h>
#include <Orvel/Emitter.h>
#include <Orvel/Source.h>
#include <Orvel/World.h>

#include <functional>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Show {

/// Applies Open Sound Control messages to a world; docs/osc.md lists them. Changes are made by the
/// same events that a client would send. The world must outlive it. Confined to the world's thread.
class OscScene {
public:
    /// Applies an event to the world.
    using Apply = std::function<void(Orvel::CommandEvent&)>;
    using Numbers = std::span<const float>;

    /// `scale`: scene units per normalised unit.
    OscScene(Orvel::World& world, float scale, Apply apply);

    /// Applies the bytes of one message. Returns an error message with its path, or an empty text.
    std::string take(std::span<const std::byte> message);

private:
    struct Polar {
        float azimuth = 0.0F;
        float elevation = 0.0F;
        float distance = 0.0F;
        Orvel::Vec3f place; // the resulting position
    };
    using State = Orvel::WorldPart::State;
    /// Null, or the expected form of the message.
    using Expected = const char*;
    template <class Part>
    struct Entry {
        std::string_view name;
        std::size_t numbers; ///< required count
        Expected (OscScene::*take)(Part& part, Numbers numbers);
    };
    static const std::vector<Entry<Orvel::Emitter>> _admPaths;
    static const std::vector<Entry<Orvel::Emitter>> _emitterPaths;
    static const std::vector<Entry<Orvel::Source>> _sourcePaths;
    static const std::vector<Entry<Orvel::World>> _admListenerPaths;
    static const std::vector<Entry<Orvel::World>> _listenerPaths;
    static const std::vector<Entry<Orvel::World>> _worldPaths;

    struct Message {
        std::vector<std::string_view> words; ///< of the path
        std::vector<float> numbers;
        std::vector<std::string> texts;
    };

    std::string dispatch(const Message& message);
    std::string create(const Message& message);
    template <class Part>
    std::string dispatch(
        const std::vector<Entry<Part>>& paths, std::string_view name, Part& part, Numbers numbers);
    template <class Part>
    std::string dispatchToParts(
        const std::vector<Entry<Part>>& paths, const std::map<int, Part*>& parts, const char* kind,
        const Message& message);

    // Paths of ADM-OSC.
    Expected admXyz(Orvel::Emitter& emitter, Numbers n);
    template <std::size_t axis>
    Expected admAxis(Orvel::Emitter& emitter, Numbers n);
    Expected admAed(Orvel::Emitter& emitter, Numbers n);
    template <float Polar::*member>
    Expected admPolar(Orvel::Emitter& emitter, Numbers n);
    Expected admMute(Orvel::Emitter& emitter, Numbers n);
    Expected admListenerXyz(Orvel::World& world, Numbers n);
    // Orvel's own paths.
    Expected position(Orvel::Emitter& emitter, Numbers n);
    Expected orientation(Orvel::Emitter& emitter, Numbers n);
    Expected gain(Orvel::Emitter& emitter, Numbers n);
    Expected value(Orvel::Emitter& emitter, Numbers n);
    Expected hull(Orvel::Emitter& emitter, Numbers n);
    Expected source(Orvel::Emitter& emitter, Numbers n);
    Expected destroy(Orvel::Emitter& emitter, Numbers n);
    template <State state, class Part>
    Expected setState(Part& part, Numbers n);
    Expected pitch(Orvel::Source& source, Numbers n);
    Expected loop(Orvel::Source& source, Numbers n);
    Expected listenerPosition(Orvel::World& world, Numbers n);
    Expected listenerOrientation(Orvel::World& world, Numbers n);
    Expected enabled(Orvel::World& world, Numbers n);

    struct EventSteps;

    void send(short command, int id);
    void move(Orvel::Emitter& emitter, const Orvel::Vec3f& place);
    void rotate(Orvel::Emitter& emitter, const Orvel::Quaternion& rotation);
    void setGain(Orvel::Emitter& emitter, float gain);
    void setPolar(Orvel::Emitter& emitter, Polar polar);
    [[nodiscard]] bool muted(const Orvel::Emitter& emitter) const;
    [[nodiscard]] Orvel::Vec3f fromAdm(float x, float y, float z) const;

    Orvel::World& world_;
    float scale_;
    Apply apply_;
    std::map<int, Polar> polar_; // of emitters placed by such messages, by id
    std::map<int, float> gains_; // gains to restore when unmuted, by id
};

} // namespace Show

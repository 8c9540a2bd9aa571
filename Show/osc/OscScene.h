#pragma once

#include <Show/osc/OscAnswer.h>

#include <Orvel/CommandEvent.h>
#include <Orvel/Emitter.h>
#include <Orvel/Source.h>
#include <Orvel/World.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Show {

/// Applies Open Sound Control messages to a world, and answers queries; docs/osc.md lists them.
/// Changes are made by the same events that a client would send. The world must outlive it.
/// Confined to the world's thread.
class OscScene {
public:
    /// Applies an event to the world.
    using Apply = std::function<void(Orvel::CommandEvent&)>;
    /// Receives the name of `/adm/env/change`.
    using Change = std::function<void(const std::string& name)>;
    /// Subscribes the sender of the message being applied to changes, or unsubscribes it. Returns
    /// null, or why not.
    using Subscribe = std::function<const char*(bool subscribe)>;
    enum class PartKind { Emitter, Source, World };
    /// Called before a message changes a part, which may not exist yet.
    using Touch = std::function<void(PartKind kind, int id)>;
    using Numbers = std::span<const float>;
    /// Names one value that is sent to subscribers.
    using Key = std::uint64_t;
    using Visit = std::function<void(Key key, OscValues values)>;

    /// Limit of the answers to one message.
    static constexpr std::size_t kMaxAnswers = 1024;
    /// Limit of the emitters that their first message has created.
    static constexpr std::size_t kMaxAppeared = 1024;
    /// Limit of names, in characters.
    static constexpr std::size_t kMaxName = 128;

    /// `scale`: scene units per normalised unit.
    OscScene(Orvel::World& world, float scale, Apply apply, Change change = {});

    /// Applies the bytes of one message, and appends the answers if it is a query. Returns an error
    /// message with its path, or an empty text.
    std::string take(std::span<const std::byte> message, std::vector<OscAnswer>& answers);

    /// The hooks of subscribers; without them there is no subscription.
    void setHooks(Subscribe subscribe, Touch touch);
    /// Visits the values that are sent to subscribers: those of all parts, or of one if it exists.
    void visit(const Visit& visit);
    void visit(PartKind kind, int id, const Visit& visit);
    [[nodiscard]] std::string pathOf(Key key) const;

private:
    struct Polar {
        float azimuth = 0.0F;
        float elevation = 0.0F;
        float distance = 0.0F;
        Orvel::Vec3f place; // the resulting position
    };
    /// The properties of an object in ADM-OSC that its emitter does not have.
    struct Object {
        std::optional<Polar> polar; ///< if such a message has placed it
        std::optional<float> gain;  ///< to restore when unmuted
        float width = 0.0F;
        std::optional<float> unit; ///< scene units per normalised unit, if its own
        std::string name;
    };
    using State = Orvel::WorldPart::State;
    /// Null, or the expected form of the message.
    using Expected = const char*;
    /// A path of one part.
    template <class Part>
    struct Entry {
        std::string_view name;
        std::size_t numbers; ///< required count
        Expected (OscScene::*take)(Part& part, Numbers numbers);
        OscValues (OscScene::*read)(Part& part) const = nullptr; ///< null: not to be queried
        bool sent = false;                                       ///< to subscribers
        void (OscScene::*write)(Part& part, std::string text) = nullptr; ///< instead of `take`
    };
    template <class Part>
    struct Family {
        std::string_view prefix; ///< of the paths, before the id if the parts have one
        std::vector<Entry<Part>> entries;
    };
    static const Family<Orvel::Emitter> _adm;
    static const Family<Orvel::Emitter> _emitter;
    static const Family<Orvel::Source> _source;
    static const Family<Orvel::World> _admListener;
    static const Family<Orvel::World> _admScene;
    static const Family<Orvel::World> _listener;
    static const Family<Orvel::World> _world;

    struct Message {
        std::vector<std::string_view> words; ///< of the path
        std::vector<float> numbers;
        std::vector<std::string> texts;
        std::vector<OscAnswer>* answers;

        [[nodiscard]] bool isQuery() const { return numbers.empty() && texts.empty(); }
    };
    /// The outcome of a message for the paths that it names.
    struct Outcome {
        bool taken = false;
        std::string fault; ///< if it has a meaning for none
    };

    template <class Part>
    void visit(
        const Family<Part>& family, std::uint64_t number, int id, Part& part,
        const Visit& visit) const;
    void touch(PartKind kind, int id) const;
    std::string dispatch(const Message& message);
    std::string create(const Message& message);
    /// `id`: of the part, or 0 if its paths have none.
    template <class Part>
    Outcome take(const Family<Part>& family, int id, Part& part, const Message& message);
    template <class Part>
    void takeParts(
        const Family<Part>& family, const std::map<int, Part*>& parts, const char* kind,
        const Message& message, Outcome& outcome);
    void takeWorld(const Family<Orvel::World>& family, const Message& message, Outcome& outcome);
    /// Creates the emitter of an object for its first message. Returns why not, or an empty text.
    std::string appear(int id, const Message& message);

    // Paths of ADM-OSC.
    template <std::size_t first, std::size_t count>
    Expected admPlace(Orvel::Emitter& emitter, Numbers n);
    template <std::size_t first, std::size_t count>
    OscValues readPlace(Orvel::Emitter& emitter) const;
    Expected admAed(Orvel::Emitter& emitter, Numbers n);
    OscValues readAed(Orvel::Emitter& emitter) const;
    template <float Polar::*member>
    Expected admPolar(Orvel::Emitter& emitter, Numbers n);
    template <float Polar::*member>
    OscValues readPolar(Orvel::Emitter& emitter) const;
    Expected admGain(Orvel::Emitter& emitter, Numbers n);
    OscValues readGain(Orvel::Emitter& emitter) const;
    Expected admMute(Orvel::Emitter& emitter, Numbers n);
    OscValues readMute(Orvel::Emitter& emitter) const;
    Expected admWidth(Orvel::Emitter& emitter, Numbers n);
    OscValues readWidth(Orvel::Emitter& emitter) const;
    Expected admReference(Orvel::Emitter& emitter, Numbers n);
    OscValues readReference(Orvel::Emitter& emitter) const;
    Expected admUnit(Orvel::Emitter& emitter, Numbers n);
    OscValues readUnit(Orvel::Emitter& emitter) const;
    void setName(Orvel::Emitter& emitter, std::string name);
    OscValues readName(Orvel::Emitter& emitter) const;
    Expected admListenerXyz(Orvel::World& world, Numbers n);
    OscValues readAdmListener(Orvel::World& world) const;
    Expected admListenerYpr(Orvel::World& world, Numbers n);
    OscValues readAngles(Orvel::World& world) const;
    void changeTo(Orvel::World& world, std::string name);
    OscValues readChange(Orvel::World& world) const;
    // Orvel's own paths.
    Expected position(Orvel::Emitter& emitter, Numbers n);
    OscValues readPosition(Orvel::Emitter& emitter) const;
    Expected orientation(Orvel::Emitter& emitter, Numbers n);
    OscValues readOrientation(Orvel::Emitter& emitter) const;
    Expected gain(Orvel::Emitter& emitter, Numbers n);
    Expected value(Orvel::Emitter& emitter, Numbers n);
    OscValues readValue(Orvel::Emitter& emitter) const;
    Expected hull(Orvel::Emitter& emitter, Numbers n);
    OscValues readHull(Orvel::Emitter& emitter) const;
    Expected source(Orvel::Emitter& emitter, Numbers n);
    OscValues readSource(Orvel::Emitter& emitter) const;
    Expected destroy(Orvel::Emitter& emitter, Numbers n);
    template <State state, class Part>
    Expected setState(Part& part, Numbers n);
    Expected pitch(Orvel::Source& source, Numbers n);
    OscValues readPitch(Orvel::Source& source) const;
    Expected loop(Orvel::Source& source, Numbers n);
    OscValues readLoop(Orvel::Source& source) const;
    Expected listenerPosition(Orvel::World& world, Numbers n);
    OscValues readListenerPosition(Orvel::World& world) const;
    Expected listenerOrientation(Orvel::World& world, Numbers n);
    OscValues readListenerOrientation(Orvel::World& world) const;
    Expected enabled(Orvel::World& world, Numbers n);
    OscValues readEnabled(Orvel::World& world) const;
    template <bool wanted>
    Expected subscribe(Orvel::World& world, Numbers n);

    struct EventSteps;

    void send(short command, int id);
    void move(Orvel::Emitter& emitter, const Orvel::Vec3f& place);
    void rotate(Orvel::Emitter& emitter, const Orvel::Quaternion& rotation);
    void setGain(Orvel::Emitter& emitter, float gain);
    void setPolar(Orvel::Emitter& emitter, Polar polar);
    [[nodiscard]] bool muted(const Orvel::Emitter& emitter) const;
    void setReach(Orvel::Emitter& emitter, float reference);
    [[nodiscard]] const Object* find(int id) const;
    [[nodiscard]] float unitOf(const Orvel::Emitter& emitter) const;
    [[nodiscard]] float referenceOf(const Orvel::Emitter& emitter) const;
    [[nodiscard]] Polar polarOf(const Orvel::Emitter& emitter) const;

    Orvel::World& world_;
    float scale_;
    Apply apply_;
    Change change_;
    Subscribe subscribe_;
    Touch touch_;
    std::string lastChange_;
    std::map<int, Object> objects_; // by the emitter's id, if it has such properties
    std::set<int> appeared_;        // emitters that their first message has created
};

} // namespace Show

#pragma once

#include <Show/osc/AdmPaths.h>
#include <Show/osc/CuePaths.h>
#include <Show/osc/OrvelPaths.h>
#include <Show/osc/OscAnswer.h>
#include <Show/osc/OscEdits.h>
#include <Show/osc/OscFamily.h>
#include <Show/osc/OscMessage.h>
#include <Show/osc/OscMethod.h>

#include <Orvel/World.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace Show {

/// Applies Open Sound Control messages to a world, and answers queries; docs/osc.md lists them.
/// Finds the paths that a message names; AdmPaths and OrvelPaths give them their meaning. The world
/// must outlive it. Confined to the world's thread.
class OscScene {
public:
    enum class PartKind { Emitter, Source, World };
    /// Called before a message changes a part, which may not exist yet.
    using Touch = std::function<void(PartKind kind, int id)>;
    /// Names one value that is sent to subscribers.
    using Key = std::uint64_t;
    using Visit = std::function<void(Key key, OscValues values)>;

    /// Limit of the answers to one message.
    static constexpr std::size_t kMaxAnswers = 1024;

    /// `scale`: scene units per normalised unit.
    OscScene(Orvel::World& world, float scale, OscEdits::Apply apply, AdmPaths::Change change = {});

    /// The playback that messages control; null: none. It is not kept alive.
    void control(const std::shared_ptr<Transport>& playback);

    /// Applies the bytes of one message, and appends the answers if it is a query. Returns an error
    /// message with its path, or an empty text.
    std::string take(std::span<const std::byte> bytes, std::vector<OscAnswer>& answers);

    /// The hooks of subscribers; without them there is no subscription.
    void setHooks(OrvelPaths::Subscribe subscribe, Touch touch);
    /// Visits the values that are sent to subscribers: those of all parts, or of one if it exists.
    void visit(const Visit& visit);
    void visit(PartKind kind, int id, const Visit& visit);
    [[nodiscard]] std::string pathOf(Key key) const;
    /// Whether it is sent also to the subscriber that caused the change.
    [[nodiscard]] bool isEchoed(Key key) const;

    /// Describes the paths at or below a path (without a slash at its end), those of the next part
    /// or family. Returns false if there are no more.
    bool describe(OscCursor& cursor, const std::string& below, std::vector<OscMethod>& methods);

    /// When to call step() next; max() if there is no need.
    [[nodiscard]] GainFades::Clock::time_point nextStep() { return adm_.fades().next(); }
    /// Continues the fades.
    void step(GainFades::Clock::time_point now) { adm_.fades().step(now); }

private:
    /// The outcome of a message for the paths that it names.
    struct Outcome {
        bool taken = false;
        std::string fault; ///< if it has a meaning for none
    };
    using Answers = std::vector<OscAnswer>;

    template <class Part>
    static void visit(
        const OscFamily<Part>& family, std::uint64_t number, int id, Part& part,
        const Visit& visit);
    void touch(PartKind kind, int id) const;
    std::string dispatch(const OscMessage& message, Answers& answers);
    template <class Part>
    static void describe(
        const OscFamily<Part>& family, int id, Part& part, const std::string& below,
        std::vector<OscMethod>& methods);
    template <class Part>
    static bool describeNext(
        const OscFamily<Part>& family, const std::map<int, Part*>& parts, OscCursor& cursor,
        const std::string& below, std::vector<OscMethod>& methods);
    std::string create(const OscMessage& message);
    /// `id`: of the part, or 0 if its paths have none.
    template <class Part>
    static Outcome take(
        const OscFamily<Part>& family, int id, Part& part, const OscMessage& message,
        Answers& answers);
    template <class Part>
    void takeParts(
        const OscFamily<Part>& family, const std::map<int, Part*>& parts, const char* kind,
        const OscMessage& message, Answers& answers, Outcome& outcome);
    /// Creates the emitter of an object for its first message. Returns why not, or an empty text.
    std::string appear(int id, const OscMessage& message);

    Orvel::World& world_;
    const OscEdits edits_;
    AdmPaths adm_;
    OrvelPaths own_;
    std::unique_ptr<CuePaths> cues_; // null without a playback
    std::vector<const OscFamily<Orvel::World>*> worldFamilies_;
    Touch touch_;
};

} // namespace Show

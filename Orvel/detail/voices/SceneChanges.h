#pragma once

#include <Orvel/Quaternion.h>
#include <Orvel/Vec3f.h>
#include <Orvel/detail/voices/Sound.h>
#include <Orvel/detail/voices/VoicePool.h>
#include <Vessa/Mutex.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace Orvel::detail {

/// Whether and from where an emitter plays, as the scene wants it.
struct Transport {
    enum class State { Stopped, Playing, Paused };
    State state = State::Stopped;
    unsigned starts = 0; ///< how often it has been started from its start offset
    unsigned plays = 0;  ///< how often it has been started or continued
    double offset = 0.0; ///< of the last start, in seconds of the sound
    /// The frame of the output at which it was to start or to continue last; none: at once.
    std::optional<std::int64_t> frame{};
};

/// An emitter as the scene wants it.
struct EmitterValues {
    int id = 0;
    bool isShot = false; ///< it plays once and is none of the scene
    bool exists = false;
    VoiceValues voice;
    std::shared_ptr<const Sound> sound;
    Transport transport;
};

struct ListenerValues {
    Vec3f position;
    Quaternion rotation;
    Vec3f velocity{};  ///< units per second
    float hold = 0.0F; ///< how long the velocity holds, in seconds
    bool enabled = true;
};

/// The changes of a scene on their way from its thread to the engine's: for each emitter the newest
/// values and which of them have changed, so it never holds more than the scene does, however long
/// the engine takes. Emitters have numbers, which are used again. Synchronised; no lock is held for
/// longer than a copy.
class SceneChanges {
public:
    using Clock = std::chrono::steady_clock;

    enum What : unsigned {
        Place = 1,
        Reach = 2,
        Gain = 4,
        Playback = 8,
        Transported = 16,
        NewSound = 32,
        Occlusion = 64,
        Created = 128, ///< or destroyed: whatever had the number before is over
        All = 255
    };

    /// Changes an emitter with `set`, which gets its values. A new number enlarges the list.
    template <class Set>
    void change(std::uint32_t emitter, unsigned what, Set&& set) ORVEL_EXCLUDES(mutex_) {
        const Vessa::Lock lock(mutex_);
        begin();
        if (emitter >= emitters_.size()) {
            emitters_.resize(emitter + 1);
        }
        Entry& entry = emitters_[emitter];
        std::forward<Set>(set)(entry.values);
        if (entry.changed == 0) {
            changed_.push_back(emitter);
        }
        entry.changed |= what;
    }
    template <class Set>
    void changeListener(Set&& set) ORVEL_EXCLUDES(mutex_) {
        const Vessa::Lock lock(mutex_);
        begin();
        std::forward<Set>(set)(listener_);
        listenerChanged_ = true;
    }

    /// Hands over everything since the last call: calls `take` with the number, what has changed,
    /// and the values, then `takeListener`. Neither may block or call back. Returns the age of the
    /// oldest change, 0 without any.
    template <class Take, class TakeListener>
    Clock::duration take(Take&& take, TakeListener&& takeListener) ORVEL_EXCLUDES(mutex_) {
        const Vessa::Lock lock(mutex_);
        const auto age =
            changed_.empty() && !listenerChanged_ ? Clock::duration() : Clock::now() - oldest_;
        for (const std::uint32_t emitter : changed_) {
            Entry& entry = emitters_[emitter];
            take(emitter, std::exchange(entry.changed, 0U), std::as_const(entry.values));
        }
        changed_.clear();
        if (std::exchange(listenerChanged_, false)) {
            takeListener(std::as_const(listener_));
        }
        return age;
    }

private:
    struct Entry {
        EmitterValues values;
        unsigned changed = 0;
    };

    void begin() ORVEL_REQUIRES(mutex_) {
        if (changed_.empty() && !listenerChanged_) {
            oldest_ = Clock::now();
        }
    }

    Vessa::Mutex mutex_;
    Clock::time_point oldest_ ORVEL_GUARDED_BY(mutex_); // the first change since take()
    std::vector<Entry> emitters_ ORVEL_GUARDED_BY(mutex_);
    std::vector<std::uint32_t> changed_ ORVEL_GUARDED_BY(mutex_);
    ListenerValues listener_ ORVEL_GUARDED_BY(mutex_);
    bool listenerChanged_ ORVEL_GUARDED_BY(mutex_) = false;
};

} // namespace Orvel::detail

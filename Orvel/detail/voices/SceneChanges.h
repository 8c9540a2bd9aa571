#pragma once

#include <Orvel/Quaternion.h>
#include <Orvel/Vec3f.h>
#include <Orvel/detail/voices/Sound.h>
#include <Orvel/detail/voices/VoicePool.h>
#include <Vessa/Mutex.h>

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
    bool exists = false;
    VoiceValues voice;
    std::shared_ptr<const Sound> sound;
    Transport transport;
};

struct ListenerValues {
    Vec3f position;
    Quaternion rotation;
    bool enabled = true;
};

/// The changes of a scene on their way from its thread to the engine's: for each emitter the newest
/// values and which of them have changed, so it never holds more than the scene does, however long
/// the engine takes. Emitters have numbers, which are used again. Synchronised; no lock is held for
/// longer than a copy.
class SceneChanges {
public:
    enum What : unsigned {
        Place = 1,
        Reach = 2,
        Gain = 4,
        Playback = 8,
        Transported = 16,
        NewSound = 32,
        Created = 64, ///< or destroyed: whatever had the number before is over
        All = 127
    };

    /// Changes an emitter with `set`, which gets its values. A new number enlarges the list.
    template <class Set>
    void change(std::uint32_t emitter, unsigned what, Set&& set) ORVEL_EXCLUDES(mutex_) {
        const Vessa::Lock lock(mutex_);
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
        std::forward<Set>(set)(listener_);
        listenerChanged_ = true;
    }

    /// Hands over everything since the last call: calls `take` with the number, what has changed,
    /// and the values, then `takeListener`. Neither may block or call back.
    template <class Take, class TakeListener>
    void take(Take&& take, TakeListener&& takeListener) ORVEL_EXCLUDES(mutex_) {
        const Vessa::Lock lock(mutex_);
        for (const std::uint32_t emitter : changed_) {
            Entry& entry = emitters_[emitter];
            take(emitter, std::exchange(entry.changed, 0U), std::as_const(entry.values));
        }
        changed_.clear();
        if (std::exchange(listenerChanged_, false)) {
            takeListener(std::as_const(listener_));
        }
    }

private:
    struct Entry {
        EmitterValues values;
        unsigned changed = 0;
    };

    Vessa::Mutex mutex_;
    std::vector<Entry> emitters_ ORVEL_GUARDED_BY(mutex_);
    std::vector<std::uint32_t> changed_ ORVEL_GUARDED_BY(mutex_);
    ListenerValues listener_ ORVEL_GUARDED_BY(mutex_);
    bool listenerChanged_ ORVEL_GUARDED_BY(mutex_) = false;
};

} // namespace Orvel::detail

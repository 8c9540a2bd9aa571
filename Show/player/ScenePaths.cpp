#include <Show/player/ScenePaths.h>

#include <Show/player/ScenePlayer.h>

#include <Orvel/Emitter.h>
#include <Orvel/OwningWorld.h>
#include <Orvel/Source.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <utility>

namespace Show {

namespace {

void add(Track& track, const Place& place) {
    const bool still = !track.places.empty() && track.places.back().position == place.position &&
                       track.places.back().rotation == place.rotation;
    if (!still) {
        track.places.push_back(place);
    }
}

class Follower {
public:
    explicit Follower(const LoadedScene& loaded)
        : player_(
              loaded.scene, loaded.sounds, world_,
              [this](Orvel::Source& source, const Sound& sound) {
                  names_[source.id()] = nameOf(sound);
              }) {}
    Follower(const Follower&) = delete;
    Follower& operator=(const Follower&) = delete;

    ScenePaths run() {
        player_.start();
        paths_.end = player_.end();
        note(0.0);
        // Fine enough for a smooth line, coarse enough for a day.
        const double step = std::max(paths_.end / 1000.0, ScenePlayer::kTick);
        for (double now = 0.0; now < paths_.end;) {
            double next = std::min(player_.nextChange(now), paths_.end);
            if (player_.moving()) {
                next = std::min(next, now + step);
            }
            now = next;
            player_.advance(now);
            note(now);
        }
        return std::move(paths_);
    }

private:
    void note(double now) {
        add(paths_.listener, {now, world_.listenerPosition(), world_.listenerRotation()});
        std::erase_if(present_, [this](const auto& entry) {
            return !world_.emitters().contains(entry.first);
        });
        for (const auto& [id, emitter] : world_.emitters()) {
            const auto [entry, isNew] = present_.try_emplace(id, paths_.emitters.size());
            if (isNew) {
                paths_.emitters.push_back(begin(*emitter));
            }
            add(paths_.emitters[entry->second], {now, emitter->position(), emitter->rotation()});
        }
    }

    Track begin(const Orvel::Emitter& emitter) {
        Track track;
        track.id = emitter.id();
        track.hull = emitter.hull();
        track.spatial = emitter.isSpatial();
        if (emitter.source() != nullptr) {
            const auto name = names_.find(emitter.source()->id());
            track.sound = name == names_.end() ? "" : name->second;
        }
        return track;
    }

    Orvel::OwningWorld<> world_;
    std::map<int, std::string> names_; // by source
    ScenePlayer player_;
    ScenePaths paths_;
    std::map<int, std::size_t> present_; // emitter to its track
};

} // namespace

ScenePaths followScene(const LoadedScene& loaded) {
    return Follower(loaded).run();
}

Orvel::Vec3f positionAt(const Track& track, double time) {
    const auto after = std::upper_bound(
        track.places.begin(), track.places.end(), time,
        [](double t, const Place& place) { return t < place.time; });
    if (after == track.places.begin()) {
        return track.places.front().position;
    }
    const Place& from = *std::prev(after);
    if (after == track.places.end()) {
        return from.position;
    }
    const auto part = static_cast<float>((time - from.time) / (after->time - from.time));
    const auto between = [part](float a, float b) { return a + part * (b - a); };
    return {
        between(from.position.x, after->position.x), between(from.position.y, after->position.y),
        between(from.position.z, after->position.z)};
}

} // namespace Show

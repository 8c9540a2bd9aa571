#include <Show/check/SceneWarnings.h>

#include <Show/check/SceneListener.h>
#include <Show/player/ScenePlayer.h>

#include <Orvel/OwningWorld.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <map>
#include <span>
#include <string>
#include <tuple>
#include <utility>

namespace Show {

namespace {

/// A sound whose loudest level is below this counts as hardly heard.
constexpr float kHardlyHeard = 0.01F; // -40 dB
/// A sound whose peak is lower counts as silent.
constexpr int kSilentPeak = 33; // of 32768: -60 dB

std::string decibels(double factor) {
    const double tenths = std::round(200.0 * std::log10(factor)) + 0.0; // never -0
    char text[32];
    std::snprintf(text, sizeof text, "%.1f dB", tenths / 10.0);
    return text;
}

std::string shortly(double number) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3g", number);
    return text;
}

/// The times at which the listener evaluates the scene, in seconds from the start: just before and
/// just after each sudden change, and at the end of each movement.
struct Moment {
    double time;
    bool jump; // just after a sudden change
};

std::vector<Moment> momentsOf(const Scene& scene, double end) {
    const auto before = [](double time) { return std::nextafter(time, 0.0); };
    std::vector<Moment> moments{{before(end), false}};
    for (const Change& change : scene.timeline) {
        moments.push_back({before(change.at), false});
        moments.push_back({change.at, true});
        moments.push_back({change.at + change.over, false});
    }
    std::erase_if(
        moments, [&](const Moment& moment) { return moment.time <= 0.0 || moment.time >= end; });
    const auto key = [](const Moment& moment) { return std::tuple(moment.time, moment.jump); };
    std::sort(moments.begin(), moments.end(), [&](const Moment& a, const Moment& b) {
        return key(a) < key(b);
    });
    const auto same = [&](const Moment& a, const Moment& b) { return key(a) == key(b); };
    moments.erase(std::unique(moments.begin(), moments.end(), same), moments.end());
    return moments;
}

/// Thins out the times of a scene with so many movements that evaluating all of them would take
/// minutes. Movements are then taken as straight lines between these times.
void limitWork(std::vector<Moment>& moments, const Scene& scene) {
    constexpr double kMax = 2e6; // steps of one emitter
    double work = 0.0;
    for (const Change& change : scene.timeline) {
        if (change.over > 0.0) {
            const auto isBefore = [](const Moment& moment, double time) {
                return moment.time < time;
            };
            const auto first =
                std::lower_bound(moments.begin(), moments.end(), change.at, isBefore);
            const auto last =
                std::lower_bound(first, moments.end(), change.at + change.over, isBefore);
            work +=
                static_cast<double>(last - first) * (change.target == Change::Target::Listener
                                                         ? static_cast<double>(countEmitters(scene))
                                                         : 1.0);
        }
    }
    const auto step = static_cast<std::size_t>(work / kMax) + 1;
    if (step > 1) {
        std::vector<Moment> kept;
        for (std::size_t i = step - 1; i < moments.size(); i += step) {
            kept.push_back({moments[i].time, false});
        }
        kept.push_back({moments.back().time, false});
        moments = std::move(kept);
    }
}

class Warnings {
public:
    explicit Warnings(std::string file) : file_(std::move(file)) {}

    void add(const std::string& text) { found_.push_back({file_, 0, "", "warning: " + text}); }
    /// `others` describes all but the first emitters with the same problem, after their number.
    void add(const Where& where, const char* key, const std::string& text, const char* others) {
        constexpr std::size_t kMaxAlike = 5;
        if (++counts_[others] <= kMaxAlike) {
            found_.push_back({file_, where.line, where.field + key, "warning: " + text});
        } else {
            ++left_[others];
        }
    }

    std::vector<Problem> take() {
        std::stable_sort(found_.begin(), found_.end(), [](const Problem& a, const Problem& b) {
            return a.line < b.line;
        });
        for (const auto& [others, count] : left_) {
            add(std::to_string(count) + " more " + others);
        }
        return std::move(found_);
    }

private:
    std::string file_;
    std::vector<Problem> found_;
    std::map<std::string, std::size_t> counts_;
    std::map<std::string, std::size_t> left_;
};

void checkHull(const EmitterHistory& history, Warnings& warnings) {
    const EmitterSpec& spec = *history.spec;
    const std::string loudest = decibels(history.loudest);
    const std::string nearest = shortly(history.nearest) + " units away at the nearest";
    if (history.withoutInner) {
        warnings.add(
            spec.where, ".hull",
            "the inner extents are 0, so it is heard at " + loudest + " at most, " + nearest +
                R"(; give "minBack" and "minFront", 1 for a start)",
            "emitters have inner extents of 0");
    } else if (history.loudest < kHardlyHeard) {
        warnings.add(
            spec.where, "",
            "hardly heard: " + loudest + " at most, with a gain of " +
                shortly(history.highestGain) + " and " + nearest,
            "emitters are hardly heard");
    } else if (!history.withinOuter) {
        warnings.add(
            spec.where, ".hull",
            "never within its outer extents: " + nearest + ", heard at " + loudest +
                " there and anywhere beyond",
            "emitters are never within their outer extents");
    }
    if (history.innerAboveOuter) {
        warnings.add(
            spec.where, ".hull",
            "an inner extent is above the outer one; at any distance it is heard at " +
                decibels(history.softest) + " or more",
            "emitters have an inner extent above the outer one");
    }
    if (spec.oneInner && !history.withoutInner) {
        warnings.add(
            spec.where, ".hull",
            R"(only one of "minBack" and "minFront" is given; their mean counts, so it is heard )" +
                decibels(2.0) + " softer than with both",
            "emitters have only one of the inner extents");
    }
    if (spec.oneOuter) {
        warnings.add(
            spec.where, ".hull",
            R"(only one of "maxBack" and "maxFront" is given; the other is 10, and their mean )" +
                shortly((spec.hull.maxBack + spec.hull.maxFront) / 2.0F) + " counts",
            "emitters have only one of the outer extents");
    }
}

void checkEmitter(const EmitterHistory& history, Warnings& warnings) {
    const EmitterSpec& spec = *history.spec;
    if (!history.played) {
        warnings.add(
            spec.where, "", R"(never plays: its state is never "play")", "emitters never play");
    } else if (!history.connected) {
        warnings.add(
            spec.where, "", "plays nothing: it has no source while it plays",
            "emitters play without a source");
    } else if (!history.enabled) {
        warnings.add(
            spec.where, "", "not heard: it plays only while the world is disabled",
            "emitters play only while the world is disabled");
    } else if (history.highestGain <= 0.0F) {
        warnings.add(
            spec.where, ".gain", "not heard: the gain is 0 whenever it plays",
            "emitters have the gain 0 whenever they play");
    } else {
        checkHull(history, warnings);
        constexpr float kNoticed = 1.06F; // 0.5 dB
        if (history.amplified && history.leastExcess > kNoticed) {
            warnings.add(
                spec.where, ".gain",
                decibels(history.leastExcess) + " of a gain of " + decibels(history.highestGain) +
                    " have no effect: nothing is played louder than its recorded level",
                "emitters have gains above 1 without effect");
        }
    }
}

int peakOf(std::span<const std::int16_t> samples) {
    int peak = 0;
    for (const std::int16_t value : samples) {
        peak = std::max(peak, std::abs(int{value}));
    }
    return peak;
}

/// Reads a whole file; `fault` receives the reason if it is damaged.
int peakOf(const std::string& path, std::string& fault) {
    constexpr std::size_t kBlockSamples = 65536;
    Orvel::SoundFile file(path);
    std::vector<std::int16_t> block(std::max<std::size_t>(kBlockSamples, file.channels()));
    int peak = 0;
    while (const std::size_t frames = file.read(block)) {
        peak = std::max(peak, peakOf(std::span(block).first(frames * file.channels())));
    }
    fault = file.error();
    return peak;
}

void checkSound(
    const SoundBank& sounds, const Sound& sound, const Where& where, Warnings& warnings) {
    if (!sounds.shapeOf(sound)) {
        return;
    }
    int peak = 0;
    if (sounds.isLong(sound)) {
        std::string fault;
        peak = peakOf(std::get<SoundFile>(sound).path, fault);
        if (!fault.empty()) {
            warnings.add(
                where, "", "a part of the sound is silent: " + fault, "sounds are damaged");
            return;
        }
    } else {
        std::string fault;
        peak = peakOf(sounds.decode(sound, fault)->samples);
    }
    if (peak >= kSilentPeak) {
        return;
    }
    warnings.add(
        where, "",
        peak == 0 ? "silence: all samples of the sound are 0"
                  : "hardly heard: the peak of the sound is " + decibels(peak / 32768.0),
        "sounds are silent");
}

} // namespace

std::vector<Problem> findWarnings(const LoadedScene& loaded, double& end) {
    const Scene& scene = loaded.scene;
    Warnings warnings(scene.path);
    Orvel::OwningWorld<> world;
    auto* listener = new SceneListener(world, loaded); // the world deletes it
    ScenePlayer player(scene, loaded.sounds, world, [&](Orvel::Source& source, const Sound& sound) {
        listener->setSound(source.id(), sound);
    });
    player.start();
    listener->listen(true);
    end = player.end();
    std::vector<Moment> moments = momentsOf(scene, end);
    limitWork(moments, scene);
    for (const Moment& moment : moments) {
        player.advance(moment.time);
        listener->listen(moment.jump);
    }

    for (const EmitterHistory& history : listener->emitters()) {
        checkEmitter(history, warnings);
    }
    if (countEmitters(scene) == 0) {
        warnings.add("nothing is heard: the scene has no emitters");
    } else {
        for (const SourceSpec* source : listener->unusedSources()) {
            warnings.add(
                source->where, "", "no emitter plays this source", "sources have no emitter");
        }
    }
    if (const std::size_t most = listener->maxEmitters(); most > kMaxVoices) {
        warnings.add(
            std::to_string(most) + " emitters exist at once, and " + std::to_string(kMaxVoices) +
            " can be mixed: " + std::to_string(most - kMaxVoices) +
            " of them, the softest, are not heard");
    }
    for (const SourceSpec& source : scene.sources) {
        checkSound(loaded.sounds, source.sound, source.soundWhere, warnings);
    }
    for (const CueSpec& cue : scene.cues) {
        if (end > 0.0 && (cue.at >= end || (std::isfinite(cue.until) && cue.until > end))) {
            warnings.add(
                cue.where, cue.at >= end ? ".at" : ".until",
                std::string(cue.at >= end ? "empty" : "shorter than that") +
                    ": the scene ends at " + shortly(end) + " s",
                "cues end after the scene");
        }
    }
    for (const Change& change : scene.timeline) {
        if (scene.duration && change.at > *scene.duration) {
            warnings.add(
                change.where, ".at",
                "never happens: the scene ends at " + shortly(*scene.duration) + " s",
                "entries of the timeline come after the end of the scene");
        } else if (change.newSource) {
            checkSound(
                loaded.sounds, change.newSource->sound, change.newSource->soundWhere, warnings);
        } else {
            checkSound(loaded.sounds, change.sound, change.soundWhere, warnings);
        }
    }
    return warnings.take();
}

} // namespace Show

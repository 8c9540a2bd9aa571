#include <Show/scene/SoundBank.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <optional>
#include <utility>

namespace Show {

namespace {

/// A sound, or the reason why it is missing.
struct Decoded {
    Samples samples;
    std::string fault;
};

constexpr const char* kTooMuch = "expected no more than 1 GiB of decoded sound in one scene";

Decoded fault(std::string text) {
    return {{}, std::move(text)};
}

Decoded decode(const SoundFile& sound, std::size_t maxBytes) {
    Orvel::SoundFile file(sound.path);
    const std::uint64_t kept = sound.keepChannels ? file.channels() : 1;
    if (file.frames() > maxBytes / sizeof(std::int16_t) / std::max<std::uint64_t>(kept, 1)) {
        return fault(kTooMuch + (", exceeded by \"" + sound.path + "\""));
    }
    using Channels = Orvel::SoundFile::Channels;
    auto samples = file.decode(sound.keepChannels ? Channels::Keep : Channels::Mono, maxBytes);
    if (!samples) {
        return fault(
            file.error() +
            (kept > 2 ? R"(; leave out "channels": "keep" to mix them to one)" : ""));
    }
    return {std::move(*samples), {}};
}

Decoded decode(const Tone& tone, std::size_t maxBytes) {
    const double frames = std::max(1.0, std::round(tone.seconds * SoundBank::kToneRate));
    if (frames * sizeof(std::int16_t) > static_cast<double>(maxBytes)) {
        return fault(kTooMuch);
    }
    Decoded result;
    result.samples.rate = SoundBank::kToneRate;
    result.samples.samples.resize(static_cast<std::size_t>(frames));
    const double step = tone.hertz / SoundBank::kToneRate;
    double index = 0.0;
    for (std::int16_t& value : result.samples.samples) {
        // Reduces the phase, in periods, because the sine of a large number is imprecise.
        const double phase = index * step;
        const double wave =
            tone.amplitude * std::sin(2.0 * std::numbers::pi * (phase - std::floor(phase)));
        value = static_cast<std::int16_t>(std::lrint(std::min(wave * 32768.0, 32767.0)));
        index += 1.0;
    }
    return result;
}

} // namespace

bool SoundBank::load(const Scene& scene, std::vector<Problem>& problems) {
    std::map<Sound, std::string> faults; // so that a broken file is read only once
    bool good = true;
    const auto add = [&](const Sound& sound, const Where& where) {
        if (samples_.contains(sound)) {
            return;
        }
        if (!faults.contains(sound)) {
            std::optional<Decoded> decoded;
            if (const auto* file = std::get_if<SoundFile>(&sound)) {
                decoded = decode(*file, maxBytes_ - bytes_);
            } else if (const auto* tone = std::get_if<Tone>(&sound)) {
                decoded = decode(*tone, maxBytes_ - bytes_);
            } else {
                return;
            }
            if (decoded->fault.empty()) {
                bytes_ += decoded->samples.samples.size() * sizeof(std::int16_t);
                samples_.emplace(sound, std::move(decoded->samples));
                return;
            }
            faults[sound] = std::move(decoded->fault);
        }
        problems.push_back({scene.path, where.line, where.field, faults[sound]});
        good = false;
    };
    for (const SourceSpec& source : scene.sources) {
        add(source.sound, source.soundWhere);
    }
    for (const Change& change : scene.timeline) {
        if (change.newSource) {
            add(change.newSource->sound, change.newSource->soundWhere);
        }
        add(change.sound, change.soundWhere);
    }
    return good;
}

const Samples* SoundBank::find(const Sound& sound) const {
    const auto found = samples_.find(sound);
    return found == samples_.end() ? nullptr : &found->second;
}

} // namespace Show

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

using Channels = Orvel::SoundFile::Channels;

Channels channelsOf(const SoundFile& sound) {
    return sound.keepChannels ? Channels::Keep : Channels::Mono;
}

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
    auto samples = file.decode(channelsOf(sound), maxBytes);
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

/// The form of a file that is long and can be played; nothing otherwise.
std::optional<SoundBank::Shape> longShapeOf(const SoundFile& sound) {
    const Orvel::SoundFile file(sound.path);
    const unsigned kept = sound.keepChannels ? file.channels() : 1;
    if (!file.isOpen() || file.seconds() <= SoundBank::kMaxShort || kept > 2) {
        return std::nullopt;
    }
    return SoundBank::Shape{kept, file.seconds()};
}

} // namespace

bool SoundBank::load(const Scene& scene, std::vector<Problem>& problems) {
    std::map<Sound, std::string> faults; // so that a broken file is read only once
    bool good = true;
    const auto add = [&](const Sound& sound, const Where& where) {
        const auto* file = std::get_if<SoundFile>(&sound);
        if (samples_.contains(sound) || long_.contains(sound) ||
            (file == nullptr && !std::holds_alternative<Tone>(sound))) {
            return;
        }
        if (!faults.contains(sound)) {
            if (const auto shape = file == nullptr ? std::nullopt : longShapeOf(*file)) {
                long_.emplace(sound, *shape);
                return;
            }
            std::string fault;
            if (decode(sound, fault) != nullptr) {
                return;
            }
            faults[sound] = std::move(fault);
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

std::optional<SoundBank::Shape> SoundBank::shapeOf(const Sound& sound) const {
    if (const auto found = long_.find(sound); found != long_.end()) {
        return found->second;
    }
    if (const auto found = samples_.find(sound); found != samples_.end()) {
        return Shape{found->second.channels, found->second.seconds()};
    }
    return std::nullopt;
}

const Samples* SoundBank::decode(const Sound& sound, std::string& fault) const {
    if (const auto found = samples_.find(sound); found != samples_.end()) {
        return &found->second;
    }
    Decoded decoded;
    if (const auto* file = std::get_if<SoundFile>(&sound)) {
        decoded = Show::decode(*file, maxBytes_ - bytes_);
    } else if (const auto* tone = std::get_if<Tone>(&sound)) {
        decoded = Show::decode(*tone, maxBytes_ - bytes_);
    } else {
        return nullptr;
    }
    if (!decoded.fault.empty()) {
        fault = std::move(decoded.fault);
        return nullptr;
    }
    bytes_ += decoded.samples.samples.size() * sizeof(std::int16_t);
    return &samples_.emplace(sound, std::move(decoded.samples)).first->second;
}

} // namespace Show

#include <Show/scene/SoundBank.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <numbers>
#include <optional>
#include <sndfile.h>

namespace Show {

namespace {

constexpr int kMinRate = 1000;
constexpr int kMaxRate = 768000;

struct CloseFile {
    void operator()(SNDFILE* file) const { sf_close(file); }
};

/// Full scale is 32768, so that 16-bit files come through bit by bit.
std::int16_t toSample(double value) {
    if (std::isnan(value)) {
        return 0;
    }
    return static_cast<std::int16_t>(std::lrint(std::clamp(value * 32768.0, -32768.0, 32767.0)));
}

/// A sound, or the reason why there is none.
struct Decoded {
    Samples samples;
    std::string fault;
};

constexpr const char* kTooMuch = "expected no more than 1 GiB of decoded sound in one scene";

Decoded fault(std::string text) {
    return {{}, std::move(text)};
}

Decoded decode(const SoundFile& sound, std::size_t maxBytes) {
    if (std::string text = soundFileFault(sound.path); !text.empty()) {
        return fault(std::move(text));
    }
    const std::string name = "\"" + sound.path + "\"";
    SF_INFO info{};
    const std::unique_ptr<SNDFILE, CloseFile> file(sf_open(sound.path.c_str(), SFM_READ, &info));
    if (file == nullptr) {
        return fault(
            "expected a sound file, but " + name + " cannot be read: " + sf_strerror(nullptr));
    }
    if (info.samplerate < kMinRate || info.samplerate > kMaxRate) {
        return fault(
            "expected a sound of " + std::to_string(kMinRate) + " to " + std::to_string(kMaxRate) +
            " samples a second, but " + name + " has " + std::to_string(info.samplerate));
    }
    if (sound.keepChannels && info.channels > 2) {
        return fault(
            "expected a sound of 1 or 2 channels, but " + name + " has " +
            std::to_string(info.channels) + R"(; leave out "channels": "keep" to mix them to one)");
    }
    Decoded result;
    Samples& samples = result.samples;
    samples.rate = static_cast<unsigned>(info.samplerate);
    const auto fileChannels = static_cast<std::size_t>(info.channels);
    const std::size_t mixed = sound.keepChannels ? 1 : fileChannels;
    samples.channels = static_cast<unsigned>(fileChannels / mixed);
    // The length in the header is not believed: what is decoded counts.
    std::vector<float> block(std::max<std::size_t>(1, 16384 / fileChannels) * fileChannels);
    for (;;) {
        const sf_count_t got =
            sf_read_float(file.get(), block.data(), static_cast<sf_count_t>(block.size()));
        if (got <= 0) {
            break;
        }
        for (std::size_t i = 0; i + mixed <= static_cast<std::size_t>(got); i += mixed) {
            double sum = 0.0;
            for (std::size_t channel = 0; channel < mixed; ++channel) {
                sum += static_cast<double>(block[i + channel]);
            }
            samples.values.push_back(toSample(sum / static_cast<double>(mixed)));
        }
        if (samples.values.size() * sizeof(std::int16_t) > maxBytes) {
            return fault(kTooMuch + (", exceeded by " + name));
        }
    }
    if (sf_error(file.get()) != SF_ERR_NO_ERROR) {
        return fault(
            "expected a whole sound file, but " + name + " is damaged: " + sf_strerror(file.get()));
    }
    if (samples.values.empty()) {
        return fault("expected a sound, but " + name + " holds no samples");
    }
    samples.values.shrink_to_fit();
    return result;
}

Decoded decode(const Tone& tone, std::size_t maxBytes) {
    const double frames = std::max(1.0, std::round(tone.seconds * SoundBank::kToneRate));
    if (frames * sizeof(std::int16_t) > static_cast<double>(maxBytes)) {
        return fault(kTooMuch);
    }
    Decoded result;
    result.samples.rate = SoundBank::kToneRate;
    result.samples.values.resize(static_cast<std::size_t>(frames));
    const double step = tone.hertz / SoundBank::kToneRate;
    double index = 0.0;
    for (std::int16_t& value : result.samples.values) {
        // The phase in periods, reduced first: the sine of a large number is imprecise.
        const double phase = index * step;
        value = toSample(
            tone.amplitude * std::sin(2.0 * std::numbers::pi * (phase - std::floor(phase))));
        index += 1.0;
    }
    return result;
}

} // namespace

bool SoundBank::load(const Scene& scene, std::vector<Problem>& problems) {
    std::map<Sound, std::string> faults; // so that a broken file is tried once
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
                bytes_ += decoded->samples.values.size() * sizeof(std::int16_t);
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

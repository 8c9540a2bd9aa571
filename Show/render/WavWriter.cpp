#include <Show/render/WavWriter.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <sndfile.h>
#include <utility>
#include <vector>

namespace Show {

struct WavWriter::Sound {
    SNDFILE* handle = nullptr;

    Sound() = default;
    Sound(const Sound&) = delete;
    Sound& operator=(const Sound&) = delete;
    ~Sound() {
        if (handle != nullptr) {
            sf_close(handle);
        }
    }
};

namespace {

OutputError cannotWrite(const std::string& path, SNDFILE* handle) {
    return OutputError("cannot write " + path + ": " + sf_strerror(handle));
}

unsigned bytesPerFrame(SampleFormat format, unsigned channels) {
    return channels * (format == SampleFormat::s16 ? 2U : 4U);
}

/// libsndfile's names of a layout's channels.
std::vector<int> channelMap(const Orvel::OutputLayout& layout) {
    struct Place {
        std::uint32_t bit;
        int name;
    };
    constexpr std::array kPlaces{
        Place{0x1, SF_CHANNEL_MAP_LEFT},          Place{0x2, SF_CHANNEL_MAP_RIGHT},
        Place{0x4, SF_CHANNEL_MAP_CENTER},        Place{0x8, SF_CHANNEL_MAP_LFE},
        Place{0x10, SF_CHANNEL_MAP_REAR_LEFT},    Place{0x20, SF_CHANNEL_MAP_REAR_RIGHT},
        Place{0x100, SF_CHANNEL_MAP_REAR_CENTER}, Place{0x200, SF_CHANNEL_MAP_SIDE_LEFT},
        Place{0x400, SF_CHANNEL_MAP_SIDE_RIGHT}};
    std::vector<int> names;
    for (const Place& place : kPlaces) {
        if ((layout.mask & place.bit) != 0) {
            names.push_back(place.name);
        }
    }
    return names;
}

/// Whether a file needs a channel mask.
bool isExtensible(const Orvel::OutputLayout& layout) {
    return layout.channels > 2;
}

} // namespace

std::string WavWriter::streamHeader(
    unsigned rate, SampleFormat format, std::optional<std::uint64_t> frames,
    const Orvel::OutputLayout& layout) {
    constexpr std::uint32_t kUnknown = std::numeric_limits<std::uint32_t>::max();
    std::string header;
    const auto put = [&header](std::uint32_t value, unsigned bytes) {
        for (unsigned i = 0; i < bytes; ++i) {
            header += static_cast<char>((value >> (8U * i)) & 0xffU);
        }
    };
    const bool floats = format == SampleFormat::f32;
    const std::uint32_t count = static_cast<std::uint32_t>(frames.value_or(0));
    const std::uint32_t width = bytesPerFrame(format, layout.channels);
    const std::uint32_t bytes = count * width;
    const bool extensible = isExtensible(layout);
    const std::uint32_t code = floats ? 3 : 1;
    header = "RIFF";
    put(frames ? bytes + (floats ? 48 : 36) + (extensible ? 24 : 0) : kUnknown, 4);
    header += "WAVEfmt ";
    put(extensible ? 40 : 16, 4);
    put(extensible ? 0xfffe : code, 2);
    put(layout.channels, 2);
    put(rate, 4);
    put(rate * width, 4);
    put(width, 2);
    put(floats ? 32 : 16, 2);
    if (extensible) {
        put(22, 2);
        put(floats ? 32 : 16, 2);
        put(layout.mask, 4);
        put(code, 4); // the code as a GUID
        put(0x00100000, 4);
        put(0xaa000080, 4);
        put(0x719b3800, 4);
    }
    if (floats) {
        header += "fact";
        put(4, 4);
        put(frames ? count : kUnknown, 4);
    }
    header += "data";
    put(frames ? bytes : kUnknown, 4);
    return header;
}

std::uint64_t toIntegers(std::span<const float> samples, std::vector<std::int16_t>& integers) {
    integers.resize(samples.size());
    // 32768 inverts the scaling of 16-bit input in the renderer, so a sound at unity gain keeps its
    // exact samples.
    std::transform(samples.begin(), samples.end(), integers.begin(), [](float sample) {
        const float scaled = std::nearbyint(sample * 32768.0F);
        return static_cast<std::int16_t>(std::clamp(scaled, -32768.0F, 32767.0F));
    });
    return static_cast<std::uint64_t>(std::count_if(
        samples.begin(), samples.end(), [](float sample) { return std::abs(sample) > 1.0F; }));
}

WavWriter::WavWriter(
    const std::string& path, unsigned rate, SampleFormat format,
    std::optional<std::uint64_t> frames, Unfinished unfinished, const Orvel::OutputLayout& layout)
    : file_(path, unfinished), format_(format), channels_(layout.channels),
      sound_(std::make_unique<Sound>()) {
    SF_INFO info{};
    info.samplerate = static_cast<int>(rate);
    info.channels = static_cast<int>(channels_);
    info.format = file_.isStream()       ? SF_FORMAT_RAW | SF_ENDIAN_LITTLE
                  : isExtensible(layout) ? SF_FORMAT_WAVEX
                                         : SF_FORMAT_WAV;
    info.format |= format == SampleFormat::s16 ? SF_FORMAT_PCM_16 : SF_FORMAT_FLOAT;
    if (file_.isStream()) {
        file_.write(streamHeader(rate, format, frames, layout));
    }
    sound_->handle = sf_open_fd(file_.descriptor(), SFM_WRITE, &info, SF_FALSE);
    if (sound_->handle == nullptr) {
        throw cannotWrite(path, nullptr);
    }
    if (isExtensible(layout) && !file_.isStream()) {
        std::vector<int> map = channelMap(layout);
        sf_command(
            sound_->handle, SFC_SET_CHANNEL_MAP_INFO, map.data(),
            static_cast<int>(map.size() * sizeof(int)));
    }
    // The PEAK chunk contains the time of writing, which would make equal files differ.
    sf_command(sound_->handle, SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
}

WavWriter::~WavWriter() = default;

std::uint64_t WavWriter::maxFrames(SampleFormat format, const Orvel::OutputLayout& layout) {
    constexpr std::uint32_t kRoomForHeaders = 1024;
    return (std::numeric_limits<std::uint32_t>::max() - kRoomForHeaders) /
           bytesPerFrame(format, layout.channels);
}

void WavWriter::write(std::span<const float> samples) {
    const auto frames = static_cast<sf_count_t>(samples.size() / channels_);
    sf_count_t written = 0;
    if (format_ == SampleFormat::f32) {
        written = sf_writef_float(sound_->handle, samples.data(), frames);
    } else {
        clipped_ += toIntegers(samples, integers_);
        written = sf_writef_short(sound_->handle, integers_.data(), frames);
    }
    if (written != frames) {
        throw cannotWrite(file_.path(), sound_->handle);
    }
}

void WavWriter::updateHeader() {
    if (!file_.isStream()) {
        sf_command(sound_->handle, SFC_UPDATE_HEADER_NOW, nullptr, 0);
    }
}

void WavWriter::finish() {
    SNDFILE* const handle = std::exchange(sound_->handle, nullptr);
    if (const int error = sf_close(handle); error != 0) {
        throw OutputError("cannot write " + file_.path() + ": " + sf_error_number(error));
    }
    file_.keep();
}

} // namespace Show

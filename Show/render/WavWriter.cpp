#include <Show/render/WavWriter.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <sndfile.h>
#include <utility>

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

unsigned bytesPerFrame(SampleFormat format) {
    return WavWriter::kChannels * (format == SampleFormat::s16 ? 2U : 4U);
}

} // namespace

std::string
WavWriter::streamHeader(unsigned rate, SampleFormat format, std::optional<std::uint64_t> frames) {
    constexpr std::uint32_t kUnknown = std::numeric_limits<std::uint32_t>::max();
    std::string header;
    const auto put = [&header](std::uint32_t value, unsigned bytes) {
        for (unsigned i = 0; i < bytes; ++i) {
            header += static_cast<char>((value >> (8U * i)) & 0xffU);
        }
    };
    const bool floats = format == SampleFormat::f32;
    const std::uint32_t count = static_cast<std::uint32_t>(frames.value_or(0));
    const std::uint32_t bytes = count * bytesPerFrame(format);
    header = "RIFF";
    put(frames ? bytes + (floats ? 48 : 36) : kUnknown, 4);
    header += "WAVEfmt ";
    put(16, 4);
    put(floats ? 3 : 1, 2);
    put(WavWriter::kChannels, 2);
    put(rate, 4);
    put(rate * bytesPerFrame(format), 4);
    put(bytesPerFrame(format), 2);
    put(floats ? 32 : 16, 2);
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
    std::optional<std::uint64_t> frames, Unfinished unfinished)
    : file_(path, unfinished), format_(format), sound_(std::make_unique<Sound>()) {
    SF_INFO info{};
    info.samplerate = static_cast<int>(rate);
    info.channels = kChannels;
    info.format = file_.isStream() ? SF_FORMAT_RAW | SF_ENDIAN_LITTLE : SF_FORMAT_WAV;
    info.format |= format == SampleFormat::s16 ? SF_FORMAT_PCM_16 : SF_FORMAT_FLOAT;
    if (file_.isStream()) {
        file_.write(streamHeader(rate, format, frames));
    }
    sound_->handle = sf_open_fd(file_.descriptor(), SFM_WRITE, &info, SF_FALSE);
    if (sound_->handle == nullptr) {
        throw cannotWrite(path, nullptr);
    }
    // The PEAK chunk contains the time of writing, which would make equal files differ.
    sf_command(sound_->handle, SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
}

WavWriter::~WavWriter() = default;

std::uint64_t WavWriter::maxFrames(SampleFormat format) {
    constexpr std::uint32_t kRoomForHeaders = 1024;
    return (std::numeric_limits<std::uint32_t>::max() - kRoomForHeaders) / bytesPerFrame(format);
}

void WavWriter::write(std::span<const float> samples) {
    const auto frames = static_cast<sf_count_t>(samples.size() / kChannels);
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

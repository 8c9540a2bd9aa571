#include <Orvel/detail/voices/Sound.h>

#include <AL/al.h>
#include <AL/alext.h>
#include <array>
#include <cstring>
#include <exception>
#include <utility>

namespace Orvel::detail {

namespace {

/// AL's formats of 16-bit and float samples.
struct Layout {
    unsigned channels;
    ALenum integers;
    ALenum floats;
};
constexpr std::array<Layout, 6> kLayouts{
    {{1, AL_FORMAT_MONO16, AL_FORMAT_MONO_FLOAT32},
     {2, AL_FORMAT_STEREO16, AL_FORMAT_STEREO_FLOAT32},
     {4, AL_FORMAT_QUAD16, AL_FORMAT_QUAD32},
     {6, AL_FORMAT_51CHN16, AL_FORMAT_51CHN32},
     {7, AL_FORMAT_61CHN16, AL_FORMAT_61CHN32},
     {8, AL_FORMAT_71CHN16, AL_FORMAT_71CHN32}}};

const Layout* layoutOf(unsigned channels) {
    for (const Layout& layout : kLayouts) {
        if (layout.channels == channels) {
            return &layout;
        }
    }
    return nullptr;
}

/// A little-endian integer sample as a number of full scale 1.
float toFloat(const unsigned char* bytes, unsigned width) {
    if (width == 1) {
        return (static_cast<float>(bytes[0]) - 128.0F) / 128.0F;
    }
    std::uint32_t bits = 0; // the sample in the upper bytes
    for (unsigned i = 0; i < width; ++i) {
        bits |= std::uint32_t{bytes[i]} << (8 * (4 - width + i));
    }
    return static_cast<float>(static_cast<std::int32_t>(bits)) / 2147483648.0F;
}

} // namespace

bool Sound::shape(unsigned rate, unsigned channels, bool floats) {
    const Layout* layout = settings_.keepChannels ? layoutOf(channels) : nullptr;
    const bool mixed = layout == nullptr && channels > 1;
    if (layout == nullptr) {
        layout = kLayouts.data();
    }
    rate_ = rate;
    fileChannels_ = channels;
    channels_ = layout->channels;
    format_ = floats || mixed ? layout->floats : layout->integers;
    frameBytes_ = channels_ * (floats || mixed ? sizeof(float) : sizeof(std::int16_t));
    return mixed;
}

void Sound::append(std::span<const float> fromFile, std::vector<std::byte>& to) const {
    if (channels_ == fileChannels_) {
        const auto bytes = std::as_bytes(fromFile);
        to.insert(to.end(), bytes.begin(), bytes.end());
        return;
    }
    for (std::size_t i = 0; i + fileChannels_ <= fromFile.size(); i += fileChannels_) {
        double sum = 0.0;
        for (unsigned channel = 0; channel < fileChannels_; ++channel) {
            sum += static_cast<double>(fromFile[i + channel]);
        }
        const auto mean = static_cast<float>(sum / fileChannels_);
        const auto bytes = std::as_bytes(std::span(&mean, 1));
        to.insert(to.end(), bytes.begin(), bytes.end());
    }
}

void Sound::fail(Diagnostic::Code code, const std::string& subject, const std::string& reason) {
    failure_.code = code;
    failure_.level = Log::Level::Fatal;
    failure_.subject = subject;
    failure_.reason = reason;
    if (!reason.empty()) {
        failure_.text = (code == Diagnostic::Code::CannotFetch ? "Cannot fetch " : "Cannot play ") +
                        (subject.empty() ? "the samples" : "\"" + subject + "\"") + ": " + reason;
    }
    samples_ = {};
    file_.reset();
    finish(State::Failed);
}

void Sound::setDamage(const std::string& reason) const {
    const Vessa::Lock lock(damageMutex_);
    if (!damage_) {
        damage_ = reason;
    }
}

std::string Sound::takeDamage() const {
    const Vessa::Lock lock(damageMutex_);
    return damage_ ? std::exchange(*damage_, {}) : std::string();
}

void Sound::setPcm(
    unsigned rate, unsigned bits, unsigned channels, std::span<const unsigned char> bytes) {
    if (rate == 0 || bits == 0 || channels == 0 || bytes.empty()) {
        fail(Diagnostic::Code::CannotPlay, {}, {}); // not set yet
        return;
    }
    const unsigned width = bits / 8;
    if (bits % 8 != 0 || width > 4 || channels > 256 || rate > SoundFile::kMaxRate) {
        fail(
            Diagnostic::Code::CannotPlay, {},
            "expected 8, 16, 24 or 32 bits, up to 256 channels and up to " +
                std::to_string(SoundFile::kMaxRate) + " Hz, found " + std::to_string(bits) +
                " bits, " + std::to_string(channels) + " channels and " + std::to_string(rate) +
                " Hz");
        return;
    }
    const std::size_t frameBytes = std::size_t{width} * channels;
    bytes = bytes.first(bytes.size() / frameBytes * frameBytes);
    const bool mixed = shape(rate, channels, bits != 16);
    if (bits == 16 && !mixed) {
        const auto whole = std::as_bytes(bytes);
        samples_.assign(whole.begin(), whole.end());
    } else {
        std::vector<float> frame(channels);
        samples_.reserve(bytes.size() / frameBytes * frameBytes_);
        for (std::size_t at = 0; at < bytes.size(); at += frameBytes) {
            for (unsigned channel = 0; channel < channels; ++channel) {
                frame[channel] = toFloat(&bytes[at + std::size_t{channel} * width], width);
            }
            append(frame, samples_);
        }
    }
    if (samples_.empty()) {
        fail(Diagnostic::Code::CannotPlay, {}, "there is no whole frame");
        return;
    }
    frames_ = static_cast<std::int64_t>(samples_.size() / frameBytes_);
    finish(State::Ready);
}

void Sound::load(const Corvid::URL& url) noexcept {
    const std::string name = url.text();
    try {
        file_ = url.fetch();
    } catch (const Corvid::URLImpl::Exception& fault) {
        return fail(Diagnostic::Code::CannotFetch, name, fault.reason());
    } catch (const std::exception& fault) {
        return fail(Diagnostic::Code::CannotFetch, name, fault.what());
    }
    try {
        SoundFile file(file_->name());
        if (!file.isOpen()) {
            return fail(Diagnostic::Code::CannotPlay, name, file.error());
        }
        shape(file.rate(), file.channels(), true);
        frames_ = static_cast<std::int64_t>(file.frames());
        std::vector<float> block(
            std::size_t{16384} / fileChannels_ * fileChannels_ + fileChannels_);
        while (const std::size_t got = file.read(block)) {
            append(std::span(block).first(got * fileChannels_), samples_);
            if (isStreamed() &&
                samples_.size() >= static_cast<std::size_t>(headFrames()) * frameBytes_) {
                return finish(State::Ready);
            }
            if (samples_.size() > SoundFile::kMaxBytes) {
                return fail(
                    Diagnostic::Code::CannotPlay, name,
                    "its length is unknown, and it has more than " +
                        std::to_string(SoundFile::kMaxBytes) + " bytes");
            }
        }
        if (!file.error().empty() || samples_.empty()) {
            return fail(
                Diagnostic::Code::CannotPlay, name,
                samples_.empty() ? "it contains no samples" : file.error());
        }
        frames_ = static_cast<std::int64_t>(samples_.size() / frameBytes_);
        samples_.shrink_to_fit();
        file_.reset();
        finish(State::Ready);
    } catch (const std::exception& fault) { // out of memory
        fail(Diagnostic::Code::CannotPlay, name, fault.what());
    }
}

} // namespace Orvel::detail

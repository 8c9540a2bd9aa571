#include <Orvel/SoundFile.h>

#include <Orvel/Source.h>
#include <Orvel/detail/PathProblem.h>

#include <algorithm>
#include <cmath>
#include <sndfile.h>
#include <utility>

namespace Orvel {

namespace {

constexpr std::size_t kBlockSamples = 16384;

std::int16_t toSample(double value) {
    if (std::isnan(value)) {
        return 0;
    }
    return static_cast<std::int16_t>(std::lrint(std::clamp(value * 32768.0, -32768.0, 32767.0)));
}

} // namespace

struct SoundFile::State {
    struct Close {
        void operator()(SNDFILE* handle) const { sf_close(handle); }
    };

    std::string name; // in quotes
    std::string error;
    std::unique_ptr<SNDFILE, Close> file;
    SF_INFO info{};
    std::uint64_t position = 0;
    std::vector<float> block; // for integers and mixing

    [[nodiscard]] std::size_t channels() const { return static_cast<std::size_t>(info.channels); }

    void fail(const std::string& expected, const std::string& found) {
        error = "expected " + expected + ", but " + name + found;
    }
    std::size_t read(std::span<float> samples) {
        if (file == nullptr) {
            return 0;
        }
        const auto frames = static_cast<sf_count_t>(samples.size() / channels());
        const sf_count_t got = sf_readf_float(file.get(), samples.data(), frames);
        if (got < frames && sf_error(file.get()) != SF_ERR_NO_ERROR) {
            fail("a whole sound file", std::string(" is damaged: ") + sf_strerror(file.get()));
        }
        position += static_cast<std::uint64_t>(std::max<sf_count_t>(got, 0));
        return static_cast<std::size_t>(std::max<sf_count_t>(got, 0));
    }
    /// Reads at most `most` further samples into a buffer of this object.
    std::span<const float> readBlock(std::size_t most) {
        const std::size_t frames = std::max<std::size_t>(1, kBlockSamples / channels());
        block.resize(frames * channels());
        const std::size_t got = read(std::span(block).first(std::min(most, block.size())));
        return std::span(block).first(got * channels());
    }
};

std::set<std::string> SoundFile::extensions() {
    int count = 0;
    sf_command(nullptr, SFC_GET_FORMAT_MAJOR_COUNT, &count, sizeof count);
    std::set<std::string> extensions;
    for (int i = 0; i < count; ++i) {
        SF_FORMAT_INFO info{};
        info.format = i;
        if (sf_command(nullptr, SFC_GET_FORMAT_MAJOR, &info, sizeof info) == 0 &&
            info.extension != nullptr) {
            extensions.insert(info.extension);
        }
    }
    return extensions;
}

SoundFile::SoundFile(const std::string& path) : state_(std::make_unique<State>()) {
    State& state = *state_;
    state.name = "\"" + path + "\"";
    if (const std::string fault = detail::pathProblem(path); !fault.empty()) {
        state.fail("a sound file", fault);
        return;
    }
    state.file.reset(sf_open(path.c_str(), SFM_READ, &state.info));
    if (state.file == nullptr) {
        state.fail("a sound file", std::string(" cannot be read: ") + sf_strerror(nullptr));
        return;
    }
    const int rate = state.info.samplerate;
    if (rate < static_cast<int>(kMinRate) || rate > static_cast<int>(kMaxRate)) {
        state.fail(
            "a sound of " + std::to_string(kMinRate) + " to " + std::to_string(kMaxRate) +
                " samples a second",
            " has " + std::to_string(rate));
        state.file.reset();
    }
}

SoundFile::SoundFile(SoundFile&& other) noexcept = default;
SoundFile& SoundFile::operator=(SoundFile&& other) noexcept = default;
SoundFile::~SoundFile() = default;

bool SoundFile::isOpen() const noexcept {
    return state_->file != nullptr;
}

const std::string& SoundFile::error() const noexcept {
    return state_->error;
}

unsigned SoundFile::rate() const noexcept {
    return isOpen() ? static_cast<unsigned>(state_->info.samplerate) : 0;
}

unsigned SoundFile::channels() const noexcept {
    return isOpen() ? static_cast<unsigned>(state_->info.channels) : 0;
}

std::uint64_t SoundFile::frames() const noexcept {
    const sf_count_t frames = isOpen() ? state_->info.frames : 0;
    return frames > 0 && frames < SF_COUNT_MAX ? static_cast<std::uint64_t>(frames) : 0;
}

double SoundFile::seconds() const noexcept {
    return isOpen() ? static_cast<double>(frames()) / rate() : 0.0;
}

std::uint64_t SoundFile::position() const noexcept {
    return state_->position;
}

bool SoundFile::seek(std::uint64_t frame) {
    State& state = *state_;
    if (!isOpen()) {
        return false;
    }
    if (frame > SF_COUNT_MAX ||
        sf_seek(state.file.get(), static_cast<sf_count_t>(frame), SEEK_SET) < 0) {
        state.fail("to reach frame " + std::to_string(frame), " has no such frame");
        return false;
    }
    state.position = frame;
    return true;
}

std::size_t SoundFile::read(std::span<float> samples) {
    return state_->read(samples);
}

std::size_t SoundFile::read(std::span<std::int16_t> samples) {
    if (!isOpen()) {
        return 0;
    }
    std::size_t done = 0;
    for (;;) {
        const std::span<const float> got = state_->readBlock(samples.size() - done);
        if (got.empty()) {
            return done / state_->channels();
        }
        std::transform(
            got.begin(), got.end(), samples.begin() + static_cast<std::ptrdiff_t>(done), toSample);
        done += got.size();
    }
}

std::optional<SoundFile::Pcm> SoundFile::decode(Channels channels, std::size_t maxBytes) {
    State& state = *state_;
    if (!isOpen()) {
        return std::nullopt;
    }
    const bool keep = channels == Channels::Keep;
    if (keep && state.channels() > 2) {
        state.fail("a sound of 1 or 2 channels", " has " + std::to_string(state.channels()));
        return std::nullopt;
    }
    if (state.position != 0 && !seek(0)) {
        return std::nullopt;
    }
    state.error.clear();
    const std::size_t mixed = keep ? 1 : state.channels();
    Pcm pcm{rate(), static_cast<unsigned>(state.channels() / mixed), {}};
    for (;;) {
        const std::span<const float> got = state.readBlock(kBlockSamples);
        if (got.empty()) {
            break;
        }
        for (std::size_t i = 0; i < got.size(); i += mixed) {
            double sum = 0.0;
            for (std::size_t channel = 0; channel < mixed; ++channel) {
                sum += static_cast<double>(got[i + channel]);
            }
            pcm.samples.push_back(toSample(sum / static_cast<double>(mixed)));
        }
        if (pcm.samples.size() * sizeof(std::int16_t) > maxBytes) {
            state.fail(
                "no more than " + std::to_string(maxBytes) + " bytes of decoded sound",
                " has more");
            return std::nullopt;
        }
    }
    if (state.error.empty() && pcm.samples.empty()) {
        state.fail("a sound", " contains no samples");
    }
    if (!state.error.empty()) {
        return std::nullopt;
    }
    pcm.samples.shrink_to_fit();
    return pcm;
}

bool SoundFile::giveTo(Source& source, Channels channels) {
    const std::optional<Pcm> pcm = decode(channels);
    if (!pcm) {
        return false;
    }
    pcm->giveTo(source);
    return true;
}

void SoundFile::Pcm::giveTo(Source& source) const {
    source.setData(
        rate, 16, channels, reinterpret_cast<const unsigned char*>(samples.data()),
        static_cast<unsigned>(samples.size() * sizeof(std::int16_t)));
}

} // namespace Orvel

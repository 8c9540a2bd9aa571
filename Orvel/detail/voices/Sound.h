#pragma once

#include <Corvid/URL.h>
#include <Orvel/Diagnostic.h>
#include <Orvel/SoundFile.h>
#include <Vessa/Mutex.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Orvel::detail {

/// What the kind "voices" plays for a source: samples, or a file that is read while it plays.
///
/// One thread fills it with setPcm() or load(); it is immutable once state() is no longer Loading,
/// and then any thread may use it. Shared by the scene, the engine and the loader.
class Sound {
public:
    enum class State { Loading, Ready, Failed };
    struct Settings {
        bool keepChannels = true; ///< otherwise several channels are mixed to one
        double streamFrom = 10.0; ///< longer sounds are streamed, in seconds
    };
    /// The part of a streamed file that is kept, so that it starts at once, in seconds.
    static constexpr double kHeadSeconds = 0.3;

    explicit Sound(const Settings& settings) : settings_(settings) {}

    /// Integer samples of 8 (unsigned), 16, 24 or 32 bits, little endian, as in a WAV file; an
    /// incomplete frame at the end is ignored.
    void
    setPcm(unsigned rate, unsigned bits, unsigned channels, std::span<const unsigned char> bytes);
    /// Fetches and decodes a sound file; blocks.
    void load(const Corvid::URL& url) noexcept;

    [[nodiscard]] State state() const noexcept { return state_.load(std::memory_order_acquire); }
    /// Why it has failed; with an empty text if there is nothing to report.
    [[nodiscard]] const Diagnostic& failure() const noexcept { return failure_; }

    // Of a ready sound.
    [[nodiscard]] unsigned rate() const noexcept { return rate_; } ///< frames per second
    [[nodiscard]] unsigned channels() const noexcept { return channels_; }
    [[nodiscard]] bool isSpatial() const noexcept { return channels_ == 1; }
    [[nodiscard]] std::int64_t frames() const noexcept { return frames_; }
    [[nodiscard]] double seconds() const noexcept {
        return static_cast<double>(frames_) / static_cast<double>(rate_);
    }
    [[nodiscard]] int format() const noexcept { return format_; } ///< AL's
    [[nodiscard]] std::size_t frameBytes() const noexcept { return frameBytes_; }
    [[nodiscard]] bool isStreamed() const noexcept { return seconds() > settings_.streamFrom; }
    /// Frames of kHeadSeconds.
    [[nodiscard]] std::int64_t headFrames() const noexcept {
        return static_cast<std::int64_t>(kHeadSeconds * rate_);
    }
    /// All samples, or those at the beginning if the rest is read from the file.
    [[nodiscard]] std::span<const std::byte> samples() const noexcept { return samples_; }
    /// Opens the file, if there is one. Check isOpen().
    [[nodiscard]] SoundFile openFile() const { return SoundFile(file_->name()); }
    /// Called by a thread that finds the file damaged while it plays; the first reason counts.
    void setDamage(const std::string& reason) const;
    /// The reason, once; empty if the file is not known to be damaged.
    [[nodiscard]] std::string takeDamage() const;
    /// Converts frames of the file to frames of the sound, appending them.
    void append(std::span<const float> fromFile, std::vector<std::byte>& to) const;

private:
    void fail(Diagnostic::Code code, const std::string& subject, const std::string& reason);
    /// Sets the form of the samples; returns whether the channels have to be mixed.
    bool shape(unsigned rate, unsigned channels, bool floats);
    void finish(State state) noexcept { state_.store(state, std::memory_order_release); }

    Settings settings_;
    unsigned rate_ = 0;
    unsigned channels_ = 0;
    unsigned fileChannels_ = 0;
    std::int64_t frames_ = 0;
    int format_ = 0;
    std::size_t frameBytes_ = 0;
    std::vector<std::byte> samples_;
    std::unique_ptr<Corvid::URLImpl::File> file_;
    Diagnostic failure_;
    std::atomic<State> state_{State::Loading};
    mutable Vessa::Mutex damageMutex_;
    mutable std::optional<std::string> damage_ ORVEL_GUARDED_BY(damageMutex_);
};

} // namespace Orvel::detail

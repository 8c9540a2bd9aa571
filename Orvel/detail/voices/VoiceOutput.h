#pragma once

#include <Orvel/OutputLayout.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <AL/alc.h>

namespace Orvel::detail {

/// An OpenAL device with a context for voices: this machine's sound device, or a loopback device
/// from which frames are pulled. The context is current only inside a Use, and only on that thread,
/// so that other OpenAL back ends of the process are not disturbed. Confined.
class VoiceOutput {
public:
    struct Settings {
        std::string name{}; ///< of the device; empty for the default one
        unsigned rate = 0;  ///< frames per second; 0 for the device's own
        std::size_t voices = 128;
        unsigned latency = 0; ///< that was asked for, in milliseconds; 0: none, see OpenALSettings
        /// Null leaves a device to OpenAL's settings; a loopback device is then stereo.
        const OutputLayout* layout = nullptr;
        std::string hrtf{}; ///< the data set for headphones; empty for the usual one
    };

    /// Opens the device. Null if there is none; may take long.
    static std::unique_ptr<VoiceOutput> openDevice(const Settings& settings);
    /// Opens a loopback device; reports and returns null if that is impossible.
    static std::unique_ptr<VoiceOutput> openOffline(const Settings& settings);
    /// The names of the data sets for headphones.
    static std::vector<std::string> hrtfNames();
    VoiceOutput(const VoiceOutput&) = delete;
    VoiceOutput& operator=(const VoiceOutput&) = delete;
    ~VoiceOutput();

    /// Makes the context current on this thread during its lifetime. Does nothing with null.
    class Use {
    public:
        explicit Use(const VoiceOutput* output);
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;
        ~Use();

    private:
        bool used_;
        ALCcontext* before_;
    };

    [[nodiscard]] unsigned rate() const noexcept { return rate_; } ///< frames per second
    /// The number of frames that a device mixes at a time.
    [[nodiscard]] std::int64_t period() const noexcept { return period_; }
    [[nodiscard]] const std::string& name() const noexcept { return name_; }
    /// Why it does not render for headphones, although that was asked for; else empty.
    [[nodiscard]] const std::string& problem() const noexcept { return problem_; }
    /// Why it does not have the latency that was asked for; else empty.
    [[nodiscard]] std::string latencyProblem(const Settings& settings) const;
    /// False once the device is lost.
    [[nodiscard]] bool connected() const;
    /// The number of frames that have been mixed.
    [[nodiscard]] std::int64_t clock() const;
    /// The number of frames that have been mixed, and the time from mixing a frame until it is
    /// heard, both at the same instant.
    struct Position {
        std::int64_t mixed;
        std::chrono::nanoseconds latency;
    };
    [[nodiscard]] Position position() const;
    /// Renders interleaved frames of a loopback device, of its layout.
    void render(float* samples, unsigned frames);

private:
    [[nodiscard]] std::int64_t framesOf(std::int64_t nanoseconds) const;
    VoiceOutput(ALCdevice* device, const ALCint* attributes);
    /// Takes over a device; null if that is null or cannot be used.
    static std::unique_ptr<VoiceOutput>
    on(ALCdevice* device, const Settings& settings, std::vector<ALCint> attributes);

    ALCdevice* device_;
    ALCcontext* context_;
    unsigned rate_ = 0;
    std::int64_t period_ = 0;
    std::string name_;
    std::string problem_;
};

} // namespace Orvel::detail

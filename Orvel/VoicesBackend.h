#pragma once

#include <Orvel/Backend.h>
#include <Orvel/BackendType.h>
#include <Orvel/FrameClock.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include <orvel_export.h>

namespace Orvel {

/// Plays a scene with any number of emitters through OpenAL Soft: the kind "voices". Those that are
/// loudest at the listener are mixed; the others go on in time, and are mixed again as soon as they
/// are loud enough. Plays every format of SoundFile, and streams long sounds. One engine has two
/// ends: a sound device, which is opened on a thread of its own and may come late, or frames that
/// the program pulls ("offline=yes").
///
/// Hull, gain, position and pitch act as in the kind "openal". Differences: a disabled world stays
/// silent when the listener moves; values that are not finite are reported and not used; setting a
/// playing source's samples plays these from their start.
///
/// The kind is registered when type() or registerType() is first called. docs/parameters.md lists
/// its parameters.
///
/// Confined to its world's thread. Setters never wait for the device. Durations, failures and ends
/// of sounds are reported from update(), offline also from render(). Offline, setting a source's
/// URL waits for its sound.
class ORVEL_EXPORT VoicesBackend : public Backend {
public:
    static constexpr unsigned kChannels = 2;

    VoicesBackend(World& world, const char* params);
    VoicesBackend(const VoicesBackend&) = delete;
    VoicesBackend& operator=(const VoicesBackend&) = delete;
    ~VoicesBackend() override;

    void resetBackend() override;
    void setEnabled() override;
    void setListenerTransform() override;
    void createSource(Source& source) override;
    void destroySource(Source& source) override;
    void setSourceData(Source& source) override;
    void setSourceParam(Source& source) override;
    void setSourceState(Source& source) override;
    void createEmitter(Emitter& emitter) override;
    void destroyEmitter(Emitter& emitter) override;
    void setEmitterTransform(Emitter& emitter) override;
    void setEmitterHull(Emitter& emitter) override;
    void setEmitterParam(Emitter& emitter) override;
    void setEmitterConnection(Emitter& emitter) override;
    void setEmitterState(Emitter& emitter) override;

    bool update() override;
    BackendType* type() override;
    /// The device, the voices, and the emitters that wait for one or cannot be played. It works
    /// unless there is no device; one that is still being opened counts as there.
    [[nodiscard]] BackendState state() const override;

    /// Waits until the device is open or known to be absent, at most `patience`. Returns whether it
    /// is open.
    bool waitForDevice(std::chrono::milliseconds patience) const;

    /// Number of sounds that are being fetched and decoded; their durations are not known yet.
    [[nodiscard]] std::size_t loadingSounds() const noexcept;

    /// Whether frames are pulled with render().
    [[nodiscard]] bool isOffline() const noexcept;
    /// Sample rate of render() in Hz.
    [[nodiscard]] unsigned rate() const noexcept;
    /// Renders the next `frames` frames into `samples`, which must have room for kChannels * frames
    /// interleaved floats, left first. Full scale is 1, and louder sums are not limited. Returns
    /// false, without writing, if the back end is not offline or OpenAL has no loopback device.
    bool render(float* samples, unsigned frames);

    /// Starts that are asked for from now on begin at this frame of the output, exact to the frame;
    /// without a frame, as initially, they begin at once. It concerns each change of an emitter's
    /// state to PLAY, with its start offset, and is read when that is set. A frame that is past is
    /// no error: the sound joins at the position that it would have by then. For a start at a
    /// coming frame, see FrameClock::soonest; asked for later, it may miss its beginning.
    void setStartFrame(std::optional<std::int64_t> frame);
    /// The time of the output, by which frames are chosen. Offline, the time is that of the call
    /// and `heard` the next frame to render.
    [[nodiscard]] FrameClock frameClock() const;

    /// The position in an emitter's sound, in seconds of the sound: its length if it has ended, 0
    /// if it is stopped. Nothing if this back end does not play the emitter.
    [[nodiscard]] std::optional<double> playPosition(const Emitter& emitter) const;
    /// `ended` is called for each emitter whose sound has ended by itself; an empty function ends
    /// that. It may change the scene.
    void setEndedHandler(std::function<void(Emitter& emitter)> ended);

    static Backend* createMethod(World& world, const char* params);
    /// Registers the kind if necessary, and returns its record.
    static BackendType* registerType();

private:
    struct State;

    /// Sets the durations of sounds that have been loaded, and reports those that failed.
    ORVEL_NO_EXPORT void reportLoaded();
    /// Reports streamed files that turned out to be damaged.
    ORVEL_NO_EXPORT void reportDamaged();

    std::unique_ptr<State> state_;
};

} // namespace Orvel

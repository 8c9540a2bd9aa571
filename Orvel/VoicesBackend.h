#pragma once

#include <Orvel/Backend.h>
#include <Orvel/BackendType.h>
#include <Orvel/FrameClock.h>
#include <Orvel/Hull.h>
#include <Orvel/OutputLayout.h>
#include <Orvel/Vec3f.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <orvel_export.h>

namespace Orvel {

/// How VoicesBackend::playOnce() plays a sound.
struct Shot {
    Vec3f position{};
    Hull hull{};         ///< see Emitter::setHull()
    float gain = 1.0F;   ///< linear
    float pitch = 1.0F;  ///< a factor on the source's
    bool spatial = true; ///< otherwise heard at the listener
    double offset = 0.0; ///< where it starts, in seconds of the sound
};

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
    /// The layout of render(): the one that was asked for, or stereo.
    [[nodiscard]] const OutputLayout& layout() const noexcept;
    /// Renders the next `frames` frames into `samples`, which must have room for layout().channels
    /// * frames interleaved floats. Full scale is 1, and louder sums are not limited. Returns
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

    /// Moves all sounds that began over a second ago forward by so many seconds of playing, or
    /// back, each with a fade of some milliseconds; one that would be before its beginning waits
    /// for it. For an output that has been interrupted, as frameClock() shows within a second.
    void moveSounds(double seconds);

    /// The position in an emitter's sound, in seconds of the sound: its length if it has ended, 0
    /// if it is stopped. Nothing if this back end does not play the emitter.
    [[nodiscard]] std::optional<double> playPosition(const Emitter& emitter) const;
    /// Plays a source's sound once, without an emitter: any number of times at once, each from its
    /// own place, over one set of samples. It begins as setStartFrame() says, or when the sound has
    /// been loaded, and is over by itself. Nothing of it is in the scene, and other back ends do
    /// not hear it. Returns its number for stopOnce(), or 0 if the back end does not know the
    /// source or a value of `shot` cannot be used. Destroying the source ends it.
    int playOnce(const Source& source, const Shot& shot = {});
    /// Ends one of playOnce() early; nothing happens if it is over.
    void stopOnce(int shot);
    /// The number of those that are not over, as of the last update().
    [[nodiscard]] std::size_t shots() const noexcept;

    /// The names of the HRTF data sets for "output=headphones" that OpenAL finds; may take some
    /// milliseconds. Those of one set for several rates differ by "-44100" at their ends, which the
    /// parameter may leave out.
    [[nodiscard]] static std::vector<std::string> hrtfNames();
    /// The presets of the parameter "reverb".
    [[nodiscard]] static std::vector<std::string> reverbNames();
    /// The time in which a preset's reverberation falls by 60 dB, in seconds; 0 if there is no such
    /// preset.
    [[nodiscard]] static float reverbDecay(const std::string& name);

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

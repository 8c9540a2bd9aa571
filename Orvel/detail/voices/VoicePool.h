#pragma once

#include <Orvel/Hull.h>
#include <Orvel/Vec3f.h>
#include <Orvel/detail/voices/Playhead.h>
#include <Orvel/detail/voices/Reverb.h>
#include <Orvel/detail/voices/SoundStream.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

namespace Orvel::detail {

/// How an emitter sounds: the values that a voice takes over.
struct VoiceValues {
    Vec3f position{};
    bool spatial = true; ///< heard at its position
    Hull hull{};
    float radius = 0.0F;
    bool attenuated = true;
    float gain = 1.0F;
    float pitch = 1.0F;
    bool loop = false;
    float occlusion = 0.0F; ///< 0: heard freely, 1: through a closed low-pass filter
    Vec3f velocity{};       ///< units per second
    float hold = 0.0F;      ///< how long the velocity holds, in seconds
};

/// The AL sources of one context, which mix sounds. Each is free, sounding, or fading out after its
/// release, so that no end is a click; OpenAL Soft itself fades in what starts in the middle of a
/// sound. There are twice as many as may sound, so that all can change at once.
///
/// Confined; the context is current in every call, the destructor included. AL's error state is the
/// caller's.
class VoicePool {
public:
    /// Takes a stream whose chunks another thread is to read ahead.
    using Reader = std::function<void(const std::shared_ptr<SoundStream>& stream)>;

    /// Returns the next frame that is mixed; for frames that are mixed on another thread.
    using Clock = std::function<std::int64_t()>;

    struct Settings {
        std::size_t voices; ///< fewer may be available
        unsigned rate;      ///< frames per second of the output
        /// The number of frames after which a new gain has been reached for certain.
        std::int64_t settled = 1;
        std::string reverb{}; ///< see Reverb; empty: none
        float wet = 1.0F;
        Reader reader{}; ///< without it, chunks are read when they are needed
        Clock clock{};   ///< without it, no frames are mixed inside the calls
    };
    explicit VoicePool(Settings settings);
    VoicePool(const VoicePool&) = delete;
    VoicePool& operator=(const VoicePool&) = delete;
    ~VoicePool();

    /// The number of sounds that it can mix at once.
    [[nodiscard]] std::size_t size() const noexcept { return size_; }
    [[nodiscard]] std::size_t sounding() const noexcept { return sounding_; }
    [[nodiscard]] std::size_t streams() const noexcept { return streams_; }
    /// How often a stream had no data in time.
    [[nodiscard]] std::uint64_t gaps() const noexcept { return gaps_; }
    /// Frames per second of the output.
    [[nodiscard]] unsigned rate() const noexcept { return settings_.rate; }

    /// Starts to mix a ready sound, whose position is `head` and may begin to move at a coming
    /// frame; `now` is the next frame that is mixed. Returns the voice, or -1 if none is free.
    int start(
        const std::shared_ptr<const Sound>& sound, const VoiceValues& values, const Playhead& head,
        float shift, std::int64_t now);
    /// Whether a voice's samples are handed to OpenAL bit by bit.
    [[nodiscard]] bool isFed(int voice) const {
        return voices_[static_cast<Index>(voice)].stream != nullptr;
    }
    /// Ends a voice's sound; its number is invalid from then on.
    void release(int voice);

    void setPlace(int voice, const VoiceValues& values);
    void setReach(int voice, const VoiceValues& values);
    void setGain(int voice, const VoiceValues& values);
    void setOcclusion(int voice, const VoiceValues& values);
    /// `shift` is a factor on the pitch.
    void setPlayback(int voice, const VoiceValues& values, const Playhead& head, float shift);

    /// Goes on with fades and streams. `now` is the next frame that is mixed, and `frames` are
    /// mixed at a time.
    void advance(std::int64_t now, std::int64_t frames);
    /// Deletes the samples of sounds that nothing else uses.
    void forgetUnused();

private:
    struct Voice {
        unsigned source = 0;
        float radius = 0.0F;                // the AL source's, as of the last user
        std::shared_ptr<const Sound> sound; // while sounding or fading
        float gain = 1.0F;
        float fade = 1.0F; // below 1 after the release
        float occlusion = 0.0F;
        bool sends = false; // to the reverberation
        std::int64_t silentSince = 0;
        // Of a streamed sound, or one that starts at a coming frame. Frames are counted through
        // all rounds of a loop.
        std::shared_ptr<SoundStream> stream;
        Playhead head;
        bool started = false;        // it may wait for its first data
        std::deque<unsigned> queue;  // AL buffers
        std::int64_t queuedFrom = 0; // the first frame in the queue; below 0 it is silence
        std::int64_t queuedTo = 0;   // the end of the queue
        bool loop = false;
    };
    using Index = std::uint32_t;

    unsigned bufferOf(const std::shared_ptr<const Sound>& sound);
    void feed(Voice& voice, std::int64_t now);
    void queueSilence(Voice& voice, std::int64_t now);
    void play(Voice& voice, std::int64_t first, std::int64_t end, std::int64_t now);
    void enqueue(Voice& voice, std::span<const std::byte> samples);
    void dropQueue(Voice& voice);
    void setFilters(Voice& voice);
    void free(Index index);

    const Settings settings_;
    std::optional<Reverb> reverb_;
    std::optional<LowPass> lowPass_; // once something is occluded
    std::size_t size_ = 0;
    std::size_t sounding_ = 0;
    std::size_t streams_ = 0;
    std::uint64_t gaps_ = 0;
    std::vector<Voice> voices_;
    std::vector<Index> free_;
    std::vector<Index> fading_;
    std::vector<Index> streaming_;
    std::unordered_map<std::shared_ptr<const Sound>, unsigned> buffers_;
    std::vector<unsigned> spareBuffers_; // for streams
};

} // namespace Orvel::detail

#include <Orvel/detail/voices/VoicePool.h>

#include <Orvel/detail/al/ALCalls.h>

#include <AL/al.h>
#include <AL/alext.h>
#include <AL/efx.h>
#include <algorithm>
#include <cstring>
#include <utility>

namespace Orvel::detail {

namespace {

/// A released voice fades out within this number of frames.
constexpr float kFadeFrames = 512.0F;
/// How far the data of a stream reaches beyond its position, in seconds of playing.
constexpr double kSecondsAhead = 0.5;
/// The data with which a stream starts, in seconds of playing, so that its reader may be late from
/// then on; and at least, in frames.
constexpr double kMinSecondsToStart = 0.15;
constexpr std::int64_t kMinToStart = 64;
/// The frames within which a sound that starts in its middle reaches its level.
constexpr std::size_t kRampFrames = 32;
/// How often a start is repeated because frames were mixed meanwhile.
constexpr int kMaxTries = 8;

void setOffset(ALuint source, double frames) {
    static const auto setDouble =
        reinterpret_cast<LPALSOURCEDSOFT>(alGetProcAddress("alSourcedSOFT"));
    setDouble(source, AL_SAMPLE_OFFSET, frames);
}

double toFrames(std::int64_t position) {
    return static_cast<double>(position) / static_cast<double>(Playhead::kOne);
}

ALint stateOf(ALuint source, ALenum property) {
    ALint value = 0;
    alGetSourcei(source, property, &value);
    return value;
}

/// Lets the first frames of interleaved samples begin at silence.
template <class Sample>
void ramp(std::span<std::byte> bytes, std::size_t channels) {
    for (std::size_t i = 0; i < bytes.size() / sizeof(Sample) && i < kRampFrames * channels; ++i) {
        Sample sample{};
        std::memcpy(&sample, &bytes[i * sizeof(Sample)], sizeof(Sample));
        const std::size_t frame = i / channels;
        const auto factor = static_cast<float>(frame + 1) / kRampFrames;
        sample = static_cast<Sample>(static_cast<float>(sample) * factor);
        std::memcpy(&bytes[i * sizeof(Sample)], &sample, sizeof(Sample));
    }
}

} // namespace

VoicePool::VoicePool(Settings settings) : settings_(std::move(settings)) {
    alGetError();
    const std::size_t voices = settings_.voices;
    voices_.reserve(2 * voices);
    for (std::size_t i = 0; i < 2 * voices; ++i) {
        ALuint name = 0;
        alGenSources(1, &name);
        if (alGetError() != AL_NO_ERROR) {
            break; // OpenAL's configuration allows no more
        }
        voices_.emplace_back().source = name;
        free_.push_back(static_cast<Index>(i));
    }
    std::reverse(free_.begin(), free_.end());
    size_ = std::min(voices, (voices_.size() + 1) / 2);
    if (!settings_.reverb.empty()) {
        reverb_.emplace(settings_.reverb, settings_.wet);
        for (const Voice& voice : voices_) { // it falls with distance as the sound itself does
            alSourcef(voice.source, AL_ROOM_ROLLOFF_FACTOR, 1.0F);
        }
    }
}

VoicePool::~VoicePool() {
    for (Voice& voice : voices_) {
        alSourceStop(voice.source);
        dropQueue(voice);
        alDeleteSources(1, &voice.source); // before the slot to which it sends
    }
    alDeleteBuffers(static_cast<ALsizei>(spareBuffers_.size()), spareBuffers_.data());
    for (const auto& [sound, buffer] : buffers_) {
        alDeleteBuffers(1, &buffer);
    }
}

unsigned VoicePool::bufferOf(const std::shared_ptr<const Sound>& sound) {
    const auto found = buffers_.find(sound);
    if (found != buffers_.end()) {
        return found->second;
    }
    ALuint buffer = 0;
    alGenBuffers(1, &buffer);
    alBufferData(
        buffer, sound->format(), sound->samples().data(),
        static_cast<ALsizei>(sound->samples().size()), static_cast<ALsizei>(sound->rate()));
    buffers_.emplace(sound, buffer);
    return buffer;
}

void VoicePool::forgetUnused() {
    std::erase_if(buffers_, [](const auto& entry) {
        if (entry.first.use_count() > 1) {
            return false;
        }
        alDeleteBuffers(1, &entry.second);
        return true;
    });
}

int VoicePool::start(
    const std::shared_ptr<const Sound>& sound, const VoiceValues& values, const Playhead& head,
    float shift, std::int64_t now) {
    if (free_.empty() || sounding_ >= size_) {
        return -1;
    }
    const Index index = free_.back();
    free_.pop_back();
    ++sounding_;
    Voice& voice = voices_[index];
    const auto [source, radius] = std::pair(voice.source, voice.radius);
    voice = {};
    voice.source = source;
    voice.radius = radius;
    voice.sound = sound;
    voice.head = head;
    voice.loop = values.loop;
    voice.occlusion = values.occlusion;
    voice.sends = reverb_ && values.spatial && sound->isSpatial();
    const int number = static_cast<int>(index);
    setPlace(number, values);
    setReach(number, values);
    setGain(number, values);
    setFilters(voice);
    if (!sound->isStreamed() && head.since <= now) {
        setPlayback(number, values, head, shift);
        alSourcei(source, AL_BUFFER, static_cast<ALint>(bufferOf(sound)));
        play(voice, 0, sound->frames(), now);
        return number;
    }
    // OpenAL Soft fades in what starts inside its data, so that one starts a frame early.
    const std::int64_t first = head.at(now) / Playhead::kOne;
    voice.stream = std::make_shared<SoundStream>(
        sound, head.since > now ? first : std::max<std::int64_t>(first - 1, 0), values.loop);
    setPlayback(number, values, head, shift);
    if (settings_.reader && sound->isStreamed()) {
        while (voice.stream->isInMemory() && voice.stream->fill()) {
            // so that it starts at once
        }
        settings_.reader(voice.stream);
    }
    streaming_.push_back(index);
    streams_ += sound->isStreamed() ? 1 : 0;
    return number;
}

/// Starts a voice at its position. `first` and `end` are the limits of the data that OpenAL has, in
/// frames of the sound.
void VoicePool::play(Voice& voice, std::int64_t first, std::int64_t end, std::int64_t now) {
    voice.started = true;
    const bool begins = voice.head.since == now; // is heard from there, even if that is late
    for (int tries = 1;; ++tries) {
        const std::int64_t frame = settings_.clock && !begins ? settings_.clock() : now;
        std::int64_t offset = voice.head.along(frame) - first * Playhead::kOne;
        const std::int64_t length = (end - first) * Playhead::kOne;
        if (voice.loop && voice.stream == nullptr) {
            offset %= length;
        }
        offset = std::min(offset, length - Playhead::kOne);
        if (offset > 0) {
            setOffset(voice.source, toFrames(offset));
        }
        alSourcePlay(voice.source);
        if (!settings_.clock || begins || tries == kMaxTries || settings_.clock() == frame) {
            return;
        }
        alSourceStop(voice.source);
    }
}

/// Delays a voice's data by silence until the frame at which it begins.
void VoicePool::queueSilence(Voice& voice, std::int64_t now) {
    const std::int64_t lead = voice.head.since - (settings_.clock ? settings_.clock() : now);
    const std::int64_t frames =
        (lead * voice.head.step - voice.head.position % Playhead::kOne + Playhead::kOne - 1) /
        Playhead::kOne;
    if (lead > 0 && frames > 0) {
        const auto bytes = static_cast<std::size_t>(frames) * voice.sound->frameBytes();
        enqueue(voice, std::vector<std::byte>(bytes));
        voice.queuedFrom -= frames;
    }
}

void VoicePool::enqueue(Voice& voice, std::span<const std::byte> samples) {
    ALuint buffer = 0;
    if (spareBuffers_.empty()) {
        alGenBuffers(1, &buffer);
    } else {
        buffer = spareBuffers_.back();
        spareBuffers_.pop_back();
    }
    alBufferData(
        buffer, voice.sound->format(), samples.data(), static_cast<ALsizei>(samples.size()),
        static_cast<ALsizei>(voice.sound->rate()));
    alSourceQueueBuffers(voice.source, 1, &buffer);
    voice.queue.push_back(buffer);
}

void VoicePool::dropQueue(Voice& voice) {
    alSourcei(voice.source, AL_BUFFER, 0);
    spareBuffers_.insert(spareBuffers_.end(), voice.queue.begin(), voice.queue.end());
    voice.queue.clear();
}

void VoicePool::feed(Voice& voice, std::int64_t now) {
    // All buffers of a source that has not been started again count as processed.
    for (ALint played = voice.started ? stateOf(voice.source, AL_BUFFERS_PROCESSED) : 0; played > 0;
         --played) {
        ALuint buffer = 0;
        alSourceUnqueueBuffers(voice.source, 1, &buffer);
        spareBuffers_.push_back(buffer);
        voice.queue.pop_front();
    }
    const auto complete = [&] { return !voice.loop && voice.queuedTo >= voice.sound->frames(); };
    if (voice.started && !complete() && stateOf(voice.source, AL_SOURCE_STATE) == AL_STOPPED) {
        ++gaps_;
        dropQueue(voice);
        voice.started = false; // goes on at the position that it should have
    }
    const std::int64_t position = voice.head.at(now);
    const std::int64_t frame = position / Playhead::kOne;
    const double perSecond = settings_.rate * toFrames(voice.head.step);
    const auto needed =
        std::max(static_cast<std::int64_t>(kMinSecondsToStart * perSecond), kMinToStart);
    const auto ahead = std::max(static_cast<std::int64_t>(kSecondsAhead * perSecond), kMinToStart);
    const auto width = static_cast<std::int64_t>(voice.sound->frameBytes());
    while (voice.queue.empty() || voice.queuedTo < frame + ahead) {
        if (!settings_.reader || !voice.sound->isStreamed()) {
            voice.stream->fill();
        }
        auto chunk = voice.stream->take();
        if (!chunk) {
            break;
        }
        const auto frames = static_cast<std::int64_t>(chunk->samples.size()) / width;
        const bool starts = voice.queue.empty() && !voice.started;
        const std::int64_t late = starts ? std::max<std::int64_t>(frame - 1 - chunk->first, 0) : 0;
        if (late >= frames) {
            continue;
        }
        if (starts) {
            voice.queuedFrom = chunk->first + late;
            queueSilence(voice, now);
            if (!voice.queue.empty() && position > 0) {
                const std::size_t channels = voice.sound->channels();
                if (voice.sound->frameBytes() == channels * sizeof(std::int16_t)) {
                    ramp<std::int16_t>(chunk->samples, channels);
                } else {
                    ramp<float>(chunk->samples, channels);
                }
            }
        }
        enqueue(voice, std::span(chunk->samples).subspan(static_cast<std::size_t>(late * width)));
        voice.queuedTo = chunk->first + frames;
    }
    if (!voice.started && !voice.queue.empty() &&
        (complete() || voice.queuedTo >= frame + needed)) {
        play(voice, voice.queuedFrom, voice.queuedTo, now);
    }
}

void VoicePool::release(int number) {
    const auto index = static_cast<Index>(number);
    Voice& voice = voices_[index];
    --sounding_;
    if (voice.stream != nullptr) {
        voice.stream.reset();
        std::erase(streaming_, index);
        streams_ -= voice.sound->isStreamed() ? 1 : 0;
    }
    fading_.push_back(index);
}

void VoicePool::free(Index index) {
    Voice& voice = voices_[index];
    alSourceStop(voice.source);
    dropQueue(voice);
    voice.sound.reset();
    free_.push_back(index);
}

void VoicePool::advance(std::int64_t now, std::int64_t frames) {
    for (const Index index : streaming_) {
        feed(voices_[index], now);
    }
    std::erase_if(fading_, [&](Index index) {
        Voice& voice = voices_[index];
        if (voice.fade > 0.0F) {
            voice.fade = std::max(voice.fade - static_cast<float>(frames) / kFadeFrames, 0.0F);
            voice.silentSince = now;
            alSourcef(voice.source, AL_GAIN, voice.gain * voice.fade);
            return false;
        }
        if (now - voice.silentSince < settings_.settled) {
            return false;
        }
        free(index);
        return true;
    });
}

void VoicePool::setPlace(int voice, const VoiceValues& values) {
    Voice& to = voices_[static_cast<Index>(voice)];
    detail::setPlace(to.source, values.spatial, values.position);
    const bool sends = reverb_ && values.spatial && to.sound->isSpatial();
    if (sends != to.sends) {
        to.sends = sends;
        setFilters(to);
    }
}

void VoicePool::setFilters(Voice& voice) {
    if (voice.occlusion > 0.0F && !lowPass_) {
        lowPass_.emplace();
    }
    const unsigned filter = lowPass_ ? lowPass_->close(voice.occlusion) : 0;
    if (lowPass_) {
        alSourcei(voice.source, AL_DIRECT_FILTER, static_cast<ALint>(filter));
    }
    if (reverb_) {
        reverb_->send(voice.source, voice.sends, filter);
    }
}

void VoicePool::setReach(int voice, const VoiceValues& values) {
    Voice& to = voices_[static_cast<Index>(voice)];
    detail::setReach(to.source, values.attenuated, values.hull);
    if (const float radius = values.attenuated ? values.radius : 0.0F; radius != to.radius) {
        to.radius = radius;
        detail::setRadius(to.source, radius);
    }
}

void VoicePool::setGain(int voice, const VoiceValues& values) {
    Voice& to = voices_[static_cast<Index>(voice)];
    to.gain = values.gain;
    alSourcef(to.source, AL_GAIN, values.gain);
}

void VoicePool::setOcclusion(int voice, const VoiceValues& values) {
    Voice& to = voices_[static_cast<Index>(voice)];
    to.occlusion = values.occlusion;
    setFilters(to);
}

void VoicePool::setPlayback(
    int voice, const VoiceValues& values, const Playhead& head, float shift) {
    Voice& to = voices_[static_cast<Index>(voice)];
    to.head = head;
    detail::setPlayback(to.source, values.pitch * shift, values.loop && to.stream == nullptr);
}

} // namespace Orvel::detail

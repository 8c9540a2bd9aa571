#include <Orvel/detail/voices/VoicePool.h>

#include <Orvel/detail/al/ALCalls.h>

#include <AL/al.h>
#include <AL/alext.h>
#include <algorithm>
#include <utility>

namespace Orvel::detail {

namespace {

/// A released voice fades out within this number of frames.
constexpr float kFadeFrames = 512.0F;
/// How far the data of a stream reaches beyond its position, in seconds of playing.
constexpr double kSecondsAhead = 0.5;
/// The data with which a stream starts, in frames.
constexpr std::int64_t kLeastToStart = 64;

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

} // namespace

VoicePool::VoicePool(std::size_t voices, unsigned rate, std::int64_t settled, Reader reader)
    : rate_(rate), settled_(settled), reader_(std::move(reader)) {
    alGetError();
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
}

VoicePool::~VoicePool() {
    for (Voice& voice : voices_) {
        alSourceStop(voice.source);
        dropQueue(voice);
        alDeleteSources(1, &voice.source);
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
    std::int64_t now) {
    if (free_.empty() || sounding_ >= size_) {
        return -1;
    }
    const Index index = free_.back();
    free_.pop_back();
    ++sounding_;
    Voice& voice = voices_[index];
    const ALuint source = voice.source;
    voice = {};
    voice.source = source;
    voice.sound = sound;
    voice.head = head;
    voice.loop = values.loop;
    const int number = static_cast<int>(index);
    setPlace(number, values);
    setReach(number, values);
    setGain(number, values);
    setPlayback(number, values, head);
    if (!sound->isStreamed()) {
        startWhole(voice, head, now, values.loop);
        return number;
    }
    voice.stream = std::make_shared<SoundStream>(
        sound, std::max<std::int64_t>(head.at(now) / Playhead::kOne - 1, 0), values.loop);
    if (reader_) {
        reader_(voice.stream);
    }
    streaming_.push_back(index);
    ++streams_;
    return number;
}

void VoicePool::startWhole(Voice& voice, const Playhead& head, std::int64_t now, bool loop) {
    alSourcei(voice.source, AL_BUFFER, static_cast<ALint>(bufferOf(voice.sound)));
    std::int64_t position = head.at(now);
    if (loop) {
        position %= voice.sound->frames() * Playhead::kOne;
    }
    if (position > 0) {
        setOffset(voice.source, toFrames(position));
    }
    alSourcePlay(voice.source);
    voice.started = true;
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
    for (ALint played = stateOf(voice.source, AL_BUFFERS_PROCESSED); played > 0; --played) {
        ALuint buffer = 0;
        alSourceUnqueueBuffers(voice.source, 1, &buffer);
        spareBuffers_.push_back(buffer);
        voice.queue.pop_front();
    }
    const bool complete = !voice.loop && voice.queuedTo >= voice.sound->frames();
    if (voice.started && !complete && stateOf(voice.source, AL_SOURCE_STATE) == AL_STOPPED) {
        ++gaps_;
        dropQueue(voice);
        voice.started = false; // goes on at the position that it should have
    }
    const std::int64_t position = voice.head.at(now);
    const std::int64_t frame = position / Playhead::kOne;
    const auto ahead = static_cast<std::int64_t>(kSecondsAhead * rate_ * toFrames(voice.head.step));
    const auto width = static_cast<std::int64_t>(voice.sound->frameBytes());
    while (voice.queue.empty() || voice.queuedTo < frame + std::max(ahead, kLeastToStart)) {
        if (!reader_) {
            voice.stream->fill();
        }
        const auto chunk = voice.stream->take();
        if (!chunk) {
            break;
        }
        const auto frames = static_cast<std::int64_t>(chunk->samples.size()) / width;
        // Begins a frame early, since OpenAL Soft fades in only what starts inside its data.
        const std::int64_t late = voice.queue.empty() && !voice.started
                                      ? std::max<std::int64_t>(frame - 1 - chunk->first, 0)
                                      : 0;
        if (late >= frames) {
            continue;
        }
        if (voice.queue.empty() && !voice.started) {
            voice.queuedFrom = chunk->first + late;
        }
        enqueue(voice, std::span(chunk->samples).subspan(static_cast<std::size_t>(late * width)));
        voice.queuedTo = chunk->first + frames;
    }
    if (voice.started || voice.queue.empty() || voice.queuedTo < frame + kLeastToStart) {
        return;
    }
    const std::int64_t offset = position - voice.queuedFrom * Playhead::kOne;
    if (offset > 0) {
        setOffset(voice.source, toFrames(offset));
    }
    alSourcePlay(voice.source);
    voice.started = true;
}

void VoicePool::release(int number) {
    const auto index = static_cast<Index>(number);
    Voice& voice = voices_[index];
    --sounding_;
    if (voice.stream != nullptr) {
        voice.stream.reset();
        std::erase(streaming_, index);
        --streams_;
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
        if (now - voice.silentSince < settled_) {
            return false;
        }
        free(index);
        return true;
    });
}

void VoicePool::setPlace(int voice, const VoiceValues& values) {
    detail::setPlace(voices_[static_cast<Index>(voice)].source, values.spatial, values.position);
}

void VoicePool::setReach(int voice, const VoiceValues& values) {
    detail::setReach(voices_[static_cast<Index>(voice)].source, values.attenuated, values.hull);
}

void VoicePool::setGain(int voice, const VoiceValues& values) {
    Voice& to = voices_[static_cast<Index>(voice)];
    to.gain = values.gain;
    alSourcef(to.source, AL_GAIN, values.gain);
}

void VoicePool::setPlayback(int voice, const VoiceValues& values, const Playhead& head) {
    Voice& to = voices_[static_cast<Index>(voice)];
    to.head = head;
    detail::setPlayback(to.source, values.pitch, values.loop && !to.sound->isStreamed());
}

} // namespace Orvel::detail

#include <Orvel/detail/voices/SoundStream.h>

#include <algorithm>
#include <cmath>

namespace Orvel::detail {

SoundStream::SoundStream(std::shared_ptr<const Sound> sound, std::int64_t first, bool loop)
    : sound_(std::move(sound)), loop_(loop),
      chunkFrames_(std::max<std::int64_t>(std::llround(kChunkSeconds * sound_->rate()), 1)),
      next_(first) {}

bool SoundStream::isInMemory() const noexcept {
    const auto kept = sound_->samples().size() / sound_->frameBytes();
    return next_ + chunkFrames_ <= static_cast<std::int64_t>(kept);
}

void SoundStream::read(std::int64_t frame, std::int64_t most, std::vector<std::byte>& to) {
    const Sound& sound = *sound_;
    const std::size_t width = sound.frameBytes();
    const auto kept = static_cast<std::int64_t>(sound.samples().size() / width);
    if (frame < kept) {
        const auto count = static_cast<std::size_t>(std::min(most, kept - frame));
        const auto from = sound.samples().subspan(static_cast<std::size_t>(frame) * width);
        to.insert(
            to.end(), from.begin(), from.begin() + static_cast<std::ptrdiff_t>(count * width));
        return;
    }
    const std::size_t before = to.size();
    if (!file_) {
        file_.emplace(sound.openFile());
    }
    const auto target = static_cast<std::uint64_t>(frame);
    if (file_->isOpen() && (file_->position() == target || file_->seek(target))) {
        block_.resize(static_cast<std::size_t>(most) * file_->channels());
        const std::size_t got = file_->read(block_);
        sound.append(std::span(block_).first(got * file_->channels()), to);
    }
    if (to.size() == before) {
        if (!file_->error().empty()) {
            sound.setDamage(file_->error());
        }
        to.resize(before + static_cast<std::size_t>(most) * width);
    }
}

bool SoundStream::fill() {
    {
        const Vessa::Lock lock(mutex_);
        if (ready_.size() >= kMaxReady) {
            return false;
        }
    }
    const std::int64_t length = sound_->frames();
    if (!loop_ && next_ >= length) {
        return false;
    }
    Chunk chunk{next_, {}};
    const std::int64_t end = loop_ ? next_ + chunkFrames_ : std::min(next_ + chunkFrames_, length);
    while (next_ < end) {
        const std::int64_t frame = next_ % length;
        read(frame, std::min(end - next_, length - frame), chunk.samples);
        next_ =
            chunk.first + static_cast<std::int64_t>(chunk.samples.size() / sound_->frameBytes());
    }
    const Vessa::Lock lock(mutex_);
    ready_.push_back(std::move(chunk));
    return true;
}

std::optional<SoundStream::Chunk> SoundStream::take() {
    const Vessa::Lock lock(mutex_);
    if (ready_.empty()) {
        return std::nullopt;
    }
    Chunk chunk = std::move(ready_.front());
    ready_.pop_front();
    return chunk;
}

} // namespace Orvel::detail

#include <Show/render/LiveRecording.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace Show {

namespace {

/// The shortest render, in seconds. Less than a block, so that an event between two blocks is heard
/// on time.
constexpr double kMinAtOnce = 0.001;
/// The longest render, in seconds, before other work is done.
constexpr double kMaxAtOnce = 0.05;

/// How long the reader of a stream may take for the rest.
constexpr std::chrono::milliseconds kStreamPatience{500};

using Seconds = std::chrono::duration<double>;

} // namespace

LiveRecording::LiveRecording(
    FrameSource& source, const std::string& path, bool raw, Clock::time_point begin, double skew)
    : source_(source), rate_(source.rate()), clockRate_(rate_ * (1.0 + skew)), begin_(begin),
      perSecond_(rate_, 1.0, source.layout().channels) {
    constexpr SampleFormat kFormat = SampleFormat::s16;
    if (PcmStream::isStream(path)) {
        stream_.emplace(
            path, source.rate(), source.layout().channels,
            raw ? "" : WavWriter::streamHeader(source.rate(), kFormat, {}, source.layout()));
    } else {
        file_.emplace(
            path, source.rate(), kFormat, std::nullopt, WavWriter::Unfinished::Kept,
            source.layout());
        file_->updateHeader();
    }
}

std::uint64_t LiveRecording::maxFrames() const {
    return stream_ ? std::numeric_limits<std::uint64_t>::max()
                   : WavWriter::maxFrames(SampleFormat::s16, source_.layout());
}

std::uint64_t LiveRecording::framesUntil(Clock::time_point time) const {
    const double seconds = std::max(0.0, Seconds(time - begin_).count());
    return std::min(static_cast<std::uint64_t>(std::llround(seconds * clockRate_)), maxFrames());
}

void LiveRecording::render(std::uint64_t frames) {
    samples_.resize(frames * source_.layout().channels);
    source_.render(samples_.data(), static_cast<unsigned>(frames));
    if (stream_) {
        stream_->write(samples_);
    } else {
        file_->write(samples_);
    }
    perSecond_.add(samples_);
    const double before = std::floor(seconds());
    frames_ += frames;
    if (file_ && std::floor(seconds()) != before) {
        file_->updateHeader();
    }
}

bool LiveRecording::advance(Clock::time_point now) {
    const std::uint64_t until = framesUntil(now);
    const std::uint64_t due = until - std::min(until, frames_);
    if (static_cast<double>(due) >= kMinAtOnce * rate_) {
        worstLag_ = std::max(worstLag_, static_cast<double>(due) / rate_);
        render(std::min(due, static_cast<std::uint64_t>(kMaxAtOnce * rate_)));
    }
    return frames_ < maxFrames() && !isOver();
}

std::chrono::nanoseconds LiveRecording::renderTo(Clock::time_point time) {
    const std::uint64_t due = framesUntil(time);
    const double ahead = (static_cast<double>(frames_) - static_cast<double>(due)) / clockRate_;
    while (frames_ < due) {
        render(std::min(due - frames_, static_cast<std::uint64_t>(kMaxAtOnce * rate_)));
    }
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Seconds(ahead));
}

LiveRecording::Clock::time_point LiveRecording::next() const {
    const Seconds rendered(static_cast<double>(frames_) / clockRate_);
    return begin_ + std::chrono::duration_cast<Clock::duration>(rendered) + kBlock;
}

void LiveRecording::finish(Clock::time_point end) {
    const std::uint64_t due = framesUntil(end);
    while (frames_ < due) {
        render(std::min(due - frames_, static_cast<std::uint64_t>(kMaxAtOnce * rate_)));
    }
    if (stream_) {
        stream_->finish(kStreamPatience);
    } else {
        file_->finish();
    }
}

} // namespace Show

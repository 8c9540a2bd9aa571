#include <Corvid/detail/OutgoingStream.h>

#include <algorithm>

namespace Corvid::detail {

void OutgoingStream::setLagLimit(std::size_t bytes) {
    const std::scoped_lock lock(mutex_);
    lagLimit_ = bytes;
}

void OutgoingStream::open() {
    const std::scoped_lock lock(mutex_);
    open_ = true;
}

void OutgoingStream::close() {
    const std::scoped_lock lock(mutex_);
    open_ = false;
}

bool OutgoingStream::wakeLocked() {
    work_ = true;
    const bool wake = sleeping_;
    sleeping_ = false; // one wake-up is enough
    return wake;
}

bool OutgoingStream::append(const std::byte* frame, std::size_t size, bool& wake) {
    const std::scoped_lock lock(mutex_);
    if (!open_) {
        return false;
    }
    ++frames_;
    if (outlets_.empty()) {
        return true;
    }
    if (stream_.append(frame, size)) {
        checkLag();
    }
    wake = wakeLocked();
    return true;
}

bool OutgoingStream::append(Outlet& outlet, const std::byte* frame, std::size_t size, bool& wake) {
    const std::scoped_lock lock(mutex_);
    if (!outlet.joined || outlet.leaving || outlet.overrun) {
        return false;
    }
    const std::uint64_t position = outlet.joining ? outlet.position : stream_.end();
    const bool newChunk = outlet.own.append(frame, size);
    ++outlet.framesOwn;
    if (outlet.runs.empty() || outlet.runs.back().position != position) {
        outlet.runs.push_back({position, outlet.own.end()});
    } else {
        outlet.runs.back().end = outlet.own.end();
    }
    if (outlet.joining) {
        outlet.replayEnd = outlet.own.end();
    }
    if (newChunk) {
        checkLag();
    }
    wake = wakeLocked();
    return true;
}

std::uint64_t OutgoingStream::lagOf(const Outlet& outlet) const {
    return stream_.end() - outlet.position + outlet.own.end() -
           std::max(outlet.own.begin(), outlet.replayEnd);
}

/// Called once per chunk, so that an append costs the same however many connections there are.
void OutgoingStream::checkLag() {
    bool any = false;
    for (Outlet* outlet : outlets_) {
        outlet->overrun = outlet->overrun || lagOf(*outlet) > lagLimit_;
        any = any || outlet->overrun;
    }
    if (any) {
        trimLocked(); // the writer may not come for long, and memory must stay bounded
    }
}

void OutgoingStream::join(Outlet& outlet) {
    const std::scoped_lock lock(mutex_);
    outlet.joined = true;
    outlet.joining = true;
    outlet.position = stream_.end();
    outlet.framesBefore = frames_;
    outlets_.push_back(&outlet);
}

bool OutgoingStream::ready(Outlet& outlet) {
    const std::scoped_lock lock(mutex_);
    outlet.joining = false;
    return wakeLocked();
}

void OutgoingStream::leave(Outlet& outlet) {
    const std::scoped_lock lock(mutex_);
    outlet.leaving = outlet.writing;
    if (outlet.joined && !outlet.leaving) {
        leaveLocked(outlet);
    }
}

void OutgoingStream::leaveLocked(Outlet& outlet) {
    outlet.joined = false;
    outlet.leaving = false;
    outlet.framesOwn += frames_ - outlet.framesBefore; // the final count
    std::erase(outlets_, &outlet);
    trimLocked();
}

OutgoingStream::Batch OutgoingStream::gather(Outlet& outlet, iovec* pieces, std::size_t most) {
    const std::scoped_lock lock(mutex_);
    Batch batch;
    batch.overrun = outlet.overrun;
    if (!outlet.joined || outlet.overrun || outlet.blocked) {
        return batch;
    }
    std::uint64_t own = outlet.own.begin();
    std::uint64_t position = outlet.position;
    const auto add = [&](const ChunkQueue& queue, std::uint64_t& from, std::uint64_t to) {
        const std::size_t count =
            queue.gather(from, to, pieces + batch.pieces, most - batch.pieces);
        for (std::size_t i = 0; i < count; ++i) {
            from += pieces[batch.pieces + i].iov_len;
            batch.bytes += pieces[batch.pieces + i].iov_len;
        }
        batch.pieces += count;
        return from == to;
    };
    bool whole = true;
    for (auto run = outlet.runs.begin(); whole && run != outlet.runs.end(); ++run) {
        whole = add(stream_, position, run->position) && add(outlet.own, own, run->end);
    }
    if (whole && !outlet.joining) {
        add(stream_, position, stream_.end());
    }
    outlet.writing = batch.pieces > 0;
    return batch;
}

void OutgoingStream::advance(Outlet& outlet, std::size_t bytes, bool blocked) {
    const std::scoped_lock lock(mutex_);
    outlet.writing = false;
    outlet.blocked = blocked;
    outlet.bytesOut += bytes;
    if (outlet.leaving) {
        leaveLocked(outlet);
        return;
    }
    std::uint64_t left = bytes;
    while (left > 0) { // in the order in which gather() listed them
        if (outlet.runs.empty()) {
            outlet.position += left;
            break;
        }
        const Outlet::Run& run = outlet.runs.front();
        const std::uint64_t shared = std::min(left, run.position - outlet.position);
        outlet.position += shared;
        left -= shared;
        const std::uint64_t own = std::min(left, run.end - outlet.own.begin());
        outlet.own.trim(outlet.own.begin() + own);
        left -= own;
        if (outlet.own.begin() == run.end) {
            outlet.runs.pop_front();
        }
    }
}

void OutgoingStream::unblock(Outlet& outlet) {
    const std::scoped_lock lock(mutex_);
    outlet.blocked = false;
}

void OutgoingStream::trim() {
    const std::scoped_lock lock(mutex_);
    trimLocked();
}

void OutgoingStream::trimLocked() {
    std::uint64_t least = stream_.end();
    for (const Outlet* outlet : outlets_) {
        if (!outlet->overrun || outlet->writing) {
            least = std::min(least, outlet->position);
        }
    }
    stream_.trim(least);
}

bool OutgoingStream::takeWork() {
    const std::scoped_lock lock(mutex_);
    const bool work = work_;
    work_ = false;
    return work;
}

bool OutgoingStream::addWork() {
    const std::scoped_lock lock(mutex_);
    return wakeLocked();
}

bool OutgoingStream::beginSleep() {
    const std::scoped_lock lock(mutex_);
    sleeping_ = !work_;
    return sleeping_;
}

void OutgoingStream::endSleep() {
    const std::scoped_lock lock(mutex_);
    sleeping_ = false;
}

OutgoingStream::Counts OutgoingStream::counts(const Outlet& outlet) const {
    const std::scoped_lock lock(mutex_);
    Counts counts;
    counts.bytesOut = outlet.bytesOut;
    counts.frames = outlet.framesOwn;
    if (outlet.joined) {
        counts.frames += frames_ - outlet.framesBefore;
        counts.bytesWaiting =
            stream_.end() - outlet.position + outlet.own.end() - outlet.own.begin();
    }
    return counts;
}

bool OutgoingStream::isDrained(const Outlet& outlet) const {
    const std::scoped_lock lock(mutex_);
    return !outlet.joined || outlet.overrun ||
           (outlet.runs.empty() && outlet.position == stream_.end());
}

std::size_t OutgoingStream::bytesKept() const {
    const std::scoped_lock lock(mutex_);
    std::size_t bytes = stream_.bytesKept();
    for (const Outlet* outlet : outlets_) {
        bytes += outlet->own.bytesKept();
    }
    return bytes;
}

} // namespace Corvid::detail

#include <Corvid/detail/net/OutgoingStream.h>

#include <algorithm>
#include <utility>

namespace Corvid::detail {

void OutgoingStream::setLagLimit(std::size_t bytes) {
    const Vessa::Lock lock(mutex_);
    lagLimit_ = bytes;
}

void OutgoingStream::open() {
    const AppendLock::Holder lock(appendLock_, true);
    open_ = true;
}

void OutgoingStream::close() {
    const AppendLock::Holder lock(appendLock_, true);
    open_ = false;
}

/// The writer may be late, and memory must stay bounded. If it is at work, the next chunk will do.
/// Returns true if the writer must be woken.
bool OutgoingStream::boundMemory() {
    const bool wake = resting_.exchange(false);
    if (mutex_.tryLock()) {
        const Vessa::Lock lock(mutex_, std::adopt_lock);
        checkLag();
    }
    return wake;
}

bool OutgoingStream::append(
    Outlet& outlet, const std::byte* frame, std::size_t size, bool& wake, bool alsoJoining) {
    const Vessa::Lock lock(mutex_);
    if (!outlet.joined || outlet.leaving || outlet.overrun || (outlet.joining && !alsoJoining)) {
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
    wake = addWork();
    return true;
}

std::size_t OutgoingStream::endBatch() {
    const std::uint64_t end = stream_.end();
    const std::uint64_t size = end - batchEnd_;
    if (size == 0) {
        return 0;
    }
    batchEnd_ = end;
    ++batches_;
    return resting_ ? size : 0;
}

std::uint64_t OutgoingStream::lagOf(const Outlet& outlet) const {
    return stream_.end() - outlet.position + outlet.own.end() -
           std::max(outlet.own.begin(), outlet.replayEnd) + outlet.backlogCounts.lag;
}

/// Called once per chunk, so that the cost of an append does not depend on the number of
/// connections.
void OutgoingStream::checkLag() {
    bool any = false;
    for (Outlet* outlet : outlets_) {
        outlet->overrun = outlet->overrun || lagOf(*outlet) > lagLimit_;
        any = any || outlet->overrun;
    }
    if (any) {
        trimLocked(); // the writer may be late, and memory must stay bounded
    }
}

void OutgoingStream::join(Outlet& outlet) {
    const Vessa::Lock lock(mutex_);
    outlets_.push_back(&outlet);
    outlet.joined = true;
    outlet.joining = true;
    const AppendLock::Holder noFrames(appendLock_, true);
    joined_ = true;
    outlet.position = stream_.end();
    outlet.mark = outlet.position;
    outlet.framesBefore = frames_;
}

bool OutgoingStream::ready(Outlet& outlet) {
    const Vessa::Lock lock(mutex_);
    outlet.joining = false;
    return addWork();
}

void OutgoingStream::leave(Outlet& outlet) {
    const Vessa::Lock lock(mutex_);
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
    if (outlets_.empty()) {
        const AppendLock::Holder noFrames(appendLock_, true);
        joined_ = false;
    }
    trimLocked();
}

/// Whether it lags too much to get every value.
bool OutgoingStream::isLate(Outlet& outlet) {
    if (!outlet.stuck) {
        return false;
    }
    const auto now = std::chrono::steady_clock::now();
    if (outlet.position >= outlet.mark) {
        outlet.mark = stream_.end();
        outlet.markTime = now;
    }
    return lagOf(outlet) > kLateBytes ||
           (outlet.position < outlet.mark && now - outlet.markTime > kLateTime);
}

/// Lists all queued data of an outlet up to an end of the stream, in order. Returns the end of its
/// own part.
std::uint64_t OutgoingStream::listPending(Outlet& outlet, std::uint64_t end) {
    std::uint64_t position = outlet.position;
    std::uint64_t own = outlet.own.begin();
    std::uint64_t rest = 0;
    pending_.clear();
    const auto add = [&](ChunkQueue& queue, std::uint64_t& from, std::uint64_t to) {
        if (from == to) {
            return;
        }
        if (pending_.empty()) {
            rest = queue.frameStart(from) - from;
        }
        const std::size_t count = pending_.size();
        pending_.resize(count + (to - from) / ChunkQueue::kChunkBytes + 2);
        iovec* pieces = pending_.data() + count;
        pending_.resize(count + queue.gather(from, to, pieces, pending_.size() - count));
        from = to;
    };
    for (const Outlet::Run& run : outlet.runs) {
        add(head(), position, run.position);
        add(outlet.own, own, run.end);
    }
    add(head(), position, end);
    if (outlet.backlog.empty()) {
        const std::uint64_t begin = outlet.own.begin();
        outlet.backlog.begin(rest, std::max(outlet.replayEnd, begin) - begin);
    }
    return own;
}

void OutgoingStream::moveLag(Outlet& outlet) {
    if (!newestOnly()) {
        return;
    }
    std::uint64_t position = 0;
    std::uint64_t own = 0;
    {
        const Vessa::Lock lock(mutex_);
        if (!outlet.joined || outlet.joining || outlet.overrun ||
            (outlet.backlog.empty() && !isLate(outlet))) {
            return;
        }
        position = stream_.end();
        own = listPending(outlet, position);
        outlet.writing = true;
    }
    for (const iovec& piece : pending_) {
        outlet.backlog.add(
            classify_, {static_cast<const std::byte*>(piece.iov_base), piece.iov_len});
    }
    const Vessa::Lock lock(mutex_);
    outlet.writing = false;
    if (outlet.leaving) {
        leaveLocked(outlet);
        return;
    }
    outlet.position = position;
    outlet.own.trim(own);
    while (!outlet.runs.empty() && outlet.runs.front().end <= own) {
        outlet.runs.pop_front();
    }
    outlet.backlogCounts = outlet.backlog.counts();
}

OutgoingStream::Batch OutgoingStream::gather(Outlet& outlet, iovec* pieces, std::size_t most) {
    const Vessa::Lock lock(mutex_);
    Batch batch;
    batch.overrun = outlet.overrun;
    if (!outlet.joined || outlet.overrun || outlet.blocked) {
        return batch;
    }
    if (!outlet.backlog.empty() && most > 0) {
        const std::span<std::byte> next = outlet.backlog.next();
        pieces[0] = {next.data(), next.size()};
        batch.pieces = 1;
        batch.bytes = next.size();
        batch.backlog = true;
        outlet.writing = true;
        return batch;
    }
    std::uint64_t own = outlet.own.begin();
    std::uint64_t position = outlet.position;
    const auto add = [&](ChunkQueue& queue, std::uint64_t& from, std::uint64_t to) {
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
        whole = add(head(), position, run->position) && add(outlet.own, own, run->end);
    }
    if (whole && !outlet.joining) {
        add(head(), position, stream_.end());
    }
    outlet.writing = batch.pieces > 0;
    outlet.stuck = outlet.stuck && outlet.writing;
    return batch;
}

void OutgoingStream::advance(Outlet& outlet, std::size_t bytes, bool blocked) {
    const bool fromBacklog = !outlet.backlog.empty();
    if (fromBacklog) {
        outlet.backlog.advance(bytes);
    }
    const Vessa::Lock lock(mutex_);
    outlet.writing = false;
    outlet.blocked = blocked;
    outlet.stuck = outlet.stuck || blocked;
    outlet.bytesOut += bytes;
    if (outlet.leaving) {
        leaveLocked(outlet);
        return;
    }
    std::uint64_t left = bytes;
    if (fromBacklog) {
        outlet.backlogCounts = outlet.backlog.counts();
        left = 0;
    }
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
    const Vessa::Lock lock(mutex_);
    outlet.blocked = false;
}

void OutgoingStream::trim() {
    const Vessa::Lock lock(mutex_);
    trimLocked();
}

void OutgoingStream::trimLocked() {
    std::uint64_t least = stream_.end();
    for (const Outlet* outlet : outlets_) {
        if (!outlet->overrun || outlet->writing) {
            least = std::min(least, outlet->position);
        }
    }
    head().trim(least);
}

bool OutgoingStream::takeWork() {
    const bool work = work_.exchange(false);
    const std::uint64_t end = stream_.end();
    return std::exchange(taken_, end) != end || work;
}

bool OutgoingStream::addWork() {
    work_ = true;
    const bool sleeping = sleeping_.exchange(false);
    return resting_.exchange(false) || sleeping;
}

bool OutgoingStream::beginSleep() {
    sleeping_ = true;
    Vessa::Fence::heavy();
    const bool work = work_ || stream_.end() != taken_;
    if (work) {
        sleeping_ = false;
    }
    return !work;
}

bool OutgoingStream::beginRest() {
    resting_ = true;
    const bool work = work_ || batchEnd_ > taken_;
    if (work) {
        resting_ = false;
    }
    return !work;
}

void OutgoingStream::endSleep() {
    sleeping_ = false;
    resting_ = false;
}

OutgoingStream::Counts OutgoingStream::counts(const Outlet& outlet) const {
    const Vessa::Lock lock(mutex_);
    Counts counts;
    counts.bytesOut = outlet.bytesOut;
    counts.frames = outlet.framesOwn;
    counts.framesLeftOut = outlet.backlogCounts.leftOut;
    if (outlet.joined) {
        counts.frames += frames_ - outlet.framesBefore;
        counts.bytesWaiting = stream_.end() - outlet.position + outlet.own.end() -
                              outlet.own.begin() + outlet.backlogCounts.waiting;
    }
    return counts;
}

bool OutgoingStream::isDrained(const Outlet& outlet) const {
    const Vessa::Lock lock(mutex_);
    return !outlet.joined || outlet.overrun ||
           (outlet.runs.empty() && outlet.position == stream_.end() &&
            outlet.backlogCounts.waiting == 0);
}

std::size_t OutgoingStream::bytesKept() const {
    const Vessa::Lock lock(mutex_);
    std::size_t bytes = stream_.bytesKept();
    for (const Outlet* outlet : outlets_) {
        bytes += outlet->own.bytesKept() + outlet->backlogCounts.kept;
    }
    return bytes;
}

} // namespace Corvid::detail

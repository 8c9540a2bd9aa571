#include <Corvid/detail/net/Connection.h>

#include <algorithm>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <utility>

namespace Corvid::detail {

namespace {

// A dead peer is noticed after 3 + 3 * 2 s of silence, or when sent data has not been acknowledged
// for as long.
constexpr int kKeepAliveIdleSeconds = 3;
constexpr int kKeepAliveIntervalSeconds = 2;
constexpr int kKeepAliveProbes = 3;
constexpr unsigned kUserTimeoutMilliseconds = 9000;

// With newest values only: unsent data in the system's buffer counts as lag too.
constexpr unsigned kUnsentLimit = 4096;
constexpr char kCongestionControl[] = "bbr";

// Records sealed before the socket is asked to take them.
constexpr std::size_t kSealedPart = 4 * Seal::kRecordBytes;
constexpr std::byte kSealedBegin{22}; // the first byte of a sealed connection

constexpr std::size_t kReplayPart = std::size_t{64} << 10U;

} // namespace

Connection::Connection(
    std::shared_ptr<ConnectionContext> context, Socket socket, bool noDelay, std::string target,
    std::unique_ptr<Seal> seal)
    : context_(std::move(context)), socket_(std::move(socket)), target_(std::move(target)),
      seal_(std::move(seal)), since_(std::chrono::system_clock::now()) {
    if (const Socket::Endpoint peer = socket_.peer(); peer.address.isValid()) {
        peerName_ = peer.text();
        peerAddress_ = peer.address;
    }
    // A system without an option notices a dead peer later, which is no reason to refuse it.
    socket_.set(IPPROTO_TCP, TCP_NODELAY, noDelay ? 1 : 0);
    socket_.set(SOL_SOCKET, SO_KEEPALIVE, 1);
    socket_.set(IPPROTO_TCP, TCP_KEEPIDLE, kKeepAliveIdleSeconds);
    socket_.set(IPPROTO_TCP, TCP_KEEPINTVL, kKeepAliveIntervalSeconds);
    socket_.set(IPPROTO_TCP, TCP_KEEPCNT, kKeepAliveProbes);
    socket_.set(IPPROTO_TCP, TCP_USER_TIMEOUT, kUserTimeoutMilliseconds);
    if (context_->stream.newestOnly()) {
        socket_.set(IPPROTO_TCP, TCP_NOTSENT_LOWAT, kUnsentLimit);
        // Its rate does not fall with each lost packet. Not available on every system.
        socket_.set(IPPROTO_TCP, TCP_CONGESTION, kCongestionControl, sizeof kCongestionControl - 1);
    }
}

bool Connection::sendGreeting(const Greeting& greeting) {
    const auto bytes = greeting.encode();
    if (seal_ == nullptr) {
        return socket_.send(bytes).bytes == bytes.size(); // a new socket has room for so few bytes
    }
    if (!seal_->isReady()) {
        greeting_ = greeting;
        return true;
    }
    const iovec piece = {const_cast<std::byte*>(bytes.data()), bytes.size()}; // is only read
    seal_->seal(&piece, bytes.size());
    return flushSeal() && seal_->output().empty();
}

/// Sends sealed bytes as far as the socket takes them. Returns false if the connection is lost.
bool Connection::flushSeal() {
    while (!seal_->output().empty()) {
        const Socket::Transfer sent = socket_.send(seal_->output());
        if (sent.blocked()) {
            break;
        }
        if (sent.error) {
            end(sent.error.message());
            return false;
        }
        seal_->sent(sent.bytes);
    }
    return true;
}

/// Both sides have proven their key.
bool Connection::finishSeal() {
    if (target_.empty()) {
        peerName_ = seal_->key().name + " at " + peerName_;
    }
    return !greeting_ || sendGreeting(*greeting_);
}

/// Receives bytes that the peer has sent, from the socket or out of the seal.
Socket::Transfer Connection::receive(std::span<std::byte> room) {
    if (seal_ == nullptr) {
        return socket_.receive(room);
    }
    std::size_t size = seal_->open(room);
    if (size == 0 && seal_->fault().empty()) {
        const bool wasReady = seal_->isReady();
        const Socket::Transfer got = socket_.receive(seal_->room());
        if (got.bytes == 0) {
            if (!got.blocked() && !wasReady && !target_.empty()) {
                endByKey("it closed the connection: it does not know this program's key, or it "
                         "does not take connections from this machine's address");
            }
            return got;
        }
        seal_->commit(got.bytes);
        if (!flushSeal() || (seal_->isReady() && !wasReady && !finishSeal())) {
            return {0, std::make_error_code(std::errc::connection_aborted)};
        }
        size = seal_->open(room);
    }
    if (size > 0) {
        return {size, {}};
    }
    if (!seal_->fault().empty()) {
        seal_->isReady() ? end(seal_->fault()) : endByKey(seal_->fault());
        return {0, std::make_error_code(std::errc::connection_aborted)};
    }
    return {0, std::make_error_code(std::errc::operation_would_block)};
}

Connection::Status Connection::readGreeting() {
    const Socket::Transfer got = receive(std::span(greetingBytes_).subspan(greetingSize_));
    if (got.blocked()) {
        return Status::Blocked;
    }
    if (got.bytes == 0) {
        const std::string reason =
            got.error ? got.error.message() : "it closed the connection before it had greeted";
        // A server found by a search does not have keys that this program lacks.
        if (seal_ == nullptr && isNamed() && greetingSize_ == 0) {
            endByKey(reason + "; if it has keys, give this program one of them");
        }
        end(reason);
        return Status::Failed;
    }
    greetingSize_ += got.bytes;
    if (!Greeting::canBegin(std::span(greetingBytes_).first(greetingSize_))) {
        if (greetingBytes_[0] == kSealedBegin) {
            endByKey("it has keys, and this server has none; give this server its key file, or it "
                     "none");
        } else {
            end("it speaks another protocol");
        }
        return Status::Failed;
    }
    if (greetingSize_ < greetingBytes_.size()) {
        return Status::Blocked;
    }
    peer_ = *Greeting::decode(greetingBytes_);
    return Status::Done;
}

Connection::Status Connection::read() {
    const Socket::Transfer got = receive(input_.room());
    if (got.blocked()) {
        return Status::Blocked;
    }
    if (got.bytes == 0) {
        end(got.error ? got.error.message() : "the peer closed the connection");
        return Status::Failed;
    }
    if (stampsArrivals_) {
        lastArrival_.store(std::chrono::steady_clock::now(), std::memory_order_relaxed);
    }
    input_.commit(got.bytes);
    bytesRead_ += got.bytes;
    if (seal_ != nullptr) { // the socket does not report bytes that are in the seal
        while (const std::size_t size = seal_->open(input_.room())) {
            input_.commit(size);
            bytesRead_ += size;
        }
    }
    return Status::Done;
}

Connection::Status Connection::write() {
    const Vessa::Lock lock(context_->stream.writing);
    return writeLocked();
}

bool Connection::tryWrite() {
    if (!context_->stream.writing.tryLock()) {
        return false;
    }
    const Vessa::Lock lock(context_->stream.writing, std::adopt_lock);
    const Status status = writeLocked();
    if (status == Status::Blocked) {
        context_->stream.unblock(outlet_); // the loop thread finds it blocked again, and waits
    }
    return status == Status::Done;
}

Connection::Status Connection::writeLocked() {
    constexpr std::size_t kMaxPieces = 64;
    constexpr int kMaxCalls = 4; // then other connections are served
    std::array<iovec, kMaxPieces> pieces;
    context_->stream.moveLag(outlet_);
    for (int call = 0; call < kMaxCalls; ++call) {
        if (seal_ != nullptr && !flushSeal()) {
            return Status::Failed;
        }
        if (seal_ != nullptr && !seal_->output().empty()) {
            context_->stream.advance(outlet_, 0, true);
            return Status::Blocked;
        }
        const OutgoingStream::Batch batch =
            context_->stream.gather(outlet_, pieces.data(), pieces.size());
        if (batch.overrun) {
            end("it reads too slowly, and its queue exceeds the limit");
            return Status::Failed;
        }
        if (batch.pieces == 0) {
            return Status::Done;
        }
        std::size_t bytes = batch.bytes;
        if (batch.backlog) {
            bytes = std::min(
                bytes, kUnsentLimit - std::min<std::size_t>(socket_.unsent(), kUnsentLimit));
            pieces[0].iov_len = bytes;
        }
        if (bytes == 0) {
            context_->stream.advance(outlet_, 0, true);
            return Status::Blocked;
        }
        if (seal_ != nullptr) {
            bytes = std::min(bytes, kSealedPart);
        }
        const Socket::Transfer sent = seal_ == nullptr ? socket_.send(pieces.data(), batch.pieces)
                                                       : sendSealed(pieces.data(), bytes);
        const bool failed = sent.error && !sent.blocked();
        const bool blocked = !failed && sent.bytes < bytes;
        context_->stream.advance(outlet_, sent.bytes, blocked);
        if (failed) {
            end(sent.error.message());
            return Status::Failed;
        }
        if (blocked) {
            return Status::Blocked;
        }
    }
    return Status::More;
}

/// Seals bytes, and sends as many of them as the socket takes; all count as sent, as the seal keeps
/// the others.
Socket::Transfer Connection::sendSealed(const iovec* pieces, std::size_t bytes) {
    seal_->seal(pieces, bytes);
    if (!seal_->fault().empty()) {
        end(seal_->fault());
    }
    if (isEnded() || !flushSeal()) {
        return {0, std::make_error_code(std::errc::connection_aborted)};
    }
    return {bytes, {}};
}

bool Connection::isIdle(std::chrono::steady_clock::duration atLeast) {
    return target_.empty() && bytesRead_ == 0 &&
           std::chrono::steady_clock::now() - begin_ >= atLeast && socket_.unread() == 0 &&
           !hasInput();
}

void Connection::end(const std::string& reason) {
    const Vessa::Lock lock(mutex_);
    if (!ended_) {
        endReason_ = reason;
        ended_ = true;
        // The destructor closes the socket, as another thread may be using the descriptor. The loop
        // thread finds it readable now.
        socket_.end();
    }
}

void Connection::endByKey(const std::string& reason) {
    keyFault_ = true;
    end(reason);
}

std::string Connection::endReason() const {
    const Vessa::Lock lock(mutex_);
    return endReason_;
}

bool Connection::receiveFrame(std::span<const std::byte>& frame) {
    if (const auto next = input_.next(); next != InputBuffer::Next::Frame) {
        if (next == InputBuffer::Next::Broken) {
            end("it sent an invalid event");
        }
        return false;
    }
    frame = input_.take();
    // Only one thread at a time writes these.
    eventsIn_.store(eventsIn_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    bytesIn_.store(
        bytesIn_.load(std::memory_order_relaxed) + frame.size(), std::memory_order_relaxed);
    return true;
}

void Connection::endReplay() {
    replayThread_ = std::thread::id();
    context_->stream.unblock(outlet_);
}

bool Connection::sendFrame(const std::byte* frame, std::size_t size, bool alsoJoining) {
    if (frameSize({frame, size}) != size) {
        return false;
    }
    bool wake = false;
    const bool taken = context_->stream.append(outlet_, frame, size, wake, alsoJoining);
    if (wake) {
        context_->loop->wake();
    }
    if (replayThread_.load(std::memory_order_relaxed) == std::this_thread::get_id()) {
        replayBytes_ += size;
        if (replayBytes_ >= kReplayPart) {
            replayBytes_ = 0;
            context_->stream.unblock(outlet_);
            write(); // the result shows when the loop sends the rest
        }
    }
    return taken;
}

void Connection::setClockOffer(const Communicator::ClockOffer& offer) {
    clockOffer_ = offer;
    stampsArrivals_ = true;
}

void Connection::setProbe(std::unique_ptr<ClockProbe> probe) {
    probe_ = std::move(probe);
    stampsArrivals_ = true;
}

void Connection::takeClockAnswer(std::uint32_t number, std::int64_t received, std::int64_t sent) {
    if (probe_ != nullptr && probe_->answer(number, received, sent, lastArrival(), true)) {
        publishClock();
    }
}

void Connection::publishClock() {
    const Vessa::Lock lock(mutex_);
    clock_ = probe_->estimate();
}

PeerClock Connection::clock() const {
    const Vessa::Lock lock(mutex_);
    return clock_;
}

void Connection::setTiming(const Communicator::Timing& timing) {
    const Vessa::Lock lock(mutex_);
    timing_ = timing;
}

std::chrono::steady_clock::time_point Connection::lastArrival() const {
    return lastArrival_.load(std::memory_order_relaxed);
}

void Connection::report(const std::string& text) const {
    context_->report(MultiCommunicator::Severity::Warning, "for " + peerName_ + ": " + text);
}

Communicator::Counters Connection::counters() const {
    const OutgoingStream::Counts out = context_->stream.counts(outlet_);
    Communicator::Counters counters;
    counters.peer = peerName_;
    counters.peerId = peer_.id;
    counters.peerInstance = peer_.instance;
    counters.eventsIn = eventsIn_.load(std::memory_order_relaxed);
    counters.bytesIn = bytesIn_.load(std::memory_order_relaxed);
    counters.eventsOut = out.frames;
    counters.bytesOut = out.bytesOut;
    counters.bytesWaiting = out.bytesWaiting;
    counters.eventsLeftOut = out.framesLeftOut;
    counters.connectedSince = since_;
    counters.lost = ended_;
    const Vessa::Lock lock(mutex_);
    counters.lossReason = endReason_;
    counters.timing = timing_;
    return counters;
}

std::size_t Connection::finish(bool sent) {
    constexpr int kMaxReads = 64; // with a peer that sends continuously
    const std::size_t unsent = seal_ != nullptr ? seal_->output().size() : 0;
    if (sent && unsent == 0) {
        socket_.endSending();
    }
    std::array<std::byte, 4096> unwanted;
    for (int i = 0; i < kMaxReads && socket_.receive(unwanted).bytes > 0; ++i) {
    }
    return unsent + socket_.unacknowledged();
}

} // namespace Corvid::detail

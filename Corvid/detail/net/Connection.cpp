#include <Corvid/detail/net/Connection.h>

#include <Corvid/Event.h>

#include <algorithm>
#include <cerrno>
#include <linux/sockios.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <system_error>
#include <utility>

namespace Corvid::detail {

namespace {

// A peer that dies without a word is noticed after 3 + 3 * 2 s of silence, or when what was sent
// has not been acknowledged for as long.
constexpr int kKeepAliveIdleSeconds = 3;
constexpr int kKeepAliveIntervalSeconds = 2;
constexpr int kKeepAliveProbes = 3;
constexpr unsigned kUserTimeoutMilliseconds = 9000;

// Where only the newest values are sent: what the system holds and has not sent once is lag as
// well.
constexpr unsigned kUnsentLimit = 4096;
constexpr char kCongestionControl[] = "bbr";

constexpr std::size_t kReplayPart = std::size_t{64} << 10U;

template <class T>
bool set(int descriptor, int level, int option, T value) {
    // A system that lacks an option notices a dead peer later, which is no reason to refuse it.
    return ::setsockopt(descriptor, level, option, &value, sizeof value) == 0;
}

std::string errorText(int code) {
    return std::generic_category().message(code);
}

bool wouldBlock(int code) {
    return code == EAGAIN || code == EWOULDBLOCK || code == EINTR;
}

} // namespace

Connection::Connection(
    std::shared_ptr<Loop> loop, boost::asio::ip::tcp::socket socket, bool noDelay,
    std::string target)
    : loop_(std::move(loop)), socket_(std::move(socket)), deadline_(loop_->io),
      peerName_("a peer that is gone"), target_(std::move(target)),
      since_(std::chrono::system_clock::now()) {
    boost::system::error_code error;
    const auto peer = socket_.remote_endpoint(error);
    if (!error) {
        peerName_ = peer.address().to_string() + ":" + std::to_string(peer.port());
        peerAddress_ = peer.address().to_v4().to_uint();
    }
    boost::system::error_code ignored;
    socket_.non_blocking(true, ignored);
    const int descriptor = socket_.native_handle();
    set(descriptor, IPPROTO_TCP, TCP_NODELAY, noDelay ? 1 : 0);
    set(descriptor, SOL_SOCKET, SO_KEEPALIVE, 1);
    set(descriptor, IPPROTO_TCP, TCP_KEEPIDLE, kKeepAliveIdleSeconds);
    set(descriptor, IPPROTO_TCP, TCP_KEEPINTVL, kKeepAliveIntervalSeconds);
    set(descriptor, IPPROTO_TCP, TCP_KEEPCNT, kKeepAliveProbes);
    set(descriptor, IPPROTO_TCP, TCP_USER_TIMEOUT, kUserTimeoutMilliseconds);
    if (loop_->stream.newestOnly()) {
        hasUnsentLimit_ = set(descriptor, IPPROTO_TCP, TCP_NOTSENT_LOWAT, kUnsentLimit);
        // Its rate does not fall with each packet that is lost. Not every system has it.
        ::setsockopt(
            descriptor, IPPROTO_TCP, TCP_CONGESTION, kCongestionControl,
            sizeof kCongestionControl - 1);
    }
}

bool Connection::sendGreeting(const Greeting& greeting) {
    const auto bytes = greeting.encode();
    // A new socket has room for these few bytes.
    return ::send(
               socket_.native_handle(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT) ==
           static_cast<ssize_t>(bytes.size());
}

Connection::Status Connection::readGreeting() {
    const ssize_t size = ::recv(
        socket_.native_handle(), greetingBytes_.data() + greetingSize_,
        greetingBytes_.size() - greetingSize_, MSG_DONTWAIT);
    if (size < 0 && wouldBlock(errno)) {
        return Status::Blocked;
    }
    if (size <= 0) {
        end(size == 0 ? "it closed the connection before it had shown who it is"
                      : errorText(errno));
        return Status::Failed;
    }
    greetingSize_ += static_cast<std::size_t>(size);
    if (!Greeting::canBegin(std::span(greetingBytes_).first(greetingSize_))) {
        end("it speaks another protocol");
        return Status::Failed;
    }
    if (greetingSize_ < greetingBytes_.size()) {
        return Status::Blocked;
    }
    peer_ = *Greeting::decode(greetingBytes_);
    return Status::Done;
}

Connection::Status Connection::read() {
    const std::span<std::byte> room = input_.room();
    const ssize_t size = ::recv(socket_.native_handle(), room.data(), room.size(), MSG_DONTWAIT);
    if (size < 0 && wouldBlock(errno)) {
        isDry_ = true;
        return Status::Blocked;
    }
    if (size <= 0) {
        end(size == 0 ? "the peer closed the connection" : errorText(errno));
        return Status::Failed;
    }
    input_.commit(static_cast<std::size_t>(size));
    hasBegun_ = true;
    isDry_ = static_cast<std::size_t>(size) < room.size();
    return Status::Done;
}

Connection::Status Connection::write() {
    constexpr std::size_t kMostPieces = 64;
    constexpr int kMostCalls = 4; // then it is another connection's turn
    std::array<iovec, kMostPieces> pieces;
    loop_->stream.moveLag(outlet_);
    for (int call = 0; call < kMostCalls; ++call) {
        const OutgoingStream::Batch batch =
            loop_->stream.gather(outlet_, pieces.data(), pieces.size());
        if (batch.overrun) {
            end("it takes its data too slowly, and more waits for it than the limit allows");
            return Status::Failed;
        }
        if (batch.pieces == 0) {
            return Status::Done;
        }
        std::size_t bytes = batch.bytes;
        if (batch.backlog && hasUnsentLimit_) {
            bytes = std::min(bytes, unsentRoom());
            pieces[0].iov_len = bytes;
        }
        if (bytes == 0) {
            loop_->stream.advance(outlet_, 0, true);
            return Status::Blocked;
        }
        msghdr message = {};
        message.msg_iov = pieces.data();
        message.msg_iovlen = batch.pieces;
        const ssize_t size =
            ::sendmsg(socket_.native_handle(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        const int reason = size < 0 ? errno : 0;
        const std::size_t sent = size < 0 ? 0 : static_cast<std::size_t>(size);
        const bool failed = size < 0 && !wouldBlock(reason);
        const bool blocked = !failed && sent < bytes;
        loop_->stream.advance(outlet_, sent, blocked);
        if (failed) {
            end(errorText(reason));
            return Status::Failed;
        }
        if (blocked) {
            return Status::Blocked;
        }
    }
    return Status::More;
}

bool Connection::isIdle(std::chrono::steady_clock::duration atLeast) {
    int unread = 0;
    return target_.empty() && !hasBegun_ && std::chrono::steady_clock::now() - begin_ >= atLeast &&
           ::ioctl(socket_.native_handle(), FIONREAD, &unread) == 0 && unread == 0;
}

bool Connection::isPeerGone() {
    pollfd descriptor = {socket_.native_handle(), POLLRDHUP, 0};
    return ::poll(&descriptor, 1, 0) > 0;
}

/// Bytes that the system may take until it holds as many as it should that were never sent.
std::size_t Connection::unsentRoom() {
    unsigned unsent = 0;
    ::ioctl(socket_.native_handle(), SIOCOUTQNSD, &unsent);
    return kUnsentLimit - std::min(unsent, kUnsentLimit);
}

void Connection::end(const std::string& reason) {
    const std::scoped_lock lock(mutex_);
    if (!ended_) {
        endReason_ = reason;
        ended_ = true;
        // Closing is left to the destructor: another thread may be using the descriptor. This also
        // ends the operations that wait for it.
        ::shutdown(socket_.native_handle(), SHUT_RDWR);
    }
}

std::string Connection::endReason() const {
    const std::scoped_lock lock(mutex_);
    return endReason_;
}

bool Connection::receiveFrame(std::span<const std::byte>& frame) {
    if (input_.next() != InputBuffer::Next::Frame) {
        if (input_.next() == InputBuffer::Next::Broken) {
            end("it sent something that is no event");
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
    loop_->stream.unblock(outlet_);
}

bool Connection::sendFrame(const std::byte* frame, std::size_t size) {
    if (frameSize({frame, size}) != size) {
        return false;
    }
    bool wake = false;
    const bool taken = loop_->stream.append(outlet_, frame, size, wake);
    if (wake) {
        loop_->wake();
    }
    if (replayThread_.load(std::memory_order_relaxed) == std::this_thread::get_id()) {
        replayBytes_ += size;
        if (replayBytes_ >= kReplayPart) {
            replayBytes_ = 0;
            loop_->stream.unblock(outlet_);
            write(); // whether all of it went out shows when the loop sends the rest
        }
    }
    return taken;
}

void Connection::report(const std::string& text) const {
    loop_->report(MultiCommunicator::Severity::Warning, "for " + peerName_ + ": " + text);
}

Communicator::Counters Connection::counters() const {
    const OutgoingStream::Counts out = loop_->stream.counts(outlet_);
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
    counters.lossReason = endReason();
    return counters;
}

std::size_t Connection::finish(bool sent) {
    constexpr int kMaxReads = 64; // beside a peer that sends without a pause
    if (sent && !std::exchange(isFinished_, true)) {
        ::shutdown(socket_.native_handle(), SHUT_WR);
    }
    std::array<std::byte, 4096> unwanted;
    for (int i = 0; i<kMaxReads&& ::recv(
             socket_.native_handle(), unwanted.data(), unwanted.size(), MSG_DONTWAIT)> 0;
         ++i) {
    }
    int unacknowledged = 0;
    const bool known = ::ioctl(socket_.native_handle(), SIOCOUTQ, &unacknowledged) == 0;
    return known ? static_cast<std::size_t>(unacknowledged) : 0;
}

} // namespace Corvid::detail

#include <Corvid/Socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>
#include <utility>

namespace Corvid {

namespace {

std::error_code lastError() {
    return {errno, std::generic_category()};
}

std::error_code outcome(int result) {
    return result < 0 ? lastError() : std::error_code();
}

Socket::Transfer transferred(ssize_t size) {
    return size < 0 ? Socket::Transfer{0, lastError()}
                    : Socket::Transfer{static_cast<std::size_t>(size), {}};
}

sockaddr_in nativeOf(const Socket::Endpoint& endpoint) {
    sockaddr_in native = {};
    native.sin_family = AF_INET;
    native.sin_port = htons(endpoint.port);
    native.sin_addr.s_addr = htonl(endpoint.address.bits());
    return native;
}

Socket::Endpoint endpointOf(const sockaddr_in& native) {
    if (native.sin_family != AF_INET) {
        return {};
    }
    return {InetAddress::fromBits(ntohl(native.sin_addr.s_addr)), ntohs(native.sin_port)};
}

template <class Call> // ::getsockname or ::getpeername
Socket::Endpoint endpointBy(Call call, int descriptor) {
    sockaddr_in native = {};
    socklen_t size = sizeof native;
    return call(descriptor, reinterpret_cast<sockaddr*>(&native), &size) == 0 ? endpointOf(native)
                                                                              : Socket::Endpoint();
}

} // namespace

std::string Socket::Endpoint::text() const {
    return address.text() + ":" + std::to_string(port);
}

bool Socket::Transfer::blocked() const {
    return error.value() == EAGAIN || error.value() == EWOULDBLOCK || error.value() == EINTR;
}

Socket::Socket(Socket&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

Socket& Socket::operator=(Socket&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
}

Socket::~Socket() {
    close();
}

std::error_code Socket::open(Type type) {
    close();
    const int kind = type == Type::Stream ? SOCK_STREAM : SOCK_DGRAM;
    descriptor_ = ::socket(AF_INET, kind | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    return outcome(descriptor_);
}

void Socket::close() {
    if (descriptor_ >= 0) {
        ::close(std::exchange(descriptor_, -1));
    }
}

std::error_code Socket::bind(const Endpoint& own) {
    const sockaddr_in native = nativeOf(own);
    return outcome(::bind(descriptor_, reinterpret_cast<const sockaddr*>(&native), sizeof native));
}

std::error_code Socket::listen(int backlog) {
    return outcome(::listen(descriptor_, backlog));
}

std::error_code Socket::accept(Socket& client) {
    Socket accepted(::accept4(descriptor_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!accepted) {
        return lastError();
    }
    client = std::move(accepted);
    return {};
}

std::error_code Socket::connect(const Endpoint& peer) {
    const sockaddr_in native = nativeOf(peer);
    const std::error_code error =
        outcome(::connect(descriptor_, reinterpret_cast<const sockaddr*>(&native), sizeof native));
    return error.value() == EINPROGRESS ? std::error_code() : error;
}

std::error_code Socket::takeError() {
    int error = 0;
    socklen_t size = sizeof error;
    if (::getsockopt(descriptor_, SOL_SOCKET, SO_ERROR, &error, &size) != 0) {
        return lastError();
    }
    return {error, std::generic_category()};
}

Socket::Endpoint Socket::own() const {
    return endpointBy(::getsockname, descriptor_);
}

Socket::Endpoint Socket::peer() const {
    return endpointBy(::getpeername, descriptor_);
}

Socket::Transfer Socket::receive(std::span<std::byte> room, Endpoint* sender) {
    if (sender == nullptr) {
        return transferred(::recv(descriptor_, room.data(), room.size(), 0));
    }
    sockaddr_in native = {};
    socklen_t size = sizeof native;
    const Transfer result = transferred(::recvfrom(
        descriptor_, room.data(), room.size(), 0, reinterpret_cast<sockaddr*>(&native), &size));
    *sender = endpointOf(native);
    return result;
}

void Socket::stampArrivals() {
    set(SOL_SOCKET, SO_TIMESTAMPNS, 1);
}

Socket::Transfer Socket::receive(
    std::span<std::byte> room, Endpoint& sender, std::chrono::steady_clock::time_point& arrived) {
    using namespace std::chrono;
    sockaddr_in native = {};
    iovec piece = {room.data(), room.size()};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(timespec))> control;
    msghdr message = {};
    message.msg_name = &native;
    message.msg_namelen = sizeof native;
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const Transfer result = transferred(::recvmsg(descriptor_, &message, 0));
    const auto now = system_clock::now();
    arrived = steady_clock::now();
    sender = endpointOf(native);
    const cmsghdr* header = result.error ? nullptr : CMSG_FIRSTHDR(&message);
    if (header != nullptr && header->cmsg_level == SOL_SOCKET &&
        header->cmsg_type == SCM_TIMESTAMPNS) {
        timespec stamp = {};
        std::memcpy(&stamp, CMSG_DATA(header), sizeof stamp);
        const auto age =
            now.time_since_epoch() - seconds(stamp.tv_sec) - nanoseconds(stamp.tv_nsec);
        if (age > age.zero() && age < seconds(1)) { // else the system's time was set meanwhile
            arrived -= duration_cast<steady_clock::duration>(age);
        }
    }
    return result;
}

Socket::Transfer Socket::send(std::span<const std::byte> bytes) {
    return transferred(::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL));
}

Socket::Transfer Socket::send(const iovec* pieces, std::size_t count) {
    msghdr message = {};
    message.msg_iov = const_cast<iovec*>(pieces); // which sendmsg() only reads
    message.msg_iovlen = count;
    return transferred(::sendmsg(descriptor_, &message, MSG_NOSIGNAL));
}

Socket::Transfer Socket::send(std::span<const std::byte> bytes, const Endpoint& receiver) {
    const sockaddr_in native = nativeOf(receiver);
    return transferred(::sendto(
        descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL,
        reinterpret_cast<const sockaddr*>(&native), sizeof native));
}

void Socket::endSending() {
    ::shutdown(descriptor_, SHUT_WR);
}

void Socket::end() {
    ::shutdown(descriptor_, SHUT_RDWR);
}

bool Socket::set(int level, int option, const void* value, std::size_t size) {
    return ::setsockopt(descriptor_, level, option, value, static_cast<socklen_t>(size)) == 0;
}

bool Socket::isPeerGone() const {
    pollfd entry = {descriptor_, POLLRDHUP, 0};
    return ::poll(&entry, 1, 0) > 0;
}

std::size_t Socket::ask(unsigned long request) const {
    int bytes = 0;
    return ::ioctl(descriptor_, request, &bytes) == 0 ? static_cast<std::size_t>(bytes) : 0;
}

std::size_t Socket::unread() const {
    return ask(FIONREAD);
}

std::size_t Socket::unsent() const {
    return ask(SIOCOUTQNSD);
}

std::size_t Socket::unacknowledged() const {
    return ask(SIOCOUTQ);
}

bool Socket::leavesDescriptors(std::size_t count) const {
    rlimit limit = {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        return true;
    }
    const rlim_t kept = std::min<rlim_t>(count, limit.rlim_cur / 4);
    return static_cast<rlim_t>(descriptor_) < limit.rlim_cur - kept; // the lowest is taken first
}

} // namespace Corvid

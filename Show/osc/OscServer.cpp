#include <Show/osc/OscServer.h>

#include <algorithm>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <utility>

namespace Show {

namespace {

constexpr int kDatagramBytes = 4 << 20; // that the system keeps while we are busy
constexpr int kDatagramsInARow = 256;   // before the connections are served
constexpr std::chrono::milliseconds kLongestFinish{100};
constexpr std::chrono::milliseconds kFullPause{100};
constexpr int kAttempts = 20;    // to find a port that is free for both
constexpr int kIdleSeconds = 30; // before a silent peer is asked whether it is there
constexpr int kBacklog = 16;     // connections that wait to be accepted

} // namespace

OscServer::OscServer(
    Orvel::World& world, const Settings& settings, OscEdits::Apply apply, Report report,
    std::shared_ptr<Corvid::Loop> loop)
    : settings_(settings), report_(std::move(report)),
      scene_(world, settings.scale, std::move(apply), settings.change),
      feedback_(
          scene_,
          [this](const OscPeer& receiver, std::span<const OscAnswer> answers) {
              send(receiver, answers);
          }),
      inbox_(
          [this](std::span<const std::byte> message, const OscPeer& sender) {
              take(message, sender);
          },
          [this](const std::string& fault, const OscPeer& sender) { reportWrong(fault, sender); }),
      loop_(std::move(loop)), buffer_(OscStream::kMaxBytes) {
    scene_.setHooks(
        [this](bool wanted) -> const char* {
            const bool lasts = sender_.connection != 0; // as long as its connection
            if (!wanted) {
                feedback_.remove(sender_);
            } else if (!feedback_.add(
                           sender_,
                           lasts ? Clock::time_point::max() : Clock::now() + OscFeedback::kLease)) {
                return "there are 16 subscribers already";
            }
            return nullptr;
        },
        [this](OscScene::PartKind kind, int id) { feedback_.touch(kind, id); });
    for (const Corvid::Socket::Endpoint& receiver : settings_.feedback) {
        feedback_.add({receiver}, Clock::time_point::max());
    }
    loop_->add(*this);
}

OscServer::~OscServer() {
    loop_->remove(*this);
}

bool OscServer::open() {
    std::error_code error;
    for (int attempt = 0; attempt < (settings_.port == 0 ? kAttempts : 1); ++attempt) {
        error = listen(settings_.port);
        if (!error) {
            return openQuery();
        }
        if (error != std::errc::address_in_use) {
            break;
        }
    }
    report_(
        "cannot accept Open Sound Control at " + settings_.address + ":" +
        std::to_string(settings_.port) + ": " + error.message() + "; choose another --osc");
    return false;
}

bool OscServer::openQuery() {
    if (!settings_.queryPort) {
        return true;
    }
    query_ = std::make_unique<OscQuery>(scene_, settings_.address, port_);
    const std::string fault = query_->open(*settings_.queryPort, loop_);
    if (!fault.empty()) {
        query_.reset();
        port_ = 0;
        report_("cannot describe the paths over HTTP: " + fault + "; choose another --osc-query");
    }
    return fault.empty();
}

std::error_code OscServer::listen(unsigned short port) {
    udpWatch_ = {};
    tcpWatch_ = {};
    Corvid::Socket::Endpoint own{Corvid::InetAddress::getByAddress(settings_.address), port};
    std::error_code error = tcp_.open(Corvid::Socket::Type::Stream);
    if (!error) {
        tcp_.set(SOL_SOCKET, SO_REUSEADDR, 1);
        error = tcp_.bind(own);
    }
    if (!error) {
        error = tcp_.listen(kBacklog);
    }
    if (!error) {
        own.port = tcp_.own().port;
        error = udp_.open(Corvid::Socket::Type::Datagram);
    }
    if (!error) {
        error = udp_.bind(own);
    }
    if (!error) {
        // Less will do where the system gives no more.
        udp_.set(SOL_SOCKET, SO_RCVBUF, kDatagramBytes);
        port_ = own.port;
        udpWatch_ = watch(udp_);
        tcpWatch_ = watch(tcp_);
    }
    return error;
}

Corvid::Loop::Watch OscServer::watch(const Corvid::Socket& socket) {
    Corvid::Loop::Watch watch(loop_, socket, [this](auto) { arrived_ = true; });
    watch.want(true, false);
    return watch;
}

OscServer::Clock::time_point OscServer::prepare(Clock::time_point now, bool /*waits*/) {
    const bool behind =
        std::any_of(connections_.begin(), connections_.end(), [](const Connection& connection) {
            return connection.behind;
        });
    const auto soonest = std::min(
        {acceptAgain_, feedback_.next(), scene_.nextStep(),
         query_ == nullptr ? Clock::time_point::max() : query_->next()});
    if (arrived_ || behind || now >= soonest) {
        return Corvid::Loop::kNow;
    }
    const auto due = inbox_.next();
    if (!due) {
        return soonest;
    }
    const auto left = *due - OscInbox::Clock::now();
    return left <= left.zero()
               ? Corvid::Loop::kNow
               : std::min(soonest, now + std::chrono::duration_cast<Clock::duration>(left));
}

void OscServer::serve(Clock::duration atMost) {
    arrived_ = false;
    const auto end = Clock::now() + atMost;
    accept();
    receive([end] { return Clock::now() >= end; });
    scene_.step(Clock::now());
    feedback_.send(Clock::now());
    if (query_ != nullptr) {
        query_->serve();
    }
}

void OscServer::receive(const OscInbox::Stop& stop) {
    // Due messages come before newly received ones.
    if (!inbox_.advance(OscInbox::Clock::now(), stop)) {
        return;
    }
    readDatagrams(stop);
    bool more = true;
    while (more && !stop()) {
        more = false;
        for (auto entry = connections_.begin(); entry != connections_.end();) {
            if (!flush(*entry) || !read(*entry, stop, more)) {
                entry = connections_.erase(entry);
            } else {
                ++entry;
            }
            if (stop()) { // the others come first next time
                connections_.splice(connections_.end(), connections_, connections_.begin(), entry);
                break;
            }
        }
    }
}

void OscServer::accept() {
    while (tcp_) {
        Corvid::Socket socket;
        if (const std::error_code error = tcp_.accept(socket)) {
            if (error == std::errc::connection_aborted || error == std::errc::interrupted) {
                continue;
            }
            // Without a descriptor or memory, asking again at once would not help.
            const bool full = error != std::errc::operation_would_block;
            acceptAgain_ = full ? Clock::now() + kFullPause : Clock::time_point::max();
            tcpWatch_.want(!full, false);
            return;
        }
        const OscPeer peer{socket.peer(), ++connected_};
        if (connections_.size() >= kMaxConnections) {
            const auto idlest = std::min_element(
                connections_.begin(), connections_.end(),
                [](const Connection& a, const Connection& b) { return a.heard < b.heard; });
            reportWrong(
                "the connection silent for longest of " + std::to_string(kMaxConnections) +
                    " gives way to " + peer.address.text(),
                idlest->peer);
            connections_.erase(idlest);
        }
        // So that a peer that is gone without a word does not keep its place.
        socket.set(SOL_SOCKET, SO_KEEPALIVE, 1);
        socket.set(IPPROTO_TCP, TCP_KEEPIDLE, kIdleSeconds);
        Connection& connection = connections_.emplace_back();
        connection.socket = std::move(socket);
        connection.peer = peer;
        connection.watch = watch(connection.socket);
    }
}

bool OscServer::read(Connection& connection, const OscInbox::Stop& stop, bool& more) {
    const auto takeWhole = [&] {
        const auto now = OscInbox::Clock::now();
        connection.behind = false;
        for (std::span<const std::byte> packet; connection.stream.next(packet);) {
            inbox_.add(packet, now, stop, connection.peer);
            if (stop()) {
                connection.behind = true; // there may be more
                return;
            }
        }
    };
    if (stop()) {
        return true;
    }
    takeWhole();
    if (!connection.behind) {
        const Corvid::Socket::Transfer got = connection.socket.receive(buffer_);
        if (got.bytes == 0) {
            return got.blocked();
        }
        more = true;
        connection.heard = Clock::now();
        connection.stream.feed({buffer_.data(), got.bytes});
        takeWhole();
    }
    if (connection.stream.broken()) {
        reportWrong(
            "an invalid packet or one above 64 KiB; its connection is closed", connection.peer);
    }
    return !connection.stream.broken();
}

void OscServer::readDatagrams(const OscInbox::Stop& stop) {
    do {
        for (int i = 0; i < kDatagramsInARow && !stop(); ++i) {
            OscPeer sender;
            const Corvid::Socket::Transfer got = udp_.receive(buffer_, &sender.address);
            if (got.error) {
                return;
            }
            inbox_.add({buffer_.data(), got.bytes}, OscInbox::Clock::now(), stop, sender);
        }
    } while (connections_.empty() && !stop());
}

void OscServer::take(std::span<const std::byte> message, const OscPeer& sender) {
    ++messages_;
    std::vector<OscAnswer> answers;
    sender_ = sender;
    feedback_.begin(sender);
    const std::string fault = scene_.take(message, answers);
    feedback_.end();
    if (!fault.empty()) {
        reportWrong(fault, sender);
    }
    send(sender, answers);
    if (sender.connection == 0 && settings_.replyPort != 0 &&
        sender.address.port != settings_.replyPort) {
        send({{sender.address.address, settings_.replyPort}}, answers);
    }
}

void OscServer::send(const OscPeer& receiver, std::span<const OscAnswer> answers) {
    if (answers.empty()) {
        return;
    }
    if (receiver.connection == 0) {
        encode(answers, [&](std::span<const std::byte> packet) {
            udp_.send(packet, receiver.address);
        });
        return;
    }
    const auto connection =
        std::find_if(connections_.begin(), connections_.end(), [&](const Connection& each) {
            return each.peer.connection == receiver.connection;
        });
    if (connection != connections_.end()) {
        encode(answers, [&](std::span<const std::byte> packet) {
            if (connection->out.size() < kMaxUnsent) {
                connection->out += connection->stream.framed(packet);
            }
        });
        flush(*connection); // if it has ended, read() learns it
    }
}

bool OscServer::flush(Connection& connection) {
    if (connection.out.empty()) {
        return true;
    }
    const auto sent = connection.socket.send(std::as_bytes(std::span(connection.out)));
    connection.out.erase(0, sent.bytes);
    connection.watch.want(true, !connection.out.empty());
    return !sent.error || sent.blocked();
}

void OscServer::reportWrong(const std::string& fault, const OscPeer& sender) {
    ++wrong_;
    if (reported_.size() >= kMaxReports ||
        !reported_.emplace(sender.address.address.bits(), fault).second) {
        return;
    }
    report_("OSC: " + sender.address.text() + ": " + fault);
    if (reported_.size() == kMaxReports) {
        report_("OSC: further invalid messages are only counted");
    }
}

void OscServer::finish() {
    serve(kLongestFinish);
    if (const std::string text = summary(); !text.empty()) {
        report_(text);
    }
}

std::string OscServer::summary() const {
    if (messages_ == 0 && wrong_ == 0) {
        return {};
    }
    return "OSC: " + std::to_string(messages_) + " messages, " + std::to_string(wrong_) +
           " invalid";
}

} // namespace Show

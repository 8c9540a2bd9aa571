#include <Corvid/detail/http/HttpSession.h>

#include <boost/beast/core/string.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <exception>
#include <utility>

namespace Corvid::detail {

namespace {

using namespace std::chrono_literals;

constexpr std::size_t kMaxBuffered = 64U << 10U; // of queued requests
constexpr std::size_t kFewWaiting = 64U << 10U;  // below it, a producer is asked for more
constexpr std::size_t kSmall = 16U << 10U;       // below it, copying beats another buffer
constexpr auto kLinger = 2s;

/// Default headers, which a page may override: nothing is loaded from elsewhere, no page may be
/// framed, no copy is kept.
constexpr std::array<std::pair<const char*, const char*>, 6> kDefaultHeaders{{
    {"Cache-Control", "no-store"},
    {"Content-Security-Policy", "default-src 'none'; style-src 'self'; img-src 'self'; "
                                "base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Referrer-Policy", "no-referrer"},
    {"X-Content-Type-Options", "nosniff"},
    {"X-Frame-Options", "DENY"},
}};
/// Headers that a page cannot set.
constexpr std::array kOwnHeaders{"Connection", "Content-Length", "Date", "Transfer-Encoding"};

bool isOwnHeader(const std::string& name) {
    return std::any_of(kOwnHeaders.begin(), kOwnHeaders.end(), [&name](const char* own) {
        return boost::beast::iequals(name, own);
    });
}

} // namespace

HttpSession::HttpSession(WebSite& site, const WebClient& client, Clock::time_point now)
    : site_(site), limits_(site.limits), client_(client),
      parser_(limits_.headerBytes, limits_.bodyBytes), deadline_(now + limits_.patience) {}

void HttpSession::drop() {
    ++site_.counters.dropped;
    close();
}

bool HttpSession::wantsInput() const {
    return !inputEnded_ && (state_ == State::Lingering ||
                            (state_ == State::Reading && parser_.buffered() < kMaxBuffered));
}

void HttpSession::endInput() {
    inputEnded_ = true;
    if (state_ == State::Lingering || (state_ == State::Reading && !hasNews_)) {
        close();
    }
}

void HttpSession::receive(std::string_view bytes, Clock::time_point now) {
    site_.counters.bytesIn += bytes.size();
    if (state_ != State::Reading) {
        return;
    }
    parser_.append(bytes);
    hasNews_ = true;
    if (!std::exchange(hasBegun_, true) && requests_ > 0) {
        deadline_ = now + limits_.patience;
    }
}

bool HttpSession::wantsStep() const {
    return (state_ == State::Reading && hasNews_) ||
           (state_ == State::Replying && producer_ && outputBytes_ < kFewWaiting);
}

void HttpSession::step(Clock::time_point now) {
    if (state_ == State::Replying) {
        produce();
        if (state_ == State::Replying && !producer_ && output_.empty()) {
            finishReply(now);
        }
        return;
    }
    if (!std::exchange(hasNews_, false) || state_ != State::Reading) {
        return;
    }
    const HttpParser::Outcome outcome = parser_.read();
    if (outcome == HttpParser::Outcome::Continue) {
        push("HTTP/1.1 100 Continue\r\n\r\n");
    } else if (outcome == HttpParser::Outcome::Refused) {
        ProtocolHTTP::Reply reply;
        site_.refuse(client_, parser_.status(), reply);
        keepsAlive_ = false;
        send(reply, true, now);
    } else if (outcome == HttpParser::Outcome::Complete) {
        const ProtocolHTTP::Request request = parser_.takeRequest();
        ++requests_;
        keepsAlive_ = parser_.keepsAlive() && requests_ < limits_.requestsPerConnection;
        ProtocolHTTP::Reply reply;
        site_.answer(client_, request, reply);
        send(reply, request.method() != "HEAD", now);
    } else if (inputEnded_) {
        close();
    }
}

void HttpSession::send(ProtocolHTTP::Reply& reply, bool withBody, Clock::time_point now) {
    state_ = State::Replying;
    deadline_ = now + limits_.patience;
    const bool hasBody = reply.status() != 204 && reply.status() != 304;
    producer_ = reply.takeProducer();
    std::string body = reply.takeBody();
    chunked_ = producer_ && parser_.knowsChunks();
    keepsAlive_ = keepsAlive_ && (!producer_ || chunked_); // else closing ends the body

    std::string head = "HTTP/1.1 " + std::to_string(reply.status()) + ' ' +
                       std::string(ProtocolHTTP::reason(reply.status())) +
                       "\r\nDate: " + httpDate(std::chrono::system_clock::now()) + "\r\n";
    for (const auto& [name, value] : kDefaultHeaders) {
        if (reply.header(name) == nullptr) {
            head.append(name).append(": ").append(value).append("\r\n");
        }
    }
    for (const auto& [name, value] : reply.headers()) {
        if (!isOwnHeader(name)) {
            head.append(name).append(": ").append(value).append("\r\n");
        }
    }
    if (hasBody && !producer_) {
        head += "Content-Length: " + std::to_string(body.size()) + "\r\n";
    } else if (hasBody && chunked_) {
        head += "Transfer-Encoding: chunked\r\n";
    }
    head += keepsAlive_ ? "Connection: keep-alive\r\n\r\n" : "Connection: close\r\n\r\n";

    if (!withBody || !hasBody) {
        producer_ = nullptr;
        body.clear();
    }
    if (body.size() < kSmall) {
        head += body;
        body.clear();
    }
    push(std::move(head));
    push(std::move(body));
}

void HttpSession::push(std::string bytes) {
    if (!bytes.empty()) {
        outputBytes_ += bytes.size();
        output_.push_back(std::move(bytes));
    }
}

void HttpSession::produce() {
    std::string piece;
    bool more = false;
    std::string fault;
    try {
        more = producer_(piece);
        if (piece.size() > limits_.replyBytes) {
            fault = "a piece has " + std::to_string(piece.size()) + " bytes, more than " +
                    std::to_string(limits_.replyBytes);
        }
    } catch (const std::exception& exception) {
        fault = exception.what();
    } catch (...) {
        fault = "it threw an unknown exception";
    }
    if (!fault.empty()) { // the client notices the truncated body
        producer_ = nullptr;
        site_.report("a page was truncated: " + fault);
        drop();
        return;
    }
    if (chunked_ && !piece.empty()) {
        std::array<char, 18> size = {};
        auto* end = std::to_chars(size.begin(), size.end() - 2, piece.size(), 16).ptr;
        push(std::string(size.begin(), end) + "\r\n");
        piece += "\r\n";
    }
    push(std::move(piece));
    if (!more) {
        producer_ = nullptr;
        push(chunked_ ? "0\r\n\r\n" : "");
    }
}

void HttpSession::sent(std::size_t bytes, Clock::time_point now) {
    site_.counters.bytesOut += bytes;
    outputBytes_ -= bytes;
    if (state_ == State::Replying && bytes > 0) {
        deadline_ = now + limits_.patience;
    }
    bytes += outputOffset_;
    while (!output_.empty() && bytes >= output_.front().size()) {
        bytes -= output_.front().size();
        output_.pop_front();
    }
    outputOffset_ = bytes;
    if (state_ == State::Replying && output_.empty() && !producer_) {
        finishReply(now);
    }
}

void HttpSession::finishReply(Clock::time_point now) {
    hasBegun_ = hasNews_ = parser_.buffered() > 0;
    if (keepsAlive_) {
        state_ = inputEnded_ && !hasNews_ ? State::Closed : State::Reading;
        deadline_ = now + limits_.patience;
    } else {
        state_ = inputEnded_ ? State::Closed : State::Lingering;
        deadline_ = now + kLinger;
    }
}

void HttpSession::expire(Clock::time_point now) {
    if (state_ == State::Lingering || (state_ == State::Reading && !hasBegun_ && requests_ > 0)) {
        close();
        return;
    }
    if (state_ != State::Reading || !hasBegun_) {
        drop();
        return;
    }
    ++site_.counters.dropped;
    ProtocolHTTP::Reply reply;
    site_.refuse(client_, 408, reply);
    keepsAlive_ = false;
    send(reply, true, now);
}

} // namespace Corvid::detail

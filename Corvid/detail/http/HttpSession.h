#pragma once

#include <Corvid/detail/http/HttpParser.h>
#include <Corvid/detail/http/WebSite.h>

#include <chrono>
#include <cstddef>
#include <deque>
#include <string>
#include <string_view>

namespace Corvid::detail {

/// The protocol of one connection, without its socket: received bytes go in, bytes to send come
/// out. One request is answered and sent before the next is read. Confined.
class HttpSession {
public:
    using Clock = std::chrono::steady_clock;

    HttpSession(WebSite& site, const WebClient& client, Clock::time_point now);

    enum class State {
        Reading,   ///< waits for a request
        Replying,  ///< an answer is being made or sent
        Lingering, ///< all is sent and the output closed; input is discarded, so that the
                   ///< client can finish reading
        Closed
    };
    [[nodiscard]] State state() const { return state_; }
    void close() { state_ = State::Closed; }
    /// Closes, because of a limit.
    void drop();

    [[nodiscard]] bool wantsInput() const;
    void receive(std::string_view bytes, Clock::time_point now);
    /// The client will send no more; it still gets the answers to its requests.
    void endInput();

    /// Whether there is work without further input.
    [[nodiscard]] bool wantsStep() const;
    /// Answers one request, or makes the next piece of an answer.
    void step(Clock::time_point now);

    /// The data to send, in order; report progress with sent().
    [[nodiscard]] const std::deque<std::string>& output() const { return output_; }
    [[nodiscard]] std::size_t outputOffset() const { return outputOffset_; } ///< in the first
    [[nodiscard]] std::size_t outputBytes() const { return outputBytes_; }
    void sent(std::size_t bytes, Clock::time_point now);

    [[nodiscard]] Clock::time_point deadline() const { return deadline_; }
    /// Call it when the deadline has passed.
    void expire(Clock::time_point now);

private:
    void send(ProtocolHTTP::Reply& reply, bool withBody, Clock::time_point now);
    void push(std::string bytes);
    void produce();
    void finishReply(Clock::time_point now);

    WebSite& site_;
    const WebServer::Limits limits_;
    WebClient client_;
    HttpParser parser_;
    State state_ = State::Reading;
    bool hasNews_ = false;   // bytes that the parser has not seen
    bool hasBegun_ = false;  // part of this request has arrived
    bool keepsAlive_ = true; // after this reply
    bool chunked_ = false;
    bool inputEnded_ = false;
    std::size_t requests_ = 0;
    ProtocolHTTP::Reply::Producer producer_;
    std::deque<std::string> output_;
    std::size_t outputOffset_ = 0;
    std::size_t outputBytes_ = 0;
    Clock::time_point deadline_;
};

} // namespace Corvid::detail

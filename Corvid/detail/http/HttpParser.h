#pragma once

#include <Corvid/ProtocolHTTP.h>

#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace Corvid::detail {

/// Reads requests from the bytes of one connection. Confined.
class HttpParser {
public:
    HttpParser(std::size_t headerBytes, std::size_t bodyBytes);

    enum class Outcome {
        Incomplete, ///< more bytes are needed
        Continue,   ///< the client waits for 100 Continue before it sends the body
        Complete,   ///< takeRequest() is available; later bytes are kept
        Refused     ///< status() is the reason; parsing cannot continue
    };

    /// Buffers bytes for read().
    void append(std::string_view bytes) { buffer_ += bytes; }
    [[nodiscard]] Outcome read();

    /// Whether part of a request has arrived.
    [[nodiscard]] bool hasBegun() const { return !buffer_.empty() || headerSize_ > 0; }
    /// Number of unread bytes.
    [[nodiscard]] std::size_t buffered() const { return buffer_.size(); }

    /// The request; call it once after each Complete.
    [[nodiscard]] ProtocolHTTP::Request takeRequest();
    /// After Complete: whether the client may send another one.
    [[nodiscard]] bool keepsAlive() const { return keepsAlive_; }
    /// After Complete: whether the client supports chunked bodies.
    [[nodiscard]] bool knowsChunks() const { return knowsChunks_; }
    [[nodiscard]] int status() const { return status_; }

private:
    using Parser = boost::beast::http::request_parser<boost::beast::http::string_body>;

    void start();
    Outcome refuse(int status);
    bool put(boost::system::error_code& error);
    /// 0, or the status of a refusal.
    [[nodiscard]] int checkHeader() const;

    std::size_t headerBytes_;
    std::size_t bodyBytes_;
    std::string buffer_;
    std::optional<Parser> parser_;
    std::size_t headerSize_ = 0; // bytes taken from the buffer
    bool keepsAlive_ = false;
    bool knowsChunks_ = false;
    int status_ = 0;
};

} // namespace Corvid::detail

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
        Continue,   ///< the same, and the client waits to be told so before it sends the body
        Complete,   ///< request() can be taken; the bytes after it are kept
        Refused     ///< status() says why; nothing after this can be read
    };

    /// Keeps the bytes for read().
    void append(std::string_view bytes) { buffer_ += bytes; }
    [[nodiscard]] Outcome read();

    /// Whether a part of a request has come.
    [[nodiscard]] bool hasBegun() const { return !buffer_.empty() || headerSize_ > 0; }
    /// How many bytes wait to be read.
    [[nodiscard]] std::size_t buffered() const { return buffer_.size(); }

    /// The request, once after each Complete.
    [[nodiscard]] ProtocolHTTP::Request takeRequest();
    /// After Complete: whether the client may send another one.
    [[nodiscard]] bool keepsAlive() const { return keepsAlive_; }
    /// After Complete: whether the client understands a body in chunks.
    [[nodiscard]] bool knowsChunks() const { return knowsChunks_; }
    [[nodiscard]] int status() const { return status_; }

private:
    using Parser = boost::beast::http::request_parser<boost::beast::http::string_body>;

    void start();
    Outcome refuse(int status);
    bool put(boost::system::error_code& error);
    /// 0, or the status to refuse with.
    [[nodiscard]] int checkHeader() const;

    std::size_t headerBytes_;
    std::size_t bodyBytes_;
    std::string buffer_;
    std::optional<Parser> parser_;
    std::size_t headerSize_ = 0; // what was taken from the buffer for it
    bool keepsAlive_ = false;
    bool knowsChunks_ = false;
    int status_ = 0;
};

} // namespace Corvid::detail

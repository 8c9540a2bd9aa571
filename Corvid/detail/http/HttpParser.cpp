#include <Corvid/detail/http/HttpParser.h>

#include <boost/asio/buffer.hpp>
#include <boost/beast/core/string.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/field.hpp>

#include <algorithm>
#include <cstdint>
#include <utility>

namespace Corvid::detail {

namespace http = boost::beast::http;

HttpParser::HttpParser(std::size_t headerBytes, std::size_t bodyBytes)
    : headerBytes_(headerBytes), bodyBytes_(bodyBytes) {
    start();
}

void HttpParser::start() {
    parser_.emplace();
    // Beast limits the request line separately from the fields; read() limits their sum.
    parser_->header_limit(
        static_cast<std::uint32_t>(std::min<std::size_t>(headerBytes_, UINT32_MAX)));
    parser_->body_limit(bodyBytes_);
    headerSize_ = 0;
}

HttpParser::Outcome HttpParser::refuse(int status) {
    status_ = status;
    buffer_.clear();
    return Outcome::Refused;
}

bool HttpParser::put(boost::system::error_code& error) {
    const std::size_t taken = parser_->put(boost::asio::buffer(buffer_), error);
    buffer_.erase(0, taken);
    if (!parser_->eager()) {
        headerSize_ += taken;
    }
    return !error;
}

HttpParser::Outcome HttpParser::read() {
    if (status_ != 0) {
        buffer_.clear();
        return Outcome::Refused;
    }
    if (headerSize_ == 0) { // empty lines before a request are ignored
        buffer_.erase(0, std::min(buffer_.find_first_not_of("\r\n"), buffer_.size()));
    }
    bool askedToContinue = false;
    boost::system::error_code error;
    while (!parser_->is_done() && !buffer_.empty() && put(error)) {
        if (parser_->is_header_done() && !parser_->eager()) {
            if (headerSize_ > headerBytes_) {
                return refuse(431);
            }
            if (const int status = checkHeader(); status != 0) {
                return refuse(status);
            }
            parser_->eager(true); // from here on, parse all available bytes
            askedToContinue =
                boost::beast::iequals(parser_->get()[http::field::expect], "100-continue");
        }
    }
    if (error == http::error::body_limit) {
        return refuse(413);
    }
    // The first line of a chunk has the same limit as a header.
    const std::size_t size = buffer_.size() + (parser_->is_header_done() ? 0 : headerSize_);
    if (error == http::error::header_limit || (!parser_->is_done() && size > headerBytes_)) {
        return refuse(431);
    }
    if (error && error != http::error::need_more) {
        return refuse(400);
    }
    // Beast waits for a version even after the end of a first line without one.
    if (headerSize_ == 0 && !parser_->is_header_done()) {
        const std::size_t end = buffer_.find('\n');
        if (end != std::string::npos && buffer_.find(" HTTP/") > end) {
            return refuse(400);
        }
    }
    if (!parser_->is_done()) {
        return askedToContinue ? Outcome::Continue : Outcome::Incomplete;
    }
    keepsAlive_ = parser_->keep_alive();
    knowsChunks_ = parser_->get().version() >= 11;
    return Outcome::Complete;
}

int HttpParser::checkHeader() const {
    const auto& message = parser_->get();
    const auto hosts = message.count(http::field::host);
    if (hosts > 1 || (hosts == 0 && message.version() >= 11)) {
        return 400;
    }
    // A body with an unsupported encoding cannot be delimited from the next request.
    if (message.count(http::field::transfer_encoding) > 0 &&
        (message.version() < 11 || message.count(http::field::transfer_encoding) > 1 ||
         !boost::beast::iequals(message[http::field::transfer_encoding], "chunked"))) {
        return 400;
    }
    return 0;
}

ProtocolHTTP::Request HttpParser::takeRequest() {
    auto message = parser_->release();
    ProtocolHTTP::Fields headers;
    for (const auto& field : message) {
        headers.emplace_back(std::string(field.name_string()), std::string(field.value()));
    }
    ProtocolHTTP::Request request(
        std::string(message.method_string()), std::string(message.target()), std::move(headers),
        std::move(message.body()));
    start();
    return request;
}

} // namespace Corvid::detail

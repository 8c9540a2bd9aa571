#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <orvel_export.h>

namespace Corvid {

/// A web server's requests and replies. Plain values, confined to the thread that updates the
/// server.
class ORVEL_EXPORT ProtocolHTTP {
public:
    using Fields = std::vector<std::pair<std::string, std::string>>;

    /// A complete, validated request: pages get no malformed or oversized ones.
    class ORVEL_EXPORT Request {
    public:
        Request() = default;
        /// `target`: as sent, a path with an optional query, or a complete http URL. If not
        /// isValid(), host, path and parameters are empty.
        Request(std::string method, std::string target, Fields headers, std::string body);

        /// Whether target and host are valid: a path with correct percent-encoding and no control
        /// characters, and a host without user information.
        [[nodiscard]] bool isValid() const noexcept { return valid_; }
        /// In capitals, as sent. A page that serves GET also gets HEAD and may treat both alike.
        [[nodiscard]] const std::string& method() const noexcept { return method_; }
        [[nodiscard]] const std::string& target() const noexcept { return target_; }
        /// The requested host, in lower case and without a port: that of the target, or else of the
        /// header Host; empty if the request has neither. An IPv6 address keeps its brackets.
        [[nodiscard]] const std::string& host() const noexcept { return host_; }
        /// Decoded, without the query; begins with a slash.
        [[nodiscard]] const std::string& path() const noexcept { return path_; }
        /// The decoded query, in the order sent; a name without '=' has an empty value.
        [[nodiscard]] const Fields& parameters() const noexcept { return parameters_; }
        /// The first parameter with this name, or null.
        [[nodiscard]] const std::string* parameter(std::string_view name) const;
        /// As sent, in the order sent.
        [[nodiscard]] const Fields& headers() const noexcept { return headers_; }
        /// The first header with this name, in any case, or null.
        [[nodiscard]] const std::string* header(std::string_view name) const;
        /// Whether the header Authorization is "Bearer " and this token. Takes the same time for
        /// every wrong one of the right length.
        [[nodiscard]] bool hasBearer(std::string_view token) const;
        [[nodiscard]] const std::string& body() const noexcept { return body_; }

    private:
        bool readTarget();
        bool readHost();

        std::string method_;
        std::string target_;
        std::string host_; // includes the port before readHost()
        std::string path_;
        Fields parameters_;
        Fields headers_;
        std::string body_;
        bool valid_ = false;
    };

    /// The answer to a request, by default 200 with an empty body. The server adds Date,
    /// Content-Length or Transfer-Encoding, Connection, and security headers; a page may override
    /// the latter, such as Content-Security-Policy.
    class ORVEL_EXPORT Reply {
    public:
        /// Appends the next piece of a body and returns whether there are more. Called once per
        /// update(), and only when nearly all of the previous piece has been sent. Destroyed after
        /// it returned false, when the client is gone, or when the server closes. An exception
        /// closes the connection.
        using Producer = std::function<bool(std::string& more)>;

        /// 200 to 599; other values become 500.
        void setStatus(int status);
        [[nodiscard]] int status() const noexcept { return status_; }

        /// Sets or replaces the header with this name, in any case. Returns false, without effect,
        /// if the name is not a token or the value has control characters.
        bool setHeader(const std::string& name, const std::string& value);
        /// The value of the header with this name, in any case, or null.
        [[nodiscard]] const std::string* header(std::string_view name) const;
        [[nodiscard]] const Fields& headers() const noexcept { return headers_; }

        /// The complete body, of at most WebServer::Limits::replyBytes.
        void setBody(std::string body);
        /// A body made in pieces, of any total length; the limit applies to each piece.
        void setBody(Producer producer);
        [[nodiscard]] const std::string& body() const noexcept { return body_; }
        /// Null for a complete body.
        [[nodiscard]] const Producer& producer() const noexcept { return producer_; }

        /// For the server: moves the body or producer out.
        [[nodiscard]] std::string takeBody() { return std::exchange(body_, {}); }
        [[nodiscard]] Producer takeProducer() { return std::exchange(producer_, {}); }

    private:
        int status_ = 200;
        Fields headers_;
        std::string body_;
        Producer producer_;
    };

    /// The reason phrase of a status code, such as "Not Found".
    [[nodiscard]] static std::string_view reason(int status) noexcept;
};

} // namespace Corvid

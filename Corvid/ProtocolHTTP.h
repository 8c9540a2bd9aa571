#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <orvel_export.h>

namespace Corvid {

/// What a client asks of a web server, and what it gets. Plain values, confined to the thread that
/// updates the server.
class ORVEL_EXPORT ProtocolHTTP {
public:
    using Fields = std::vector<std::pair<std::string, std::string>>;

    /// A whole request, checked: a page sees none that is malformed or beyond the limits.
    class ORVEL_EXPORT Request {
    public:
        Request() = default;
        /// `target` as it was sent: a path with an optional query, or a whole http URL. Without
        /// isValid(), host, path and parameters are empty.
        Request(std::string method, std::string target, Fields headers, std::string body);

        /// Whether target and host could be read: a path with correct percent signs and without
        /// control characters, and a host without a user's name.
        [[nodiscard]] bool isValid() const noexcept { return valid_; }
        /// In capitals, as sent. A page that serves GET gets HEAD too and need not tell them apart.
        [[nodiscard]] const std::string& method() const noexcept { return method_; }
        [[nodiscard]] const std::string& target() const noexcept { return target_; }
        /// The host that the client calls, in lower case and without a port: that of the target, or
        /// else of the header Host; empty if the request has neither. An IPv6 address has its
        /// brackets.
        [[nodiscard]] const std::string& host() const noexcept { return host_; }
        /// Decoded, without the query; begins with a slash.
        [[nodiscard]] const std::string& path() const noexcept { return path_; }
        /// The query, decoded, in the order sent; a name without '=' has an empty value.
        [[nodiscard]] const Fields& parameters() const noexcept { return parameters_; }
        /// The first parameter of that name, or null.
        [[nodiscard]] const std::string* parameter(std::string_view name) const;
        /// As sent, in the order sent.
        [[nodiscard]] const Fields& headers() const noexcept { return headers_; }
        /// The first header of that name in any case, or null.
        [[nodiscard]] const std::string* header(std::string_view name) const;
        [[nodiscard]] const std::string& body() const noexcept { return body_; }

    private:
        bool readTarget();
        bool readHost();

        std::string method_;
        std::string target_;
        std::string host_; // with the port until readHost()
        std::string path_;
        Fields parameters_;
        Fields headers_;
        std::string body_;
        bool valid_ = false;
    };

    /// The answer to a request: 200 and an empty body at first. The server adds Date,
    /// Content-Length or Transfer-Encoding, Connection, and security headers; of the latter a page
    /// may set its own, such as Content-Security-Policy.
    class ORVEL_EXPORT Reply {
    public:
        /// Appends the next piece of a body and tells whether more will come. Called from later
        /// update() calls, once in each and only while what was made before is all but sent;
        /// destroyed when it gave false, when the client is gone, or when the server closes. What
        /// it throws ends the connection.
        using Producer = std::function<bool(std::string& more)>;

        /// 200 to 599; others become 500.
        void setStatus(int status);
        [[nodiscard]] int status() const noexcept { return status_; }

        /// Replaces the header of that name in any case. False, and nothing is set, for a name that
        /// is no token and for a value with control characters.
        bool setHeader(const std::string& name, const std::string& value);
        /// The value of that name in any case, or null.
        [[nodiscard]] const std::string* header(std::string_view name) const;
        [[nodiscard]] const Fields& headers() const noexcept { return headers_; }

        /// The whole body, of at most WebServer::Limits::replyBytes.
        void setBody(std::string body);
        /// A body that is made piece by piece, of any length, each piece within that limit.
        void setBody(Producer producer);
        [[nodiscard]] const std::string& body() const noexcept { return body_; }
        /// Null for a whole body.
        [[nodiscard]] const Producer& producer() const noexcept { return producer_; }

        /// For the server, which takes them over.
        [[nodiscard]] std::string takeBody() { return std::exchange(body_, {}); }
        [[nodiscard]] Producer takeProducer() { return std::exchange(producer_, {}); }

    private:
        int status_ = 200;
        Fields headers_;
        std::string body_;
        Producer producer_;
    };

    /// The words that go with a status code, such as "Not Found".
    [[nodiscard]] static std::string_view reason(int status) noexcept;
};

} // namespace Corvid

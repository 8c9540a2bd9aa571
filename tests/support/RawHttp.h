#pragma once

#include "support/RawSocket.h"

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace Orvel::Test {

/// The answer of a web server.
struct HttpAnswer {
    int status = 0;   ///< 0 without an answer
    std::string head; ///< the status line and the headers, each with its line end
    std::string body; ///< decoded if chunked
    bool whole = false;

    [[nodiscard]] bool has(const std::string& headerLine) const {
        return head.find("\r\n" + headerLine + "\r\n") != std::string::npos;
    }
};

/// A client of a polled web server that sends arbitrary bytes. Only 127/8.
class RawHttp : public RawSocket {
public:
    /// `serve` lets the server make progress.
    RawHttp(std::uint16_t port, std::function<void()> serve, std::uint32_t host = INADDR_LOOPBACK)
        : RawSocket(port, {}, 0, host), serve_(std::move(serve)) {}

    /// The next answer; incomplete if the connection ends before or nothing arrives.
    HttpAnswer receive(bool withBody = true) {
        HttpAnswer answer;
        // Parsing again after each block of a long answer would take far longer than receiving it.
        until([&] { return !more_ && (parse(answer, withBody) || ended_); }, [this] { read(); });
        input_.erase(0, used_);
        return answer;
    }
    HttpAnswer ask(std::string_view request) {
        send(request, 0);
        return receive(!request.starts_with("HEAD"));
    }
    HttpAnswer get(const std::string& path, const std::string& host = "localhost") {
        return ask("GET " + path + " HTTP/1.1\r\nHost: " + host + "\r\n\r\n");
    }
    /// Whether the server closes the connection without sending another byte.
    bool ends() {
        until([this] { return ended_ || !input_.empty(); }, [this] { read(); });
        return ended_ && input_.empty();
    }

private:
    void read() {
        serve_();
        const std::size_t before = input_.size();
        ended_ = !RawSocket::receive(input_);
        more_ = input_.size() != before;
    }
    bool parse(HttpAnswer& answer, bool withBody) {
        const std::size_t headEnd = input_.find("\r\n\r\n");
        answer.whole = false;
        used_ = 0;
        if (headEnd == std::string::npos) {
            return false;
        }
        answer.head = input_.substr(0, headEnd + 2);
        answer.status = std::atoi(answer.head.c_str() + sizeof "HTTP/1.1");
        used_ = headEnd + 4;
        const std::size_t length = answer.head.find("Content-Length: ");
        if (!withBody || answer.status == 100) {
            answer.whole = true;
        } else if (answer.has("Transfer-Encoding: chunked")) {
            answer.whole = parseChunks(answer.body);
        } else {
            const std::size_t size =
                length == std::string::npos
                    ? input_.size()
                    : std::strtoul(answer.head.c_str() + length + 16, nullptr, 10);
            answer.body = input_.substr(used_, size);
            used_ += answer.body.size();
            answer.whole = length == std::string::npos ? ended_ : answer.body.size() == size;
        }
        return answer.whole;
    }
    bool parseChunks(std::string& body) {
        body.clear();
        for (;;) {
            const std::size_t lineEnd = input_.find("\r\n", used_);
            const auto size = std::strtoul(input_.c_str() + used_, nullptr, 16);
            if (lineEnd == std::string::npos || input_.size() < lineEnd + size + 4) {
                return false;
            }
            body.append(input_, lineEnd + 2, size);
            used_ = lineEnd + size + 4;
            if (size == 0) {
                return true;
            }
        }
    }

    std::function<void()> serve_;
    bool ended_ = false;
    bool more_ = false; // may be waiting
    std::string input_;
    std::size_t used_ = 0;
};

} // namespace Orvel::Test

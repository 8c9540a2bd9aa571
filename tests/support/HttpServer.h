#pragma once

#include "support/Loopback.h"

#include <map>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace Orvel::Test {

/// The raw bytes of an answer, which may break every rule. Then the server repeatedly sends `count`
/// bytes of `more`, with a pause before each, in ms, and closes.
struct Answer {
    std::string bytes;
    std::string more = {};
    int count = 0;
    int pause = 0;
};

/// An HTTP server on a free loopback port with one thread, serving one connection after another.
/// Unknown paths and clients without the library's name get status 404.
class HttpServer {
public:
    /// Each row has a path and its answer.
    template <class Rows>
    explicit HttpServer(const Rows& rows) {
        for (const auto& row : rows) {
            answers_[row.path] = row.answer;
        }
        if (::listen(listener_, 64) != 0) {
            throw std::runtime_error("no HTTP server on loopback");
        }
        thread_ = std::thread([this] { run(); });
    }

    ~HttpServer() {
        ::shutdown(listener_, SHUT_RDWR); // ends accept()
        thread_.join();
        ::close(listener_);
    }

    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    [[nodiscard]] std::string url(const std::string& path) const {
        return "http://127.0.0.1:" + std::to_string(port_) + path;
    }

private:
    void run() {
        for (int client = 0; (client = ::accept(listener_, nullptr, nullptr)) >= 0;) {
            serve(client);
            ::close(client);
        }
    }

    void serve(int client) {
        std::string request;
        while (request.find("\r\n\r\n") == std::string::npos) {
            char buffer[4096];
            const ssize_t size =
                waitFor(client, 20000) ? ::recv(client, buffer, sizeof(buffer), 0) : 0;
            if (size <= 0) {
                return;
            }
            request.append(buffer, static_cast<std::size_t>(size));
        }
        const std::size_t path = request.find(' ') + 1;
        const auto found = answers_.find(request.substr(path, request.find(' ', path) - path));
        const Answer none{"HTTP/1.1 404 Not Found\r\nContent-Length: 4\r\n\r\ngone"};
        const bool known = request.find("\r\nUser-Agent: orvel/") != std::string::npos;
        const Answer& answer = found == answers_.end() || !known ? none : found->second;
        bool open = send(client, answer.bytes);
        for (int i = 0; open && i < answer.count; ++i) {
            open = !waitFor(client, answer.pause) &&
                   send(client, answer.more.substr(i % answer.more.size(), 1));
        }
    }

    /// Whether the client sent data or disconnected within the time.
    static bool waitFor(int client, int milliseconds) {
        pollfd entry = {client, POLLIN, 0};
        return ::poll(&entry, 1, milliseconds) > 0;
    }

    static bool send(int client, const std::string& bytes) {
        ssize_t size = 0;
        for (std::size_t sent = 0; sent < bytes.size() && size >= 0; sent += size) {
            size = ::send(client, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        }
        return size >= 0;
    }

    std::map<std::string, Answer> answers_;
    std::uint16_t port_ = 0;
    const int listener_ = boundSocket(SOCK_STREAM, port_);
    std::thread thread_;
};

} // namespace Orvel::Test

#pragma once

#include <Corvid/WebServer.h>

#include <chrono>
#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Corvid::detail {

/// The contents of a web server, without connections: the pages, the error answers and the log.
/// Confined.
class WebSite {
public:
    WebSite();

    /// Nothing if the page was kept.
    bool addPage(const std::string& path, const WebPage& page);

    /// Answers a request, or refuses it.
    void
    answer(WebClient& client, const ProtocolHTTP::Request& request, ProtocolHTTP::Reply& reply);
    /// Answers an unreadable request.
    void refuse(WebClient& client, int status, ProtocolHTTP::Reply& reply);
    /// Reports to the host.
    void report(const std::string& line) const;

    void setLogSize(std::size_t size);
    [[nodiscard]] std::size_t logSize() const { return logSize_; }
    void createLogPage(ProtocolHTTP::Reply& reply) const;
    [[nodiscard]] std::string
    createFrame(const std::string& title, const std::string& content) const;

    std::string name;
    std::string notice;
    std::string contact;
    std::vector<std::string> hostNames; ///< that clients may use besides the machine's own
    std::string listeningHost;          ///< given to open()
    std::string token;                  ///< that requests need; empty: none
    WebServer::Limits limits;
    WebServer::Counters counters;
    WebServer::Diagnostic diagnostic;

private:
    struct LogEntry {
        std::chrono::system_clock::time_point time;
        std::string client;
        std::string what; // method and target
        int status;
    };

    /// Whether `host` of a request is a name of this server. A foreign name that resolves to this
    /// machine is not, because a page elsewhere could then read the answer.
    [[nodiscard]] bool isCalled(std::string_view host) const;
    /// Whether a request has the token. Otherwise answers it.
    [[nodiscard]] bool
    admit(const ProtocolHTTP::Request& request, ProtocolHTTP::Reply& reply) const;
    void
    fill(WebClient& client, const ProtocolHTTP::Request& request, ProtocolHTTP::Reply& reply) const;
    void setError(ProtocolHTTP::Reply& reply, int status, const std::string& text) const;
    void note(const WebClient& client, const std::string& what, int status);

    std::map<std::string, std::shared_ptr<WebPage>> pages_;
    std::deque<LogEntry> log_;
    std::size_t logSize_ = 0;
};

/// A time in GMT in the format of the header Date, such as "Sun, 06 Nov 1994 08:49:37 GMT".
[[nodiscard]] std::string httpDate(std::chrono::system_clock::time_point time);

} // namespace Corvid::detail

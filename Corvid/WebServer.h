#pragma once

#include <Corvid/Loop.h>
#include <Corvid/Multicast.h>
#include <Corvid/ProtocolHTTP.h>
#include <Corvid/WebPage.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include <orvel_export.h>

namespace Corvid {

namespace detail {
class HttpServer;
class WebSite;
} // namespace detail

/// Serves pages over HTTP/1.1, for status pages: no encryption, no users, no files. A derived
/// class drives it.
///
/// Confined to one thread. A slow, silent or malformed client only affects its own connection; when
/// all connections are taken, a new one replaces the one that has kept the server waiting longest.
class ORVEL_EXPORT WebServer {
public:
    /// Limits on a client. Changes apply to later connections.
    struct Limits {
        std::size_t headerBytes = 16U << 10U; ///< request line and headers; beyond it: 431
        std::size_t bodyBytes = 64U << 10U;   ///< of a request; beyond it: 413
        /// Time for a request to arrive, from the connection or from its first byte on; beyond it:
        /// 408, or the connection is closed if nothing arrived. Also the time a client may read
        /// nothing of an answer.
        std::chrono::milliseconds patience{10'000};
        std::size_t connections = 64;
        std::size_t requestsPerConnection = 1'000; ///< the connection is closed after the last
        std::size_t replyBytes = 4U << 20U; ///< of a complete body or of a piece; beyond it: 500
    };

    /// Statistics since the server was created.
    struct Counters {
        std::size_t connections = 0;  ///< currently open
        std::size_t bytesWaiting = 0; ///< currently made but not yet written to the sockets
        std::uint64_t connectionsAccepted = 0;
        std::uint64_t requests = 0; ///< answered, including refused ones
        std::uint64_t refused = 0;  ///< answered with 400 or above
        std::uint64_t dropped = 0;  ///< connections closed by the server because of a limit
        std::uint64_t bytesIn = 0;
        std::uint64_t bytesOut = 0;
    };

    /// Receives one line about a problem that the host should know, such as a page that failed.
    using Diagnostic = std::function<void(const std::string&)>;

    WebServer(const WebServer&) = delete;
    WebServer& operator=(const WebServer&) = delete;
    /// Closes the server.
    virtual ~WebServer();

    /// Stores a copy of the page, made by clone(), and replaces any former page there. `path`
    /// starts with a slash and is compared with the decoded path of requests; without a slash the
    /// call returns false and has no effect. A path that ends with "/*" is for all below that have
    /// no page of their own.
    bool addPage(const std::string& path, const WebPage& page);

    /// The name shown at the top of the server's own pages: errors and the log.
    void setName(const std::string& name);
    [[nodiscard]] const std::string& name() const;
    /// A line of text at the right of those pages' header, for example the publisher.
    void setNotice(const std::string& notice);
    [[nodiscard]] const std::string& notice() const;
    /// A line of text at their foot, for example a contact.
    void setContact(const std::string& contact);
    [[nodiscard]] const std::string& contact() const;

    /// Adds a host name of the server, such as that of a proxy; in any case, without a port. By
    /// default it accepts an address, "localhost", the machine's name with or without its domain,
    /// that name with ".local", and the host given to open(). A request for any other host gets
    /// 421, so that no page elsewhere can read this server by making its own name resolve to this
    /// machine (DNS rebinding).
    void addHostName(const std::string& name);

    /// Requires this token in every request; empty, the default: none. A browser is given it once,
    /// in an address with the parameter "token", and keeps it in a cookie; other programs send the
    /// header "Authorization: Bearer TOKEN". Others get 401.
    void setToken(const std::string& token);

    void setLimits(const Limits& limits);
    [[nodiscard]] const Limits& limits() const;

    /// Number of latest requests kept for the log page, by default 0; at most 10,000.
    void setLogSize(std::size_t size);
    [[nodiscard]] std::size_t logSize() const;
    /// A page of the latest requests, newest first. For a WebPageObject<WebServer>.
    void createLogPage(const ProtocolHTTP::Request& request, ProtocolHTTP::Reply& reply);

    /// Makes a page in the style of the server's own: a header with the name, `title` as heading
    /// and title, `content` as HTML, and a footer. Escapes `title`.
    [[nodiscard]] std::string
    createFrame(const std::string& title, const std::string& content) const;

    /// Listens; an open server is closed first. `host`: the name or IPv4 address of an interface,
    /// "0.0.0.0" for all of them. An empty one admits only clients of this machine, under any of
    /// its names and addresses, because the pages show internals to anyone who can reach them.
    /// `port`: 0 lets the system choose. On failure throws IOException and is closed. A `host` that
    /// is a name is resolved, which may block.
    void open(const std::string& host, std::uint16_t port);
    /// Closes all connections at once; unsent data is lost. Further calls do nothing.
    void close();
    [[nodiscard]] bool isOpen() const;
    /// The port listened to; 0 when closed.
    [[nodiscard]] std::uint16_t port() const;

    /// The loop that knows when a client has something: one of its own, unless it is given one to
    /// share. Null before that and open().
    [[nodiscard]] std::shared_ptr<Loop> loop() const;
    void setLoop(std::shared_ptr<Loop> loop);

    /// The multicast group for hosts that announce the server; the server itself does not announce.
    [[nodiscard]] Multicast& multicast() { return multicast_; }
    [[nodiscard]] const Multicast& multicast() const { return multicast_; }

    [[nodiscard]] Counters counters() const;
    void setDiagnostic(Diagnostic diagnostic);

    /// An icon of 16 by 16 pixels, as an .ico file.
    [[nodiscard]] static std::string_view icon();

protected:
    WebServer();
    /// Serves pending work without waiting. Returns false when closed.
    bool serve();
    /// When serve() is due; Loop::kNow if a client has something for it.
    [[nodiscard]] std::chrono::steady_clock::time_point nextServe() const;

private:
    Multicast multicast_;
    std::unique_ptr<detail::WebSite> site_;
    std::unique_ptr<detail::HttpServer> server_;
};

} // namespace Corvid

#pragma once

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
class WebLoop;
class WebSite;
} // namespace detail

/// Serves pages over HTTP/1.1, to status pages' needs: no encryption, no passwords, no files. What
/// drives it is the derived class.
///
/// Confined to one thread. A client that is slow, silent or malformed costs that connection only;
/// when all connections are taken, a new one takes the place of the one that has kept the server
/// waiting longest.
class ORVEL_EXPORT WebServer {
public:
    /// What a client may cost. Changes are for connections that come later.
    struct Limits {
        std::size_t headerBytes = 16U << 10U; ///< request line and headers; beyond it: 431
        std::size_t bodyBytes = 64U << 10U;   ///< of a request; beyond it: 413
        /// For a request to arrive, from the connection or from its first byte on; beyond it: 408,
        /// or an end without words if nothing came. Also how long a client may take nothing of an
        /// answer.
        std::chrono::milliseconds patience{10'000};
        std::size_t connections = 64;
        std::size_t requestsPerConnection = 1'000; ///< the last is answered with an end
        std::size_t replyBytes = 4U << 20U; ///< of a whole body or of a piece; beyond it: 500
    };

    /// A reading of what happened since the server was made.
    struct Counters {
        std::size_t connections = 0;  ///< open now
        std::size_t bytesWaiting = 0; ///< made and not yet given to the system's sockets, now
        std::uint64_t connectionsAccepted = 0;
        std::uint64_t requests = 0; ///< answered, refused ones included
        std::uint64_t refused = 0;  ///< answered with 400 or above
        std::uint64_t dropped = 0;  ///< connections ended by the server, a limit being reached
        std::uint64_t bytesIn = 0;
        std::uint64_t bytesOut = 0;
    };

    /// Takes one line about something that the host should know: a page that failed.
    using Diagnostic = std::function<void(const std::string&)>;

    WebServer(const WebServer&) = delete;
    WebServer& operator=(const WebServer&) = delete;
    /// Closes.
    virtual ~WebServer();

    /// Keeps a copy of the page, by clone(), in place of what was there. `path` begins with a
    /// slash and is compared with the decoded path of requests; false, and nothing changes, if it
    /// does not.
    bool addPage(const std::string& path, const WebPage& page);

    /// Stands above the pages that the server makes itself: errors and the log.
    void setName(const std::string& name);
    [[nodiscard]] const std::string& name() const;
    /// A line of text at the right of the header of those pages, such as who publishes this.
    void setNotice(const std::string& notice);
    [[nodiscard]] const std::string& notice() const;
    /// A line of text at their foot, such as whom to ask.
    void setContact(const std::string& contact);
    [[nodiscard]] const std::string& contact() const;

    /// Another name by which clients may call the server, such as that of a proxy before it; in any
    /// case, without a port. Without it they use an address, "localhost", the machine's name with
    /// or without its domain, that name with ".local", or what open() was given. A request for any
    /// other host is answered with 421, so that no page elsewhere can read this server by making
    /// its own name stand for this machine (DNS rebinding).
    void addHostName(const std::string& name);

    void setLimits(const Limits& limits);
    [[nodiscard]] const Limits& limits() const;

    /// How many of the last requests are kept for the log page, 0 at first; at most 10,000.
    void setLogSize(std::size_t size);
    [[nodiscard]] std::size_t logSize() const;
    /// A page of the last requests, the newest first; with a log size of 0 it says so. For a
    /// WebPageObject<WebServer>.
    void createLogPage(const ProtocolHTTP::Request& request, ProtocolHTTP::Reply& reply);

    /// A page in the style of the server's own, for pages that belong to them: header with the
    /// name, `title` as heading and title, `content` as HTML, footer. `title` is escaped here.
    [[nodiscard]] std::string
    createFrame(const std::string& title, const std::string& content) const;

    /// Listens; an open server closes first. `host`: the name or IPv4 address of an interface,
    /// "0.0.0.0" for all of them. An empty one admits clients of this machine only, by whatever
    /// name or address they call it: the pages show to everyone who reaches them what goes on
    /// here. `port`: 0 lets the system choose. Throws IOException, and is closed then, if that is
    /// impossible. A `host` that is a name is looked up, which may block.
    void open(const std::string& host, std::uint16_t port);
    /// Ends all connections at once; what was not sent is lost. Further calls do nothing.
    void close();
    [[nodiscard]] bool isOpen() const;
    /// The port listened to; 0 when closed.
    [[nodiscard]] std::uint16_t port() const;

    /// Where the server's group is, for hosts that announce the server; the server itself
    /// announces nothing.
    [[nodiscard]] Multicast& multicast() { return multicast_; }
    [[nodiscard]] const Multicast& multicast() const { return multicast_; }

    [[nodiscard]] Counters counters() const;
    void setDiagnostic(Diagnostic diagnostic);

    /// An icon of 16 by 16 pixels, as an .ico file.
    [[nodiscard]] static std::string_view icon();

protected:
    WebServer();
    /// Serves what is pending, without waiting. False when closed.
    bool serve();
    /// Readable when a socket has something for serve(); -1 when closed.
    [[nodiscard]] int pollDescriptor() const;
    /// When serve() is due although no socket has anything for it.
    [[nodiscard]] std::chrono::steady_clock::time_point nextServe() const;

private:
    Multicast multicast_;
    std::unique_ptr<detail::WebSite> site_;
    std::unique_ptr<detail::WebLoop> loop_;
};

} // namespace Corvid

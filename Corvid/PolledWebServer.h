#pragma once

#include <Corvid/WebServer.h>

#include <chrono>

#include <orvel_export.h>

namespace Corvid {

/// A web server without a thread: it makes progress inside update() only, on the caller's thread,
/// so that pages can read what that thread changes.
class ORVEL_EXPORT PolledWebServer : public WebServer {
public:
    PolledWebServer();

    /// Accepts, reads, answers and sends what can be without waiting. With nothing pending it asks
    /// the system once. It answers a few requests and gives a bounded number of bytes to each
    /// connection; what is left waits for the next call, so call it often (once a frame). False,
    /// and nothing happens, when closed, and when called by a page.
    bool update();

    /// For loops that wait for several things at once: a descriptor that is readable (poll, epoll)
    /// when a client has something for update(). Owned by the server, new after each open(); -1
    /// when closed.
    [[nodiscard]] int descriptor() const;
    /// When update() is due although descriptor() is not readable: in the past while an answer is
    /// being made, else at the next time limit of a connection; time_point::max() if there is none.
    [[nodiscard]] std::chrono::steady_clock::time_point nextUpdate() const;
};

} // namespace Corvid

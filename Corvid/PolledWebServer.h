#pragma once

#include <Corvid/WebServer.h>

#include <chrono>

#include <orvel_export.h>

namespace Corvid {

/// A web server without a thread: it works only inside update(), on the caller's thread, so pages
/// can read that thread's data.
class ORVEL_EXPORT PolledWebServer : public WebServer {
public:
    PolledWebServer();

    /// Accepts, reads, answers and sends, without waiting. With nothing pending it costs one system
    /// call. It answers a few requests and sends a bounded number of bytes per connection; the rest
    /// waits for the next call, so call it often (once per frame). Returns false, without effect,
    /// if closed or called from a page.
    bool update();

    /// When update() is due, as far as the loop has seen: Loop::kNow if a client has something for
    /// it or an answer is being made, else at the next timeout of a connection; time_point::max()
    /// if there is none. Loop::wait() returns true when it has come.
    [[nodiscard]] std::chrono::steady_clock::time_point nextUpdate() const;
};

} // namespace Corvid

#pragma once

#include <Corvid/MultiCommunicator.h>
#include <Corvid/detail/net/OutgoingStream.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>

#include <mutex>
#include <string>
#include <utility>

namespace Corvid::detail {

/// What connections share and keep alive: the queue of events, what waits to be sent, and the
/// means to wake whoever is inside the queue. wake() is synchronised, and so are the stream and the
/// diagnostics.
class Loop {
public:
    /// Throws std::system_error when the system has no descriptor left.
    Loop();

    boost::asio::io_context io;
    OutgoingStream stream;

    void setDiagnostic(MultiCommunicator::Diagnostic diagnostic);
    /// Tells the host a line.
    void report(MultiCommunicator::Severity severity, const std::string& text) const;

    /// Ends the current wait or the next.
    void wake();
    /// Whether a wake-up has arrived since the last call; for whoever is inside the queue.
    bool takeWoken() { return std::exchange(woken_, false); }
    /// Lets go of the wake-up, so that nothing holds this object any more.
    void stop();

private:
    void listen();

    mutable std::mutex mutex_;
    MultiCommunicator::Diagnostic diagnostic_; // guarded by mutex_
    bool woken_ = false;

    boost::asio::posix::stream_descriptor wakeUp_;
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work_;
};

} // namespace Corvid::detail

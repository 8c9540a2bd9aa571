#pragma once

#include <Orvel/detail/Report.h>

namespace Orvel::detail {

/// Kinds of log lines that peers can cause at any rate.
enum class PeerLine { InvalidEvent, UnknownCommand, ForeignEvent, LostPeer, UsedId, OpenAL };

constexpr unsigned kMaxPeerLines = 1000; // of each kind, in LineLimit::kPeriod

/// Whether another line of a kind may be written; lines that may not are counted. Synchronised.
bool admitPeerLine(PeerLine kind);
/// Reports the number of lines left out in periods that are over, or all of them if `final`. Call
/// it regularly where peers are served. Synchronised.
void reportPeerLinesLeftOut(bool final = false);

} // namespace Orvel::detail

/// ORVEL_REPORT for diagnostics that peers can cause.
#define ORVEL_REPORT_PEER(kind, level, diagnostic, ...)                                            \
    do {                                                                                           \
        if (::Orvel::detail::isReported(::Orvel::Log::Level::level) &&                             \
            ::Orvel::detail::admitPeerLine(::Orvel::detail::PeerLine::kind)) {                     \
            ORVEL_REPORT(level, diagnostic, __VA_ARGS__);                                          \
        }                                                                                          \
    } while (false)

#pragma once

#include "process/Output.h"

#include <Corvid/detail/net/LineLimit.h>

#include <string>
#include <utility>

namespace OrvelTool {

/// Messages about peers, limited to kMaxPeerReports in 10 s; the rest is counted. Confined to
/// one thread at a time.
class PeerReports {
public:
    static constexpr unsigned kMaxPeerReports = 100;

    /// `what` names the subject of the messages, in the plural.
    explicit PeerReports(std::string what) : what_(std::move(what)) {}
    ~PeerReports() { reportLeftOut(true); }
    PeerReports(const PeerReports&) = delete;

    void report(const std::string& message) {
        if (limit_.admit()) {
            OrvelTool::report(message);
        }
    }
    /// Reports the number of messages left out, after 10 s or if `final`. Call it regularly.
    void reportLeftOut(bool final = false) {
        if (const auto count = limit_.takeLeftOut(final); count != 0) {
            OrvelTool::report(
                std::to_string(count) + " more messages about " + what_ + " were left out");
        }
    }

private:
    std::string what_;
    Corvid::detail::LineLimit limit_{kMaxPeerReports};
};

} // namespace OrvelTool

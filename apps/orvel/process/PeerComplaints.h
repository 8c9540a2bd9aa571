#pragma once

#include "process/Complaint.h"

#include <Corvid/detail/net/LineLimit.h>

#include <string>
#include <utility>

namespace OrvelTool {

/// Messages about peers, limited to kMaxPeerComplaints in 10 s; the rest is counted. Confined to
/// one thread at a time.
class PeerComplaints {
public:
    static constexpr unsigned kMaxPeerComplaints = 100;

    /// `what` names the subject of the messages, in the plural.
    explicit PeerComplaints(std::string what) : what_(std::move(what)) {}
    ~PeerComplaints() { reportLeftOut(true); }
    PeerComplaints(const PeerComplaints&) = delete;

    void complain(const std::string& message) {
        if (limit_.admit()) {
            OrvelTool::complain(message);
        }
    }
    /// Reports the number of messages left out, after 10 s or if `final`. Call it regularly.
    void reportLeftOut(bool final = false) {
        if (const auto count = limit_.takeLeftOut(final); count != 0) {
            OrvelTool::complain(
                std::to_string(count) + " more messages about " + what_ + " were left out");
        }
    }

private:
    std::string what_;
    Corvid::detail::LineLimit limit_{kMaxPeerComplaints};
};

} // namespace OrvelTool

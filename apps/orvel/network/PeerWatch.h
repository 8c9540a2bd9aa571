#pragma once

#include "process/PeerReports.h"

#include <Corvid/MultiCommunicator.h>

#include <map>
#include <string>
#include <vector>

namespace OrvelTool {

/// Reports on standard error which peers connect and disconnect, within the limit of
/// PeerReports. The peers must outlive it. Confined to one thread at a time.
class PeerWatch {
public:
    /// `what` names the kind of peer: "server" or "client".
    PeerWatch(const Corvid::MultiCommunicator& peers, std::string what);

    /// Reports the changes since the last call. Returns the names ("address:port") of the peers
    /// that have disconnected.
    std::vector<std::string> look();

    /// Whether the last look() found new peers.
    [[nodiscard]] bool someCame() const noexcept { return someCame_; }
    [[nodiscard]] std::size_t count() const noexcept { return known_.size(); }

private:
    const Corvid::MultiCommunicator& peers_;
    std::string what_;
    PeerReports reports_;
    std::map<std::string, short> known_; // ids by name
    bool someCame_ = false;
};

} // namespace OrvelTool

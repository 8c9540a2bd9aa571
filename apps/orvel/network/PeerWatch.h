#pragma once

#include "process/PeerComplaints.h"

#include <Corvid/MultiCommunicator.h>

#include <map>
#include <string>
#include <vector>

namespace OrvelTool {

/// Tells the user, on standard error, which peers come and go, within the limit of
/// PeerComplaints. The peers must outlive it. Confined to one thread at a time.
class PeerWatch {
public:
    /// `what` the peers are: "server" or "client".
    PeerWatch(const Corvid::MultiCommunicator& peers, std::string what);

    /// Looks who is there now and tells what has changed since the last call. Gives the names
    /// ("address:port") of those that are gone.
    std::vector<std::string> look();

    /// Whether the last look() found new ones.
    [[nodiscard]] bool someCame() const noexcept { return someCame_; }
    [[nodiscard]] std::size_t count() const noexcept { return known_.size(); }

private:
    const Corvid::MultiCommunicator& peers_;
    std::string what_;
    PeerComplaints complaints_;
    std::map<std::string, short> known_; // ids by name
    bool someCame_ = false;
};

} // namespace OrvelTool

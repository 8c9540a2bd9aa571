#include "network/PeerWatch.h"

#include <algorithm>
#include <utility>

namespace OrvelTool {

PeerWatch::PeerWatch(const Corvid::MultiCommunicator& peers, std::string what)
    : peers_(peers), what_(std::move(what)), reports_(what_ + "s") {}

std::vector<std::string> PeerWatch::look() {
    const auto counters = peers_.counters();
    const auto describe = [this](const std::string& peer, short id) {
        return what_ + " " + peer + (id == 0 ? "" : ", id " + std::to_string(id) + ",");
    };
    std::map<std::string, short> now;
    for (const auto& connection : counters.connections) {
        if (!connection.lost) {
            now[connection.peer] = connection.peerId;
        }
    }
    std::vector<std::string> gone;
    for (const auto& [peer, id] : known_) {
        if (now.contains(peer)) {
            continue;
        }
        const auto& drops = counters.lastDrops;
        const auto drop =
            std::find_if(drops.rbegin(), drops.rend(), [&name = peer](const auto& other) {
                return other.peer == name;
            });
        reports_.report(
            describe(peer, id) + " is gone" +
            (drop == drops.rend() || drop->reason.empty() ? "" : ": " + drop->reason));
        gone.push_back(peer);
    }
    someCame_ = false;
    for (const auto& [peer, id] : now) {
        if (!known_.contains(peer)) {
            someCame_ = true;
            reports_.report(describe(peer, id) + " is connected");
        }
    }
    known_ = std::move(now);
    reports_.reportLeftOut();
    return gone;
}

} // namespace OrvelTool

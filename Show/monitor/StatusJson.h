#pragma once

#include <Show/monitor/NetworkReading.h>

#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Show {

class MonitorBackend;

/// Writes how a world does as JSON: its back ends, its changes over time, and its network, piece by
/// piece, because there may be many connections; docs/monitor.md has the fields. The back end must
/// outlive it. On the world's thread.
class StatusJson {
public:
    static constexpr std::size_t kConnectionsPerPiece = 100;

    /// `ends`: what readNetwork() gives.
    StatusJson(MonitorBackend& monitor, std::vector<NetworkEnd> ends)
        : monitor_(&monitor),
          ends_(std::make_shared<const std::vector<NetworkEnd>>(std::move(ends))) {}

    /// Appends the next piece; false when it was the last.
    bool operator()(std::string& more);

private:
    MonitorBackend* monitor_;
    std::shared_ptr<const std::vector<NetworkEnd>> ends_; // shared by copies
    bool headWritten_ = false;
    std::size_t end_ = 0;        // that is being written
    bool begun_ = false;         // that end
    std::size_t connection_ = 0; // of that end
    bool continues_ = false;     // after a value
};

} // namespace Show

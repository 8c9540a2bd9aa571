#pragma once

#include <Show/monitor/NetworkReading.h>

#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Show {

class MonitorBackend;

/// Writes the status of a world as JSON: its back ends, its changes over time, and its network.
/// Works in pieces, because there may be many connections; docs/monitor.md lists the fields. The
/// back end must outlive it. On the world's thread.
class StatusJson {
public:
    static constexpr std::size_t kConnectionsPerPiece = 100;

    /// `ends`: the result of readNetwork().
    StatusJson(MonitorBackend& monitor, std::vector<NetworkEnd> ends)
        : monitor_(&monitor),
          ends_(std::make_shared<const std::vector<NetworkEnd>>(std::move(ends))) {}

    /// Appends the next piece. Returns false if it was the last.
    bool operator()(std::string& more);

private:
    MonitorBackend* monitor_;
    std::shared_ptr<const std::vector<NetworkEnd>> ends_; // shared by copies
    bool headWritten_ = false;
    std::size_t end_ = 0;        // index of the current end
    bool begun_ = false;         // the current end has been started
    std::size_t connection_ = 0; // index within the current end
    bool continues_ = false;     // another value precedes
};

} // namespace Show

#pragma once

#include <string>

namespace Show {

class MonitorBackend;

/// The monitor's metrics in the text format of Prometheus (version 0.0.4); docs/monitor.md lists
/// them. They are sums over connections, because a label per peer would create a new series at each
/// reconnect. On the world's thread.
std::string metricsText(MonitorBackend& monitor);

} // namespace Show

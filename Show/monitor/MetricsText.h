#pragma once

#include <string>

namespace Show {

class MonitorBackend;

/// The monitor's figures in the text format of Prometheus (version 0.0.4); docs/monitor.md lists
/// them. They are sums over connections: a series for each peer would make a new one at each
/// reconnect. On the world's thread.
std::string metricsText(MonitorBackend& monitor);

} // namespace Show

#include <Show/monitor/MonitorHandle.h>

#include <Show/monitor/MonitorBackend.h>

#include <algorithm>
#include <utility>

namespace Show {

MonitorHandle::MonitorHandle(
    Orvel::World& world, std::string address, std::optional<std::uint16_t> port,
    const std::vector<std::string>& hostNames)
    : world_(world), address_(std::move(address)),
      backend_(MonitorBackend::add(world, address_, port, hostNames)) {}

MonitorHandle::~MonitorHandle() {
    delete backend();
}

MonitorBackend* MonitorHandle::backend() const {
    const auto& all = world_.backends();
    return std::find(all.begin(), all.end(), backend_) == all.end() ? nullptr : backend_;
}

bool MonitorHandle::isOpen() const {
    const MonitorBackend* present = backend();
    return present != nullptr && present->isOpen();
}

std::string MonitorHandle::error(const char* name) const {
    return isOpen() ? std::string()
                    : "no " + std::string(name) + " at \"" + address_ +
                          "\"; use an address of this machine and a port that is free";
}

std::string MonitorHandle::url() const {
    return isOpen() ? backend()->url() : std::string();
}

} // namespace Show

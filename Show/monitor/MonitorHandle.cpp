#include <Show/monitor/MonitorHandle.h>

#include <Show/monitor/MonitorBackend.h>

#include <algorithm>

namespace Show {

MonitorHandle::MonitorHandle(Orvel::World& world, const MonitorPage::Settings& settings)
    : world_(world), address_(settings.address),
      backend_(MonitorBackend::add(world, settings.address, settings.port, settings.hostNames)) {}

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

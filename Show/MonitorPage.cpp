#include <Show/MonitorPage.h>

#include <Show/monitor/MonitorBackend.h>
#include <Show/monitor/MonitorHandle.h>

#include <string_view>

namespace Show {

static_assert(
    std::string_view(MonitorBackend::kDefaultPort) == "33790" &&
    MonitorPage::kDefaultPort == 33790);

struct MonitorPage::State {
    MonitorHandle monitor;
};

void MonitorPage::registerKind() {
    // Being called makes the linker keep this library, whose statics register the kind.
    static_cast<void>(&MonitorBackend::_type);
}

MonitorPage::MonitorPage(Orvel::World& world) : MonitorPage(world, Settings()) {}

MonitorPage::MonitorPage(Orvel::World& world, const Settings& settings)
    : state_(new State{{world, settings.address, settings.port, settings.hostNames}}) {}

MonitorPage::~MonitorPage() = default;

bool MonitorPage::isOpen() const {
    return state_->monitor.isOpen();
}

std::string MonitorPage::error() const {
    return state_->monitor.error("monitor");
}

std::string MonitorPage::url() const {
    return state_->monitor.url();
}

} // namespace Show

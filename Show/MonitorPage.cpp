#include <Show/MonitorPage.h>

#include <Show/monitor/MonitorBackend.h>

#include <algorithm>
#include <string_view>

namespace Show {

static_assert(
    std::string_view(MonitorBackend::kDefaultPort) == "33790" &&
    MonitorPage::kDefaultPort == 33790);

struct MonitorPage::State {
    Orvel::World& world;
    std::string address;
    MonitorBackend* backend;

    /// The back end, unless the world's owner has deleted it.
    [[nodiscard]] MonitorBackend* get() const {
        const auto& all = world.backends();
        return std::find(all.begin(), all.end(), backend) == all.end() ? nullptr : backend;
    }
};

void MonitorPage::registerKind() {
    // Being called makes the linker keep this library, whose statics register the kind.
    static_cast<void>(&MonitorBackend::_type);
}

MonitorPage::MonitorPage(Orvel::World& world) : MonitorPage(world, Settings()) {}

MonitorPage::MonitorPage(Orvel::World& world, const Settings& settings)
    : state_(new State{world, settings.address, nullptr}) {
    state_->backend =
        MonitorBackend::add(world, settings.address, settings.port, settings.hostNames);
}

MonitorPage::~MonitorPage() {
    delete state_->get();
}

bool MonitorPage::isOpen() const {
    const MonitorBackend* backend = state_->get();
    return backend != nullptr && backend->isOpen();
}

std::string MonitorPage::error() const {
    return isOpen() ? std::string()
                    : "no monitor at \"" + state_->address +
                          "\"; use an address of this machine and "
                          "a port that is free";
}

std::string MonitorPage::url() const {
    const MonitorBackend* backend = state_->get();
    return backend == nullptr ? std::string() : backend->url();
}

} // namespace Show

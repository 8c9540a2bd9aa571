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
    std::string params = "address='" + settings.address + "'";
    if (settings.port) {
        params += " port=" + std::to_string(*settings.port);
    }
    std::string names;
    for (const std::string& name : settings.hostNames) {
        names += (names.empty() ? "" : ",") + name;
    }
    if (!names.empty()) {
        params += " names='" + names + "'";
    }
    if ((settings.address + names).find('\'') != std::string::npos) {
        return; // neither an address nor a name, and it would end the parameter
    }
    state_->backend = dynamic_cast<MonitorBackend*>(world.addBackend("monitor", params.c_str()));
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

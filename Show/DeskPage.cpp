#include <Show/DeskPage.h>

#include <Show/desk/Desk.h>
#include <Show/desk/DeskRequests.h>
#include <Show/monitor/MonitorBackend.h>

#include <algorithm>

namespace Show {

struct DeskPage::State {
    Orvel::World& world;
    std::string address;
    Desk desk;
    std::shared_ptr<DeskAccess> access;
    MonitorBackend* backend;

    /// The back end, unless the world's owner has deleted it.
    [[nodiscard]] MonitorBackend* get() const {
        const auto& all = world.backends();
        return std::find(all.begin(), all.end(), backend) == all.end() ? nullptr : backend;
    }
};

DeskPage::DeskPage(
    Orvel::World& world, Playback& playback, const ShowFile& file,
    const MonitorPage::Settings& settings)
    : state_(new State{
          world, settings.address, Desk(world, playback, file), nullptr,
          MonitorBackend::add(world, settings.address, settings.port, settings.hostNames)}) {
    state_->access = std::make_shared<DeskAccess>(state_->desk);
    if (state_->backend != nullptr) {
        state_->backend->showDesk();
        state_->backend->server().addPage("/api/desk", DeskRequests(state_->access));
    }
}

DeskPage::~DeskPage() {
    delete state_->get();
}

bool DeskPage::isOpen() const {
    const MonitorBackend* backend = state_->get();
    return backend != nullptr && backend->isOpen();
}

std::string DeskPage::error() const {
    return isOpen() ? std::string()
                    : "no desk at \"" + state_->address +
                          "\"; use an address of this machine and a port that is free";
}

std::string DeskPage::url() const {
    return isOpen() ? state_->get()->url() + "#token=" + state_->access->token : std::string();
}

} // namespace Show

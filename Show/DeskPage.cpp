#include <Show/DeskPage.h>

#include <Show/desk/Desk.h>
#include <Show/desk/DeskPicture.h>
#include <Show/desk/DeskRequests.h>
#include <Show/monitor/MonitorBackend.h>
#include <Show/monitor/MonitorHandle.h>

namespace Show {

struct DeskPage::State {
    Desk desk;
    std::shared_ptr<DeskAccess> access;
    MonitorHandle monitor;
};

DeskPage::DeskPage(
    Orvel::World& world, Playback& playback, const ShowFile& file,
    const MonitorPage::Settings& settings)
    : state_(new State{
          Desk(world, playback, file),
          nullptr,
          {world, settings.address, settings.port, settings.hostNames}}) {
    state_->access = std::make_shared<DeskAccess>(state_->desk);
    if (MonitorBackend* backend = state_->monitor.backend()) {
        backend->showDesk();
        backend->server().addPage("/api/desk", DeskRequests(state_->access));
        backend->server().addPage("/api/desk/picture", DeskPicture(file, playback.transport()));
    }
}

DeskPage::~DeskPage() = default;

bool DeskPage::isOpen() const {
    return state_->monitor.isOpen();
}

std::string DeskPage::error() const {
    return state_->monitor.error("desk");
}

std::string DeskPage::url() const {
    return isOpen() ? state_->monitor.url() + "#token=" + state_->access->token : std::string();
}

} // namespace Show

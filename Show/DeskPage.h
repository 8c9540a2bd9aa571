#pragma once

#include <Show/MonitorPage.h>
#include <Show/Playback.h>
#include <Show/ShowFile.h>

#include <Orvel/World.h>

#include <memory>
#include <string>

#include <orvel_show_export.h>

namespace Show {

/// The monitor's page with controls: browsers move the parts of a scene, set gains, mute, play and
/// save while it plays (docs/desk.md). Reading is as with MonitorPage. Changing needs a random
/// token, which is part of url(); show that to the user only.
///
/// The world and the playback must outlive it, and the file must be the one that is played.
/// Deleting the world's back ends closes the page too. Confined to the world's thread. Throws
/// std::exception if the system gives no random numbers.
class ORVEL_SHOW_EXPORT DeskPage {
public:
    /// Opens the page. Check isOpen() afterwards. It shows the names of sounds that are set later.
    DeskPage(
        Orvel::World& world, Playback& playback, const ShowFile& file,
        const MonitorPage::Settings& settings);
    DeskPage(const DeskPage&) = delete;
    DeskPage& operator=(const DeskPage&) = delete;
    ~DeskPage();

    /// Whether it is open. If not, error() reports it, and the log has the reason.
    [[nodiscard]] bool isOpen() const;
    [[nodiscard]] std::string error() const;
    /// Its URL with the token, such as "http://127.0.0.1:33790/#token=0123..."; empty if it is not
    /// open.
    [[nodiscard]] std::string url() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace Show

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
/// save while it plays, and go from cue to cue (docs/desk.md). Everything is as with MonitorPage,
/// except that changing needs a random token, which is part of url(); show that to the user only.
///
/// The playback must outlive it as well, and the file must be the one that is played. Cues, jumps
/// and pauses take effect in the next Playback::advance(). Throws std::exception if the system
/// gives no random numbers.
class ORVEL_SHOW_EXPORT DeskPage {
public:
    DeskPage(
        Orvel::World& world, Playback& playback, const ShowFile& file,
        const MonitorPage::Settings& settings);
    DeskPage(const DeskPage&) = delete;
    DeskPage& operator=(const DeskPage&) = delete;
    ~DeskPage();

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

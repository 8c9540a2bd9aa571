#include "commands/PlayCommand.h"

#include "capture/Capture.h"
#include "network/RemoteServers.h"
#include "player/ScenePlayer.h"
#include "process/LibraryMessages.h"
#include "process/StopSignals.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <memory>
#include <thread>

namespace OrvelTool {

namespace {

/// A device plays what it was given a moment later; a scene is over when that is heard.
constexpr double kDeviceDelay = 0.1;
/// How long messages from elsewhere may hold up the scene's own movement.
constexpr std::chrono::milliseconds kLongestOsc{4};

} // namespace

PlayCommand::PlayCommand(CLI::App& parent) {
    declare(
        parent, "play",
        "Play a scene or a capture in real time, until it ends or Ctrl-C is pressed");
    declareScene("The scene file (JSON), or a capture of orvel record");
    backends_.declare(
        app(), "What plays it, with the parameters of that kind; may be given several times "
               "(default: \"default\", this machine's sound device; \"orvel kinds\" lists the "
               "kinds)");
    app()
        .add_option(
            "--server", servers_,
            "With the kind \"client\": a server that multicast does not find; may be given several "
            "times")
        ->type_name("HOST:PORT")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->check(CLI::Validator(checkHostAndPort, "", "server"));
    app()
        .add_option(
            "--only", only_,
            "With the kind \"client\": of the servers that are found, drive only those with this "
            "id or name (serve --id); may be given several times")
        ->type_name("ID")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app().add_flag(
        "--wait", wait_,
        "With the kind \"client\": where another player drives, wait until it leaves, and go on");
    network_.declareInterface(app());
    network_.declareLimits(app(), true);
    monitor_.declare(app());
    osc_.declare(app());
    declareSeconds(
        "How long to play, in seconds (default: until the scene ends; with --osc until Ctrl-C)");
    declareFetch();
    app().add_flag("--loop", loop_, "Begin again when the scene ends");
    app().footer("Parameters are key=value, separated by blanks, such as\n"
                 "  orvel play scene.json --backend 'openal:labels=\"front, back\"'\n"
                 "Without a sound device, hear a scene through a file: orvel render SCENE OUT.wav\n"
                 "On other machines: orvel serve --scene SCENE there, and --backend client here.");
}

bool PlayCommand::choose(std::vector<BackendOption::Choice>& choices) const {
    if (!backends_.read(
            choices, {{"loopback", "\"loopback\" plays into files only: orvel render " +
                                       scenePath_ + " OUT.wav"}})) {
        return false;
    }
    bool remote = false;
    for (BackendOption::Choice& choice : choices) {
        if (choice.kind == "client") {
            // The tool changes its world on one thread only, so servers are served on it as well.
            choice.params = "newestOnly=yes " + choice.params + " deferred=yes followEnabled=yes";
            if (!only_.empty()) {
                std::string ids;
                for (const std::string& id : only_) {
                    ids +=
                        (ids.empty() ? "" : ",") + std::to_string(Orvel::Server::idOf(id.c_str()));
                }
                choice.params += " only=\"" + ids + "\"";
            }
            remote = true;
        }
    }
    if (!remote && (!servers_.empty() || !only_.empty() || wait_ || network_.interfacesGiven())) {
        complain("--server, --only, --wait and --interface are for servers on the network; add "
                 "--backend client");
        return false;
    }
    if (choices.empty()) {
        choices.push_back({"default", ""});
    }
    monitor_.addTo(choices);
    return true;
}

int PlayCommand::run() {
    std::vector<BackendOption::Choice> choices;
    if (!choose(choices)) {
        return kWrongUse;
    }
    const auto what = loadPlayable(scenePath_, fetch_);
    if (what == nullptr) {
        return kFailure;
    }
    network_.restrictInterfaces();
    LibraryMessages messages(verbose_);
    const auto made = what->makeStage(messages);
    Stage& stage = *made;
    if (!addBackends(
            stage, messages, choices,
            "to hear the scene through a file: orvel render " + scenePath_ + " OUT.wav",
            verbose_) ||
        !announceMonitors(stage)) {
        return kFailure;
    }
    network_.limitClients(stage);
    if (backends_.web() && !addWeb(stage, messages)) {
        return kFailure;
    }
    std::unique_ptr<OscServer> osc;
    if (osc_.given()) {
        osc = osc_.open(stage, [&stage](Orvel::CommandEvent& event) {
            Orvel::Server::applyEvent(stage, &event);
        });
        if (osc == nullptr) {
            return kFailure;
        }
    }
    const bool alone = play(*what, stage, osc.get());
    if (osc != nullptr) {
        osc->finish();
    }
    return alone && messages.lost() == 0 && !what->incomplete() ? kSuccess : kFailure;
}

bool PlayCommand::play(const Playable& what, Stage& stage, OscServer* osc) {
    using Clock = std::chrono::steady_clock;
    using Seconds = std::chrono::duration<double>;
    RemoteServers servers(stage, servers_, wait_);
    const auto made = what.makePlayer(stage);
    Player& player = *made;
    // Fetching may take long; until there is something to end in order, Ctrl-C just ends all.
    player.start();
    const StopSignals signals;
    auto begin = Clock::now();
    const auto limit = seconds_ > 0.0
                           ? begin + std::chrono::duration_cast<Clock::duration>(Seconds(seconds_))
                           : Clock::time_point::max();
    stage.tell();
    // Who drives a scene from elsewhere also says when it is over.
    const bool endless = osc != nullptr && !loop_;
    const auto endOf = [&] {
        return endless ? std::numeric_limits<double>::infinity() : player.end() + kDeviceDelay;
    };
    double end = endOf();
    auto last = begin;
    while (!StopSignals::came() && !servers.isGivenUp() && Clock::now() < limit) {
        const auto moment = Clock::now();
        begin += servers.isHeld() ? moment - last : Clock::duration::zero();
        last = moment;
        const double now = Seconds(moment - begin).count();
        if (now >= end) {
            if (!loop_) {
                break;
            }
            player.start();
            begin = Clock::now();
            end = endOf();
            continue;
        }
        player.advance(now);
        if (osc != nullptr) {
            osc->serve(kLongestOsc);
        }
        stage.update();
        servers.look();
        stage.tell();
        if (stage.takeNewDurations()) {
            end = endOf();
        }
        const double tick = (std::floor(now / ScenePlayer::kTick) + 1.0) * ScenePlayer::kTick;
        const double next = std::min({tick, player.nextChange(now), end});
        const auto wake = begin + std::chrono::duration_cast<Clock::duration>(Seconds(next));
        if (osc != nullptr) {
            osc->wait(std::min(wake, limit));
        } else {
            std::this_thread::sleep_until(std::min(wake, limit));
        }
    }
    return !servers.wasHindered();
}

} // namespace OrvelTool

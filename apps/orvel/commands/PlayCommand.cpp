#include "commands/PlayCommand.h"

#include "commands/Operator.h"
#include "commands/PlayStatus.h"
#include "network/RemoteServers.h"
#include "process/Diagnostics.h"
#include "process/ShortPeriods.h"
#include "process/StopSignals.h"

#include <Orvel/ClientBackend.h>
#include <Orvel/OwningWorld.h>
#include <Orvel/Server.h>
#include <Orvel/VoicesBackend.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <memory>
#include <optional>
#include <thread>
#include <unistd.h>
#include <utility>

namespace OrvelTool {

namespace {

/// Output latency of a device in seconds: the scene ends this much later.
constexpr double kDeviceDelay = 0.1;
/// How often sounds that are being loaded are looked at.
constexpr std::chrono::milliseconds kLoadingPoll{5};
constexpr std::chrono::seconds kStatusPeriod{1};
/// Minimum length of a loop's round, in seconds, as a scene may be empty.
constexpr double kShortestRound = 0.01;

/// Whether all that plays reads long files itself; a recording does.
bool readFiles(const std::vector<BackendOption::Choice>& choices) {
    return std::ranges::all_of(choices, [](const BackendOption::Choice& choice) {
        return choice.kind == "voices" || choice.kind == "monitor" || choice.kind == "log" ||
               choice.kind == "silent";
    });
}

/// Whether a back end is loading a sound whose length is not known yet.
bool isLoading(const Orvel::World& world) {
    return std::ranges::any_of(world.backends(), [](const Orvel::Backend* backend) {
        const auto* voices = dynamic_cast<const Orvel::VoicesBackend*>(backend);
        const auto* delayed = dynamic_cast<const Show::DelayedBackend*>(backend);
        return (voices != nullptr && voices->loadingSounds() > 0) ||
               (delayed != nullptr && isLoading(delayed->later()));
    });
}

/// The back end whose servers have the largest latency; null if none has one.
const Orvel::ClientBackend* latestOf(const Orvel::World& world) {
    const Orvel::ClientBackend* latest = nullptr;
    std::chrono::nanoseconds latency{};
    for (const Orvel::ClientBackend* client : clientsOf(world)) {
        if (client->latency() > latency) {
            latency = client->latency();
            latest = client;
        }
    }
    return latest;
}

/// Whether the scene was played on the servers that were asked for, if any.
bool wasServed(const RemoteServers& servers) {
    if (servers.wasAlone()) {
        report("no server was found, so none has played; run \"orvel servers\" to find out why");
    }
    return !servers.wasHindered() && !servers.wasAlone();
}

/// A parameter's value in quotes.
std::string quoted(const std::string& text) {
    std::string result = "\"";
    for (const char c : text) {
        result.append(c == '"' || c == '\\' ? "\\" : "") += c;
    }
    return result + '"';
}

} // namespace

PlayCommand::PlayCommand(CLI::App& parent) {
    declare(
        parent, "play",
        "Play a scene or a capture in real time, until it ends or Ctrl-C is pressed");
    declareScene("The scene file (JSON), or a capture of orvel record");
    backends_.declare(
        app(),
        "Back end to play through, with its parameters; may be given several times (default: "
        "\"voices\", this machine's sound device, unless --render is given; \"orvel kinds\" lists "
        "the kinds)");
    app()
        .add_option(
            "--server", servers_,
            "With the kind \"client\": connect to this server, which multicast does not find; may "
            "be given several times")
        ->type_name("HOST:PORT")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->check(CLI::Validator(checkHostAndPort, "", "server"));
    app()
        .add_option(
            "--only", only_,
            "With the kind \"client\": of the servers found, drive only those with this id or name "
            "(serve --id); may be given several times")
        ->type_name("ID")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app().add_flag(
        "--wait", wait_,
        "With the kind \"client\": while another player drives a server, wait for it to leave, "
        "then continue");
    network_.declareInterface(app());
    network_.declareKey(app(), false);
    network_.declareOpen(app(), "With --osc: take it from other machines too, unprotected");
    network_.declareLimits(app(), true);
    render_.declare(app());
    monitor_.declare(app());
    desk_.declare(app());
    osc_.declare(app());
    declareFrom(
        "Start at this second of the scene; sounds that are already playing start part-way");
    declareSeconds("How long to play, in seconds (default: until the scene ends; with --osc or "
                   "--desk until Ctrl-C)");
    declareFetch();
    app().add_flag(
        "--status", status_,
        "Print every second how each emitter is heard, with its level at the listener");
    CLI::Option* loop = app().add_flag("--loop", loop_, "Start again when the scene ends");
    app()
        .add_flag(
            "--armed", armed_,
            "Load the scene and wait: for keys at the terminal (space: the next cue; a name and "
            "Enter: that cue; Enter: pause; q: quit) or for --osc; stop at the end of each cue")
        ->excludes(loop)
        ->excludes(app().get_option("--from"));
    app().footer(
        "Parameters are key=value, separated by spaces, such as\n"
        "  orvel play scene.json --backend 'openal:labels=\"front, back\"'\n"
        "Without a sound device, render the scene to a file: orvel render SCENE OUT.wav\nTo play "
        "on other machines, run orvel serve --scene SCENE there and use --backend client here.");
}

bool PlayCommand::choose(std::vector<BackendOption::Choice>& choices) {
    if (!backends_.read(
            choices, {{"loopback", "\"loopback\" only renders to files: orvel render " +
                                       scenePath_ + " OUT.wav"}})) {
        return false;
    }
    bool remote = false;
    for (BackendOption::Choice& choice : choices) {
        if (choice.kind == "client") {
            // The tool changes its world on one thread only, so that thread serves the connections
            // too.
            latencyGiven_ = latencyGiven_ || choice.params.find("latency") != std::string::npos;
            choice.params =
                "newestOnly=yes latency=40 " + choice.params + " deferred=yes followEnabled=yes";
            if (!only_.empty()) {
                std::string ids;
                for (const std::string& id : only_) {
                    ids +=
                        (ids.empty() ? "" : ",") + std::to_string(Orvel::Server::idOf(id.c_str()));
                }
                choice.params += " only=\"" + ids + "\"";
            }
            if (!network_.key().empty()) {
                choice.params = "key=" + quoted(network_.key()) + ' ' + choice.params;
            }
            remote = true;
        }
    }
    if (!remote && (!servers_.empty() || !only_.empty() || wait_ || network_.interfacesGiven())) {
        report("--server, --only, --wait and --interface apply to servers on the network; add "
               "--backend client");
        return false;
    }
    if (choices.empty() && !render_.given()) {
        choices.push_back({"voices", ""});
    }
    monitor_.addTo(choices);
    return true;
}

Orvel::World& PlayCommand::worldForSound(Orvel::World& world) {
    const Orvel::ClientBackend* client = latestOf(world);
    if (client == nullptr) {
        return world;
    }
    later_.push_back(new Show::DelayedBackend(world, *client)); // the world deletes it
    world.initBackendState(*later_.back());
    return later_.back()->later();
}

bool PlayCommand::addFrames(
    const std::vector<BackendOption::Choice>& choices, const Show::ShowFile& file,
    Orvel::World& world, std::optional<Show::FrameSource>& frames, Diagnostics& diagnostics) {
    return !render_.given() || render_.open(
                                   frames, worldForSound(world), file.emitters(), choices,
                                   file.voicesParams(), diagnostics);
}

bool PlayCommand::addAll(
    const std::vector<BackendOption::Choice>& choices, Show::Playback& playback,
    Orvel::World& world, Diagnostics& diagnostics) {
    const std::string advice =
        "to render the scene to a file: orvel render " + scenePath_ + " OUT.wav";
    const auto add = [&](Orvel::World& to, const std::vector<BackendOption::Choice>& some) {
        return addBackends(to, diagnostics, some, advice, verbose_);
    };
    // Monitors are added first, since they learn the names of sounds as these are set. With --from
    // the others are added once the scene has reached its time, so that nothing is heard before.
    std::vector<BackendOption::Choice> monitors;
    std::vector<BackendOption::Choice> others;
    std::vector<BackendOption::Choice> here; // beside servers
    const bool remote = std::ranges::any_of(
        choices, [](const BackendOption::Choice& choice) { return choice.kind == "client"; });
    for (const BackendOption::Choice& choice : choices) {
        (from_ > 0.0 && choice.kind == "monitor" ? monitors
         : remote && opensDevice(choice.kind)    ? here
                                                 : others)
            .push_back(choice);
    }
    bool works = choices.empty() || (monitors.empty() ? false : add(world, monitors));
    if (from_ > 0.0) {
        playback.start(from_);
        works = others.empty() ? works || render_.given() : add(world, others);
    } else if (!others.empty()) {
        works = add(world, others);
    }
    for (const BackendOption::Choice& choice : here) {
        works = add(worldForSound(world), {choice}) || works;
    }
    return works;
}

int PlayCommand::run() {
    std::vector<BackendOption::Choice> choices;
    if (!network_.checkKey()) {
        return kFailure;
    }
    if (!osc_.check(network_.isOpen()) || !choose(choices)) {
        return kWrongUse;
    }
    if (armed_ && !osc_.given() && !desk_.given() && isatty(STDIN_FILENO) != 1) {
        report("--armed: nothing can start the scene; add --desk PORT or --osc PORT, or use a "
               "terminal");
        return kWrongUse;
    }
    const Show::ShowFile file = load();
    if (!file.isGood()) {
        return kFailure;
    }
    OutputGuard guard;
    guard.reads(scenePath_, file.isCapture() ? "the input capture" : "the input scene");
    guard.readsSounds(file);
    if (!render_.accept(guard)) {
        return kWrongUse;
    }
    setUsualParams(choices, file.voicesParams());
    network_.restrictInterfaces();
    Diagnostics diagnostics(verbose_, file);
    Orvel::OwningWorld<> world;
    std::optional<ShortPeriods> shortPeriods;
    if (loop_) {
        shortPeriods.emplace();
    }
    Show::Playback playback(world, file, from_ > 0.0 && readFiles(choices));
    if (!playback.isGood()) {
        report(playback.error());
        return kFailure;
    }
    std::unique_ptr<Show::DeskPage> desk;
    if (desk_.given()) {
        desk = desk_.open(world, playback, file);
        if (desk == nullptr) {
            return kFailure;
        }
    }
    std::optional<Show::FrameSource> frames;
    if (!addAll(choices, playback, world, diagnostics) ||
        !addFrames(choices, file, world, frames, diagnostics) ||
        !announceMonitors(world, desk ? desk->url() : std::string())) {
        return kFailure;
    }
    network_.limitClients(world);
    if (from_ > 0.0 && from_ >= playback.end()) {
        report(tooLate(playback.end()));
        return kWrongUse;
    }
    if (backends_.web() && !addWeb(world, diagnostics)) {
        return kFailure;
    }
    const auto loop = std::make_shared<Corvid::Loop>();
    std::unique_ptr<Show::OscInput> osc;
    Announcement announcement;
    if (osc_.given()) {
        osc = osc_.open(world, loop);
        if (osc == nullptr) {
            return kFailure;
        }
        osc->control(&playback);
        osc_.announce(announcement, network_, *osc);
    }
    const bool good =
        play(playback, world, frames ? &*frames : nullptr, osc.get(), loop, diagnostics);
    if (osc != nullptr) {
        osc->finish();
    }
    return good && diagnostics.lost() == 0 && file.isComplete() ? kSuccess : kFailure;
}

bool PlayCommand::play(
    Show::Playback& playback, Orvel::World& world, Show::FrameSource* frames, Show::OscInput* osc,
    const std::shared_ptr<Corvid::Loop>& loop, Diagnostics& diagnostics) {
    using Clock = std::chrono::steady_clock;
    using Seconds = std::chrono::duration<double>;
    RemoteServers servers(world, servers_, wait_);
    std::optional<StopSignals> signals(std::in_place); // the servers are left in order
    if (from_ <= 0.0) {
        servers.waitUntilReady(!latencyGiven_);
    } else if (servers.haveNoLatency()) {
        report("--from: on servers, sounds that are already playing start from their beginning; "
               "with a latency they would not (client:latency=40)");
    }
    if (StopSignals::came()) {
        return wasServed(servers);
    }
    if (armed_) {
        playback.arm();
    } else if (from_ <= 0.0) {
        playback.start();
    }
    if (isLoading(world)) {
        // Fetching may take long. Until it is over, Ctrl-C ends the process at once.
        signals.reset();
        while (isLoading(world)) {
            std::this_thread::sleep_for(kLoadingPoll);
            world.update();
        }
        signals.emplace();
    }
    // Requests are answered at once, not at the next tick.
    for (Corvid::PolledWebServer* server : webServers(world)) {
        server->setLoop(loop);
    }
    Operator user(playback, servers);
    const auto duration = [](double seconds) {
        return std::chrono::duration_cast<Clock::duration>(Seconds(seconds));
    };
    const auto limit =
        seconds_ > 0.0 ? Clock::now() + duration(seconds_) : Clock::time_point::max();
    auto begin = Clock::now() - duration(from_); // of the round, on the playback's clock
    double behind = 0.0;                         // the position in the scene is behind that clock
    diagnostics.report();
    // With OSC, a desk or cues to wait for, the scene has no end of its own.
    const Orvel::ClientBackend* latest = latestOf(world);
    const double latency = latest == nullptr ? 0.0 : Seconds(latest->latency()).count();
    const bool endless = armed_ || ((osc != nullptr || desk_.given()) && !loop_);
    const auto endOf = [&] {
        if (endless) {
            return std::numeric_limits<double>::infinity();
        }
        return loop_ ? std::max(playback.end(), kShortestRound)
                     : playback.end() + kDeviceDelay + latency;
    };
    double end = endOf();
    auto last = Clock::now();
    auto nextStatus = last + kStatusPeriod;
    std::optional<Show::LiveRecording> recording;
    if (frames != nullptr) {
        render_.begin(recording, *frames, last);
        if (!later_.empty()) {
            later_.back()->setRenderTo(
                [&recording](Clock::time_point time) { recording->renderTo(time); });
        }
    }
    bool room = true;
    bool wanted = true;
    while (room && wanted && !StopSignals::came() && !servers.isGivenUp() && Clock::now() < limit) {
        const auto moment = Clock::now();
        for (Show::DelayedBackend* later : later_) {
            later->advance(moment);
        }
        if (recording) {
            room = recording->advance(moment); // the past, before the changes
            render_.look(*recording);
        }
        begin += servers.isHeld() ? moment - last : Clock::duration::zero();
        last = moment;
        const double now = Seconds(moment - begin).count();
        if (now - behind >= end && playback.state() != Show::PlayState::Paused) {
            if (!loop_) {
                break;
            }
            // Computed from the first round's start, so that delays do not add up. Rounds missed
            // while the machine was asleep are skipped.
            begin += duration(behind + end * std::floor((now - behind) / end));
            behind = 0.0;
            playback.start();
            end = endOf();
            continue;
        }
        playback.advance(now);
        if (osc != nullptr) {
            osc->serve();
        }
        wanted = user.serve();
        behind = now - playback.position();
        world.update();
        servers.look();
        if (status_ && moment >= nextStatus) {
            nextStatus = moment + kStatusPeriod;
            writeStatus(world, now);
        }
        diagnostics.report();
        // It grows when the length of a sound becomes known.
        end = isLoading(world) ? std::numeric_limits<double>::infinity() : endOf();
        const double tick = (std::floor(now / Show::Playback::kTick) + 1.0) * Show::Playback::kTick;
        const double next = std::min({tick, playback.nextStep(), end + behind});
        auto wake = std::min(begin + duration(next), limit);
        if (recording) {
            wake = std::min(wake, recording->next());
        }
        for (const Show::DelayedBackend* later : later_) {
            wake = std::min(wake, later->nextDue().value_or(wake));
        }
        loop->wait(wake);
    }
    if (recording) {
        if (!later_.empty()) {
            later_.back()->setRenderTo({});
        }
        recording->finish(std::min(Clock::now(), limit));
        render_.writeLevels(*recording);
        render_.reportEnd(*recording, room);
    }
    reportGaps(world);
    return wasServed(servers) && room;
}

} // namespace OrvelTool

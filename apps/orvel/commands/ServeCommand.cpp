#include "commands/ServeCommand.h"

#include "commands/OutputGuard.h"
#include "network/DiscoveryWatch.h"
#include "network/PeerWatch.h"
#include "process/ServiceManager.h"
#include "process/StopSignals.h"
#include <Show/capture/CaptureWriter.h>
#include <Show/player/Playable.h>
#include <Show/render/LiveRecording.h>
#include <Show/server/AddressRange.h>

#include <Corvid/MultiServer.h>
#include <Corvid/PolledWebServer.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>

namespace OrvelTool {

namespace {

using namespace std::chrono_literals;

constexpr auto kLongestWait = 200ms;  // until a signal is noticed
constexpr auto kLongestServing = 4ms; // before a recording or a signal is handled
constexpr auto kChores = 20ms;        // interval of reports, status and monitors
/// The number of emitters that will play at once is unknown.
constexpr std::size_t kMaxEmitters = 4096;
constexpr const char* kThisMachine = "127.0.0.1";

std::string fixed(double value) {
    std::ostringstream text;
    text.precision(2);
    text << std::fixed << value;
    return text.str();
}

/// The text of a scene file; empty without a path.
std::string sceneText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return path.empty() ? "" : text.str();
}

std::string checkRange(const std::string& text) {
    return Show::AddressRange::parse(text)
               ? ""
               : "expected an IPv4 address, or one with a number of bits from 0 to 32, such as "
                 "192.168.1.0/24, found \"" +
                     text + "\"";
}

} // namespace

ServeCommand::ServeCommand(CLI::App& parent) {
    declare(
        parent, "serve", "Run a sound server, which plays the scenes of clients on other machines");
    declareOptions("(default: \"voices\", this machine's sound device, unless --render is given)");
    app().footer(
        "Clients find the server automatically: orvel play SCENE --backend client\nWithout --key "
        "and --open only this machine can reach it. With --key, clients need a key of the file:\n"
        "orvel play SCENE --backend client --key FILE. With --open, anyone who can reach the port "
        "can\ndrive the server. It supports systemd's readiness notification (Type=notify) and "
        "watchdog.");
}

void ServeCommand::declareOptions(const std::string& playing) {
    app()
        .add_option(
            "--scene", scenePath_,
            "A scene file whose sources clients can play, by id; the rest of the file is not used")
        ->type_name("SCENE");
    backends_.declare(
        app(),
        "Back end to play through, with its parameters; may be given several times " + playing);
    render_.declare(app());
    declareSeconds("How long to serve, in seconds (default: until Ctrl-C, SIGTERM or SIGHUP)");
    network_.declare(app());
    network_.declareLimits(app(), false);
    network_.declareKey(app(), true);
    network_.declareOpen(
        app(), "Let everybody in who can reach this machine, without a key and unprotected; with "
               "--key only Open Sound Control");
    monitor_.declare(app());
    osc_.declare(app());
    wait_.declare(app());
    app()
        .add_option(
            "--hold", hold_,
            "When the player is lost, let its scene go on for so many seconds; if it returns "
            "meanwhile, it changes only what is different (default: 0)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, 86400.0));
    app()
        .add_option(
            "--delay", delay_,
            "Play so many milliseconds later than other servers of the same player, to align "
            "loudspeakers (default: 0)")
        ->type_name("MS")
        ->check(CLI::Range(-10000.0, 10000.0));
    app()
        .add_option(
            "--gain", gain_,
            "Play everything louder by so many decibels, or softer, to align loudspeakers "
            "(default: 0)")
        ->type_name("DB")
        ->check(CLI::Range(-96.0, 24.0));
    app()
        .add_option(
            "--skew", skew_,
            "With --render: let the recording's clock run faster by so many millionths, as that of "
            "a sound card may (default: 0)")
        ->type_name("PPM")
        ->check(CLI::Range(-1000.0, 1000.0));
    app()
        .add_option(
            "--tcp-port", tcpPort_,
            "Listen on this TCP port, for firewalls and for clients that name the server (default: "
            "chosen by the system)")
        ->type_name("N")
        ->check(NetworkOptions::portValidator());
    app()
        .add_option(
            "--allow", allowed_,
            "Accept connections only from this address or network; may be given several times "
            "(default: any address)")
        ->type_name("ADDR[/BITS]")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->check(CLI::Validator(checkRange, "", "allow"));
    app().add_flag(
        "--keep-player", keepPlayer_,
        "Turn other players away while one drives (default: the newest takes over)");
    app()
        .add_option(
            "--id", id_, "Identify the server by this number, or by a name that is hashed to one")
        ->type_name("TEXT");
}

int ServeCommand::run() {
    std::vector<BackendOption::Choice> choices;
    if (!backends_.read(
            choices, {{"loopback", "to write to a file, use --render OUT.wav"},
                      {"client", "a server cannot be a client as well; it would drive itself"}})) {
        return kWrongUse;
    }
    if (choices.empty() && !render_.given() && capturePath_.empty()) {
        choices.push_back({"voices", ""});
    }
    setUsualParams(choices, "voices=" + std::to_string(Show::voicesFor(kMaxEmitters)));
    if (!network_.checkKey()) {
        return kFailure;
    }
    if (!osc_.check(network_.isOpen())) {
        return kWrongUse;
    }
    const bool isLocal = network_.key().empty() && !network_.isOpen();
    if (!wait_.wait(
            {[this] {
                 return network_.chosenInterfaces().empty() ? std::string("a network interface")
                                                            : missingAddress(monitor_.host());
             },
             [this] { return missingAddress(osc_.given() ? osc_.address() : ""); },
             [this] { return Show::ShowFile::missingFile(scenePath_); },
             [&choices] {
                 const bool there = choices.empty() || worksElsewhere([&choices] {
                                        Orvel::World world;
                                        Diagnostics diagnostics(false);
                                        return addBackends(world, diagnostics, choices, "", false);
                                    });
                 return std::string(there ? "" : "a sound device that opens");
             }})) {
        return kSuccess;
    }
    monitor_.addTo(choices);
    const Show::ShowFile file = scenePath_.empty() ? Show::ShowFile() : load();
    if (file.isCapture()) {
        report(scenePath_ + " is a capture; give a scene, whose sources clients can play");
        return kFailure;
    }
    if (!scenePath_.empty() && !file.isGood()) {
        return kFailure;
    }
    const Show::LoadedScene none;
    const Show::LoadedScene& bank = file.isGood() ? *file.playable()->scene() : none;
    if (!checkOutputs(file)) {
        return kWrongUse;
    }
    const std::string text = capturePath_.empty() ? "" : sceneText(scenePath_);
    if (isLocal && network_.excludesThisMachine()) {
        report(
            "--interface: without a key only this machine reaches the server; add --key FILE, or "
            "--open for everybody");
        return kWrongUse;
    }
    network_.restrictInterfaces();
    Diagnostics diagnostics(verbose_, file);
    Show::SoundServer server(bank, tcpPort_, isLocal ? kThisMachine : "");
    diagnostics.report();
    if (server.multiServer().port() == 0) {
        report("cannot serve; see above");
        return kFailure;
    }
    network_.apply(server.multiServer().multicast());
    if (isLocal) {
        server.multiServer().multicast().setInterfaces(
            {Corvid::InetAddress::getByAddress(kThisMachine)});
    } else if (!network_.key().empty() && !server.setKeys(network_.key())) {
        diagnostics.report();
        return kFailure;
    }
    network_.limit(server.multiServer());
    server.setId(id_.c_str());
    server.setKeepPlayer(keepPlayer_);
    server.setGain(static_cast<float>(std::pow(10.0, gain_ / 20.0)));
    server.setHold(std::chrono::duration<double>(hold_));
    server.setTimed(std::chrono::microseconds(std::llround(delay_ * 1000.0)));
    if (!allowed_.empty()) {
        std::vector<Show::AddressRange> ranges;
        for (const std::string& range : allowed_) {
            ranges.push_back(*Show::AddressRange::parse(range)); // validated when parsed
        }
        server.multiServer().setAdmission([ranges](const Corvid::InetAddress& peer) {
            return std::any_of(
                ranges.begin(), ranges.end(),
                [&peer](const Show::AddressRange& range) { return range.contains(peer); });
        });
    }
    if (const auto problems = server.fetch(); !problems.empty()) {
        report(problems);
        return kFailure;
    }
    std::optional<Show::FrameSource> frames;
    if (render_.given() && !render_.open(frames, server, kMaxEmitters, choices, "", diagnostics)) {
        return kFailure;
    }
    if (!choices.empty() &&
        !addBackends(
            server, diagnostics, choices,
            "to write the output to a file: orvel serve --render OUT.wav", verbose_)) {
        return kFailure;
    }
    if (!announceMonitors(server) || (backends_.web() && !addWeb(server, diagnostics))) {
        return kFailure;
    }
    server.fill();
    diagnostics.report();
    if (diagnostics.lost() != 0) {
        return kFailure;
    }

    std::unique_ptr<Show::OscInput> osc;
    if (osc_.given()) {
        osc = osc_.open(server, server.multiServer().loop(), [&server](Orvel::CommandEvent& event) {
            server.apply(event);
        });
        if (osc == nullptr) {
            return kFailure;
        }
    }

    const StopSignals signals;
    std::optional<Show::CaptureWriter> capture;
    if (!capturePath_.empty()) {
        try {
            capture.emplace(
                capturePath_,
                scenePath_.empty() ? "" : std::filesystem::absolute(scenePath_).string(), text,
                maxCaptureBytes_, [&capture](const std::string& message) {
                    report(message + (capture->full() ? " (--max-size)" : ""));
                });
        } catch (const Show::CaptureWriter::SizeLimit& fault) {
            report(std::string(fault.what()) + " (--max-size)");
            return kFailure;
        }
        server.setTap(&*capture);
    }
    const auto begin = Clock::now();
    std::optional<Show::LiveRecording> recording;
    if (frames) {
        render_.begin(recording, *frames, begin, skew_ * 1e-6);
        server.setRenderTo(
            [&recording](Clock::time_point due) { return recording->renderTo(due); });
    }
    const bool room = serve(
        server, recording ? &*recording : nullptr, capture ? &*capture : nullptr, osc.get(), begin,
        diagnostics);
    const bool captured = !capture || finish(*capture);
    if (recording) {
        recording->finish(
            seconds_ > 0.0 && !StopSignals::came()
                ? begin + std::chrono::duration_cast<Clock::duration>(
                              std::chrono::duration<double>(seconds_))
                : Clock::now());
        render_.writeLevels(*recording);
        render_.reportEnd(*recording, room);
    }
    return room && captured ? kSuccess : kFailure;
}

bool ServeCommand::checkOutputs(const Show::ShowFile& file) const {
    if (Show::isStandardOutput(capturePath_)) {
        report("a capture cannot be written to standard output; give a file name");
        return false;
    }
    OutputGuard guard;
    if (!scenePath_.empty()) {
        guard.reads(scenePath_, "the input scene");
        guard.readsSounds(file);
    }
    return render_.accept(guard) &&
           (capturePath_.empty() || guard.accept(capturePath_, OutputGuard::kCapture));
}

bool ServeCommand::finish(Show::CaptureWriter& capture) const {
    const bool good = capture.finish();
    render_.results() << capturePath_ << ": " << fixed(capture.seconds()) << " s, "
                      << capture.events() << " events"
                      << (good ? "" : "; part of the session is missing") << '\n';
    return good;
}

void ServeCommand::announce(const Show::SoundServer& server, DiscoveryWatch& discovery) const {
    const std::string id = std::to_string(server.id());
    report(
        "serving, id " + id + (id_.empty() || id_ == id ? "" : " (" + id_ + ")") +
        ", at TCP port " + std::to_string(server.multiServer().port()) + "; " +
        discovery.describe());
    if (network_.key().empty() && !network_.isOpen()) {
        report(
            "only this machine reaches it; to let others in, give it --key FILE (\"orvel key new "
            "FILE\" makes one), or --open for everybody");
    } else {
        report(
            network_.key().empty()
                ? "everybody who reaches it can drive it (--open)"
                : "only clients with a key of " + network_.key() + " can connect");
    }
}

bool ServeCommand::serve(
    Show::SoundServer& server, Show::LiveRecording* recording, Show::CaptureWriter* capture,
    Show::OscInput* osc, Clock::time_point begin, Diagnostics& diagnostics) {
    const auto limit = seconds_ > 0.0 ? begin + std::chrono::duration_cast<Clock::duration>(
                                                    std::chrono::duration<double>(seconds_))
                                      : Clock::time_point::max();
    PeerWatch clients(server.multiServer(), "client");
    ServiceManager manager;
    auto nextChores = begin;
    bool choresWait = false;
    const auto webs = webServers(server);
    const auto loop = server.multiServer().loop(); // Open Sound Control's too
    for (auto* web : webs) {
        web->setLoop(loop);
    }
    server.serve(0ms); // joins discovery
    DiscoveryWatch discovery(server.multiServer());
    announce(server, discovery);
    Announcement announcement;
    network_.announce(
        announcement, "_orvel._tcp", server.multiServer().port(),
        {"id=" + std::to_string(server.id())});
    if (osc != nullptr) {
        osc_.announce(announcement, network_, *osc);
    }
    manager.ready();
    bool room = true;
    const bool onlyRecords = server.backends().empty();
    auto now = Clock::now();
    while (room && now < limit && !StopSignals::came() &&
           !(onlyRecords && capture != nullptr && capture->ended())) {
        auto until = std::min(limit, choresWait ? nextChores : now + kLongestWait);
        const auto due = server.nextDue();
        if (recording != nullptr) {
            until = std::min(until, recording->next());
        } else if (due) {
            until = std::min(until, *due);
        }
        loop->wait(until);
        now = Clock::now();
        if (recording != nullptr && !server.isTimed()) {
            // Renders the past before the new events are applied.
            room = recording->advance(std::min(now, limit));
        }
        server.serve(kLongestServing);
        if (recording != nullptr && server.isTimed()) {
            // What is due by now has been applied at its frame.
            room = recording->advance(std::min(now, limit));
        }
        if (recording != nullptr) {
            server.holdPitch(recording->lead(), recording->seconds());
        }
        if (osc != nullptr) {
            osc->serve();
        }
        now = Clock::now();
        const bool asked = std::any_of(
            webs.begin(), webs.end(), [now](const auto* web) { return web->nextUpdate() <= now; });
        choresWait = now < nextChores && !asked;
        if (choresWait) {
            continue;
        }
        nextChores = now + kChores;
        server.update();
        const std::size_t before = clients.count();
        clients.look();
        for (const std::string& text : server.takeReports()) {
            report(text);
        }
        if (clients.count() != before) {
            manager.status(
                std::to_string(clients.count()) + (clients.count() == 1 ? " client" : " clients"));
        }
        if (const std::string found = discovery.look(now); !found.empty()) {
            report(found);
        }
        if (const std::string missing = server.takeMissing(); !missing.empty()) {
            report(
                "clients asked for missing sources: " + missing + "; their emitters stay silent; " +
                (scenePath_.empty()
                     ? "start the server with --scene and a scene file that contains them"
                     : "add them to " + scenePath_));
        }
        diagnostics.report();
        if (recording != nullptr) {
            render_.look(*recording);
        }
        if (capture != nullptr) {
            capture->flush();
        }
        manager.alive(now);
    }
    manager.stopping();
    if (osc != nullptr) {
        osc->finish();
    }
    return room;
}

} // namespace OrvelTool

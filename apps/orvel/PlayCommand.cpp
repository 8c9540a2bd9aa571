#include "PlayCommand.h"

#include "Kinds.h"
#include "LibraryMessages.h"
#include "ScenePlayer.h"
#include "StopSignals.h"

#include <Config/ParamLine.h>
#include <Orvel/OALBackend.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <optional>
#include <thread>

namespace OrvelTool {

namespace {

/// A device plays what it was given a moment later; a scene is over when that is heard.
constexpr double kDeviceDelay = 0.1;

bool opensDevice(const std::string& kind) {
    return kind == "default" || kind == "openal";
}

} // namespace

PlayCommand::PlayCommand(CLI::App& parent) {
    declare(parent, "play", "Play a scene in real time, until it ends or Ctrl-C is pressed");
    declareScene();
    app()
        .add_option(
            "--backend", backends_,
            "What plays it, with the parameters of that kind; may be given several times (default: "
            "\"default\", this machine's sound device; \"orvel kinds\" lists the kinds)")
        ->type_name("KIND[:PARAMS]")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    declareSeconds("How long to play, in seconds (default: until the scene ends)");
    app().add_flag("--loop", loop_, "Begin again when the scene ends");
    app().footer("Parameters are key=value, separated by blanks, such as\n"
                 "  orvel play scene.json --backend 'openal:labels=\"front, back\"'\n"
                 "Without a sound device, hear a scene through a file: orvel render SCENE OUT.wav");
}

bool PlayCommand::choose(std::vector<Choice>& choices) const {
    for (const std::string& text : backends_) {
        const auto colon = std::min(text.find(':'), text.size());
        Choice choice{text.substr(0, colon), text.substr(std::min(colon + 1, text.size()))};
        if (choice.kind == "loopback") {
            complain(
                "--backend " + text + ": \"loopback\" plays into files only: orvel render " +
                scenePath_ + " OUT.wav");
            return false;
        }
        if (!isKind(choice.kind)) {
            complain(
                "--backend " + text + ": unknown kind \"" + choice.kind +
                "\"; expected one of: " + playableKinds());
            return false;
        }
        try {
            Config::ParamLine().setParamLine(choice.params.c_str());
        } catch (const Config::ParamLine::Exception& fault) {
            complain("--backend " + text + ": in the parameters: " + fault.what());
            return false;
        }
        choices.push_back(std::move(choice));
    }
    if (choices.empty()) {
        choices.push_back({"default", ""});
    }
    return true;
}

bool PlayCommand::addBackends(
    Stage& stage, LibraryMessages& messages, const std::vector<Choice>& choices) {
    bool heard = false;
    bool deviceMissing = false;
    for (const Choice& choice : choices) {
        Orvel::Backend* backend = nullptr;
        {
            std::optional<HiddenStandardError> hidden;
            if (opensDevice(choice.kind) && !verbose_) {
                hidden.emplace();
            }
            backend = stage.addBackend(choice.kind.c_str(), choice.params.c_str());
        }
        const auto* openAl = dynamic_cast<const Orvel::OALBackend*>(backend);
        if (openAl != nullptr && !openAl->working()) {
            // One message of ours, below, instead of the library's and the driver's.
            messages.drop();
            deviceMissing = true;
        } else {
            stage.tell();
            heard = heard || backend != nullptr;
        }
    }
    if (deviceMissing) {
        complain(
            "no sound device could be opened; to hear the scene through a file: orvel render " +
            scenePath_ + " OUT.wav");
    }
    return heard;
}

int PlayCommand::run() {
    std::vector<Choice> choices;
    if (!choose(choices)) {
        return kWrongUse;
    }
    const auto loaded = loadScene(scenePath_);
    if (loaded == nullptr) {
        return kFailure;
    }
    LibraryMessages messages(verbose_);
    Stage stage(loaded->scene, messages);
    if (!addBackends(stage, messages, choices)) {
        return kFailure;
    }
    play(*loaded, stage);
    return messages.lost() == 0 ? kSuccess : kFailure;
}

void PlayCommand::play(const LoadedScene& loaded, Stage& stage) {
    using Clock = std::chrono::steady_clock;
    using Seconds = std::chrono::duration<double>;
    ScenePlayer player(loaded.scene, loaded.sounds, stage);
    // Fetching may take long; until there is something to end in order, Ctrl-C just ends all.
    player.start();
    const StopSignals signals;
    auto begin = Clock::now();
    const auto limit = seconds_ > 0.0
                           ? begin + std::chrono::duration_cast<Clock::duration>(Seconds(seconds_))
                           : Clock::time_point::max();
    stage.tell();
    double end = player.end() + kDeviceDelay;
    while (!StopSignals::came() && Clock::now() < limit) {
        const double now = Seconds(Clock::now() - begin).count();
        if (now >= end) {
            if (!loop_) {
                break;
            }
            player.start();
            begin = Clock::now();
            end = player.end() + kDeviceDelay;
            continue;
        }
        player.advance(now);
        stage.update();
        stage.tell();
        const double tick = (std::floor(now / ScenePlayer::kTick) + 1.0) * ScenePlayer::kTick;
        const double next = std::min({tick, player.nextChange(now), end});
        const auto wake = begin + std::chrono::duration_cast<Clock::duration>(Seconds(next));
        std::this_thread::sleep_until(std::min(wake, limit));
    }
}

} // namespace OrvelTool

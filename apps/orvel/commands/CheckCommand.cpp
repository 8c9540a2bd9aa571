#include "commands/CheckCommand.h"

#include "player/ScenePlayer.h"
#include "scene/LoadedScene.h"

#include <cstdio>
#include <iostream>
#include <string>

namespace OrvelTool {

namespace {

std::string counted(std::size_t count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

} // namespace

CheckCommand::CheckCommand(CLI::App& parent) {
    declare(parent, "check", "Report every mistake in a scene file and its sounds");
    declareScene();
    app().footer(
        "Each mistake is a line FILE:LINE: FIELD: what was expected and what was found.\n"
        "Sound files are decoded; URLs are not fetched, and count nothing in the duration.");
}

int CheckCommand::run() {
    const auto loaded = loadScene(scenePath_);
    if (loaded == nullptr) {
        return kFailure;
    }
    const Scene& scene = loaded->scene;
    Orvel::World world;
    ScenePlayer player(scene, loaded->sounds, world, [](Orvel::Source&, const Sound&) {});
    player.start();
    char end[32];
    std::snprintf(end, sizeof end, "%g", player.end());
    world.clearWorld();
    std::cout << scenePath_ << ": ok (" << counted(countSources(scene), "source") << ", "
              << counted(countEmitters(scene), "emitter") << ", " << end << " s)\n";
    return kSuccess;
}

} // namespace OrvelTool

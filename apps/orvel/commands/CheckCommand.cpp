#include "commands/CheckCommand.h"

#include <Show/check/SceneWarnings.h>
#include <Show/scene/LoadedScene.h>

#include <cstdio>
#include <iostream>

namespace OrvelTool {

namespace {

std::string counted(std::size_t count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

} // namespace

CheckCommand::CheckCommand(CLI::App& parent) {
    declare(
        parent, "check",
        "Report every mistake in scene files, and warn of sounds that will not be heard");
    app()
        .add_option("SCENE", paths_, "The scene files (JSON); - is standard input")
        ->required()
        ->expected(1, -1);
    app().add_flag("--strict", strict_, "Treat warnings as mistakes: exit with 1");
    app().footer("Each mistake is reported on one line: FILE:LINE: FIELD: expected ..., found "
                 "....\nValid values that are unlikely to sound as intended give a warning.\nSound "
                 "files are decoded. URLs are not fetched and do not count towards the duration.");
}

bool CheckCommand::check(const std::string& path) const {
    const bool fromInput = path == "-";
    std::vector<Show::Problem> problems;
    const auto loaded = fromInput ? Show::loadScene(std::cin, "standard input", problems)
                                  : Show::loadScene(path, problems);
    complain(problems);
    if (loaded == nullptr) {
        return false;
    }
    double end = 0.0;
    const std::vector<Show::Problem> warnings = Show::findWarnings(*loaded, end);
    complain(warnings);
    const Show::Scene& scene = loaded->scene;
    if (strict_ && !warnings.empty()) {
        return false;
    }
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%g", end);
    std::cout << scene.path << ": ok"
              << (warnings.empty() ? "" : ", " + counted(warnings.size(), "warning")) << " ("
              << counted(Show::countSources(scene), "source") << ", "
              << counted(Show::countEmitters(scene), "emitter") << ", " << seconds << " s)\n";
    return true;
}

int CheckCommand::run() {
    bool good = true;
    for (const std::string& path : paths_) {
        good = check(path) && good;
    }
    return good ? kSuccess : kFailure;
}

} // namespace OrvelTool

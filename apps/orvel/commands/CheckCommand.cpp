#include "commands/CheckCommand.h"

#include <Show/ShowFile.h>

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
    const std::string name = fromInput ? "standard input" : path;
    const Show::ShowFile scene =
        fromInput ? Show::ShowFile::readScene(std::cin, name) : Show::ShowFile::load(path);
    if (scene.isCapture()) {
        report(path + " is a capture; only scenes are checked. To hear it: orvel play " + path);
        return false;
    }
    report(scene.problems());
    if (!scene.isGood()) {
        return false;
    }
    const auto [warnings, end] = scene.check();
    report(warnings);
    if (strict_ && !warnings.empty()) {
        return false;
    }
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%g", end);
    standardOutput() << name << ": ok"
                     << (warnings.empty() ? "" : ", " + counted(warnings.size(), "warning")) << " ("
                     << counted(scene.sources(), "source") << ", "
                     << counted(scene.emitters(), "emitter") << ", " << seconds << " s)\n";
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

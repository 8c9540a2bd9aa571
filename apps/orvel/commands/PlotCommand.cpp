#include "commands/PlotCommand.h"

#include "commands/OutputGuard.h"
#include <Show/LevelMeter.h>
#include <Show/detail/OutputFile.h>

#include <Orvel/SoundFile.h>

#include <optional>
#include <span>
#include <vector>

namespace OrvelTool {

namespace {

/// Measures a sound file. If it cannot be read, reports why and returns nothing.
std::optional<Show::LevelMeter> measure(const std::string& path) {
    Orvel::SoundFile file(path);
    if (!file.isOpen()) {
        report("cannot read " + path + ": " + file.error());
        return std::nullopt;
    }
    const std::size_t channels = file.channels();
    if (*Show::channelName(channels, 0) == '\0') {
        report(
            path +
            ": expected 1, 2, 4, 6, 7 or 8 channels, as written by \"orvel render\", found " +
            std::to_string(channels));
        return std::nullopt;
    }
    Show::LevelMeter meter(file.rate(), Show::ShowFile::kPictureWindow, channels);
    std::vector<float> block(std::size_t{8192} * channels);
    while (const std::size_t frames = file.read(std::span(block))) {
        meter.add(std::span(block).first(frames * channels));
    }
    return meter;
}

} // namespace

PlotCommand::PlotCommand(CLI::App& parent) {
    declare(parent, "plot", "Draw a scene from above as an SVG picture");
    declareScene();
    app().add_option("OUT.svg", output_, "The picture to write; - is standard output")->required();
    app()
        .add_option(
            "--levels", levels_,
            "Also draw the levels of this file, as written by \"orvel render\", over time")
        ->type_name("OUT.wav");
    app().footer(
        "The picture shows the listener, the emitters with their hulls, and their paths with "
        "marks\n"
        "of time. \"orvel render --plot\" draws the same picture with the levels of that render.");
}

int PlotCommand::run() {
    const Show::ShowFile file = load();
    if (file.isCapture()) {
        report(scenePath_ + " is a capture; only scenes are drawn");
    }
    if (!file.isGood() || file.isCapture()) {
        return kFailure;
    }
    std::optional<Show::LevelMeter> meter;
    if (!levels_.empty() && !(meter = measure(levels_))) {
        return kFailure;
    }
    OutputGuard guard;
    guard.reads(scenePath_, "the input scene");
    guard.readsSounds(file);
    guard.reads(levels_, "the input of --levels");
    if (!guard.accept(output_, OutputGuard::kPicture)) {
        return kWrongUse;
    }
    Show::OutputFile picture(output_);
    picture.write(file.picture(meter ? &*meter : nullptr));
    picture.keep();
    return kSuccess;
}

} // namespace OrvelTool

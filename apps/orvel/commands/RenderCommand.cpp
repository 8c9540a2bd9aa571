#include "commands/RenderCommand.h"

#include "commands/OutputGuard.h"
#include "process/Diagnostics.h"
#include "process/Progress.h"
#include "process/StopSignals.h"
#include <Show/capture/Capture.h>
#include <Show/plot/ScenePlot.h>
#include <Show/render/LevelReport.h>
#include <Show/render/OfflineRenderer.h>
#include <Show/render/WavWriter.h>

#include <nlohmann/json.hpp>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace OrvelTool {

namespace {

constexpr unsigned kLowestRate = 8000;
constexpr unsigned kHighestRate = 192000;

std::string fixed(double value, int decimals) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

std::string checkRate(const std::string& text) {
    unsigned rate = 0;
    if (!CLI::detail::lexical_cast(text, rate) || rate < kLowestRate || rate > kHighestRate) {
        return "expected " + std::to_string(kLowestRate) + " to " + std::to_string(kHighestRate) +
               " Hz, found \"" + text + "\"";
    }
    return {};
}

std::string checkFormat(const std::string& text) {
    return text == "s16" || text == "f32" ? "" : "expected s16 or f32, found \"" + text + "\"";
}

} // namespace

struct RenderCommand::Result {
    double seconds = 0.0;
    double renderSeconds = 0.0;
    std::uint64_t clipped = 0;
    std::size_t lost = 0;
    Show::LevelMeter perSecond;

    [[nodiscard]] double speed() const { return seconds / renderSeconds; }
};

RenderCommand::RenderCommand(CLI::App& parent) : rate_(Orvel::OALLoopbackBackend::kDefaultRate) {
    declare(parent, "render", "Render a scene to a WAV file, faster than real time");
    declareScene("The scene file (JSON), or a capture of orvel record");
    app()
        .add_option("OUT.wav", output_, "The WAV file to write, stereo; - is standard output")
        ->required();
    declareFrom(
        "Start at this second of the scene; sounds that are already playing start part-way");
    declareSeconds("How much to render, in seconds (default: until the scene ends)");
    app()
        .add_option("--rate", rate_, "Sample rate in Hz, 8000 to 192000")
        ->type_name("HZ")
        ->check(CLI::Validator(checkRate, "", "rate"))
        ->capture_default_str();
    app()
        .add_option("--format", format_, "Sample format: s16 (16-bit integers) or f32 (floats)")
        ->type_name("FORMAT")
        ->check(CLI::Validator(checkFormat, "", "format"))
        ->capture_default_str();
    app()
        .add_option("--plot", plot_, "Draw the scene and the levels as an SVG picture")
        ->type_name("OUT.svg");
    declareFetch();
    app().add_flag("--all", all_, "Print a row for each second, however many there are");
    app().add_flag("--json", json_, "Print the levels as JSON instead of a table");
    app().footer(
        "The levels are peak and RMS per second of the scene, in dB below full scale (dBFS).\n"
        "The same scene always gives the same bytes. The file is written completely or not at "
        "all.\nIf a sound of the scene is unavailable, the rest is rendered and the exit code is "
        "1.");
}

int RenderCommand::run() {
    std::vector<Show::Problem> problems;
    const auto what = Show::loadPlayable(scenePath_, fetch_, problems);
    report(problems);
    if (what != nullptr && what->scene() == nullptr && !plot_.empty()) {
        report("--plot draws scenes, but " + scenePath_ + " is a capture; omit the option");
        return kWrongUse;
    }
    if (what == nullptr) {
        return kFailure;
    }
    OutputGuard guard;
    guard.reads(scenePath_, what->scene() != nullptr ? "the input scene" : "the input capture");
    guard.readsSounds(what->sources());
    if (!guard.accept(output_, OutputGuard::kSound) ||
        (!plot_.empty() && !guard.accept(plot_, OutputGuard::kPicture))) {
        return kWrongUse;
    }
    return render(*what);
}

int RenderCommand::render(const Show::Playable& what) {
    using Clock = std::chrono::steady_clock;
    const auto begin = Clock::now();
    // OpenAL probes the sound drivers even for offline rendering, which may start a sound server.
    // No other thread runs yet that could read the environment.
    setenv("ALSOFT_DRIVERS", "null", 1); // NOLINT(concurrency-mt-unsafe)
    Diagnostics diagnostics(verbose_, Show::PartNames(what.sources()));
    Show::OfflineRenderer renderer(what, rate_);
    diagnostics.report();
    if (!renderer.working()) {
        report("OpenAL gave no loopback device; check the installation of OpenAL Soft");
        return kFailure;
    }
    const double end = seconds_ > 0.0 ? from_ + seconds_ : renderer.end();
    const double length = end - from_;
    if (from_ > 0.0 && length <= 0.0) {
        report(tooLate(end));
        return kWrongUse;
    }
    if (length * rate_ < 1.0) {
        report(
            scenePath_ +
            ": nothing to render: no sound plays; set the scene's \"duration\", or use --seconds");
        return kFailure;
    }
    const Show::SampleFormat format =
        format_ == "f32" ? Show::SampleFormat::f32 : Show::SampleFormat::s16;
    if (length * rate_ > static_cast<double>(Show::WavWriter::mostFrames(format))) {
        report(
            output_ + ": " + fixed(length, 0) +
            " s do not fit into a WAV file, which holds 4 GiB; use --seconds, a lower --rate or "
            "--format "
            "s16");
        return kFailure;
    }

    // The output file exists from here on and must be removed on failure.
    const StopSignals signals;
    Show::WavWriter writer(
        output_, rate_, format,
        static_cast<std::uint64_t>(std::llround(end * rate_) - std::llround(from_ * rate_)));
    Show::LevelMeter perSecond(rate_, 1.0);
    Show::LevelMeter forPlot(rate_, Show::plotWindow(length));
    Progress progress("rendering");
    for (;;) {
        // The part before --from is rendered and discarded, so that every sound is in the right
        // place.
        const bool skipping = renderer.seconds() < from_;
        const auto samples = renderer.next(skipping ? from_ : end);
        if (samples.empty() && !skipping) {
            break;
        }
        if (StopSignals::came()) {
            progress.clear();
            report(
                "interrupted; " + Show::nameOfOutput(output_) +
                (Show::isStandardOutput(output_) ? " is incomplete" : " is not written"));
            return kFailure;
        }
        if (!skipping) {
            writer.write(samples);
            perSecond.add(samples);
            if (!plot_.empty()) {
                forPlot.add(samples);
            }
        }
        progress.show(renderer.seconds() / end);
        if (diagnostics.pending()) {
            progress.clear();
            diagnostics.report();
        }
    }
    progress.clear();
    diagnostics.report();
    writer.finish();
    const std::chrono::duration<double> taken = Clock::now() - begin;
    const Result result{
        static_cast<double>(perSecond.frames()) / rate_, taken.count(), writer.clipped(),
        diagnostics.lost(), perSecond};
    if (!plot_.empty()) {
        Show::OutputFile picture(plot_);
        picture.write(Show::drawScene(*what.scene(), &forPlot));
        picture.keep();
    }
    writeResult(result);
    if (result.lost != 0 || what.incomplete()) {
        report(
            Show::nameOfOutput(output_) +
            " is written, but some sounds are missing from it (see above)");
        return kFailure;
    }
    return kSuccess;
}

void RenderCommand::writeResult(const Result& result) const {
    std::ostream& out = Show::isStandardOutput(output_) || Show::isStandardOutput(plot_)
                            ? standardError()
                            : standardOutput();
    if (json_) {
        nlohmann::ordered_json json;
        json["file"] = output_;
        json["rate"] = rate_;
        json["format"] = format_;
        json["from"] = from_;
        json["seconds"] = result.seconds;
        json["renderSeconds"] = result.renderSeconds;
        json["speed"] = result.speed();
        json["clipped"] = result.clipped;
        json["lost"] = result.lost;
        json.update(Show::toJson(result.perSecond));
        using Json = nlohmann::ordered_json;
        out << json.dump(2, ' ', true, Json::error_handler_t::replace) << '\n';
        return;
    }
    Show::writeTable(
        out, result.perSecond, all_ ? std::numeric_limits<std::size_t>::max() : Show::kMaxRows);
    if (result.clipped != 0) {
        out << result.clipped << " samples exceeded full scale and were clipped; lower the gains, "
            << "or use --format f32\n";
    }
    out << Show::nameOfOutput(output_) << ": " << fixed(result.seconds, 2) << " s, rendered in "
        << fixed(result.renderSeconds, 2) << " s, " << fixed(result.speed(), 0)
        << " times as fast as real time\n";
}

} // namespace OrvelTool

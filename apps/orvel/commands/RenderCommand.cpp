#include "commands/RenderCommand.h"

#include "commands/Kinds.h"
#include "commands/LevelReport.h"
#include "commands/OutputGuard.h"
#include "process/Diagnostics.h"
#include "process/Progress.h"
#include "process/StopSignals.h"
#include <Show/LevelMeter.h>
#include <Show/detail/OutputFile.h>

#include <Config/ParamLine.h>
#include <Orvel/OALLoopbackBackend.h>
#include <Orvel/OutputLayout.h>

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <map>
#include <optional>
#include <span>

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

std::string layoutNames() {
    std::string names;
    for (const Orvel::OutputLayout& layout : Orvel::kOutputLayouts) {
        names += (names.empty() ? "" : ", ") + std::string(layout.name);
    }
    return names;
}

std::string checkLayout(const std::string& text) {
    return Orvel::findOutputLayout(text) != nullptr
               ? ""
               : "expected one of " + layoutNames() + ", found \"" + text + "\"";
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
    app().add_option("OUT.wav", output_, "The WAV file to write; - is standard output")->required();
    declareFrom(
        "Start at this second of the scene; sounds that are already playing start part-way");
    declareSeconds("How much to render, in seconds (default: until the scene ends)");
    app()
        .add_option("--rate", rate_, "Sample rate in Hz, 8000 to 192000")
        ->type_name("HZ")
        ->check(CLI::Validator(checkRate, "", "rate"))
        ->capture_default_str();
    app()
        .add_option(
            "--backend", backend_,
            "Back end to render through, with its parameters: voices or openal")
        ->type_name("KIND[:PARAMS]")
        ->capture_default_str();
    app()
        .add_option(
            "--output", layout_,
            "What to render for: " + layoutNames() + " (default: as the scene says)")
        ->type_name("LAYOUT")
        ->check(CLI::Validator(checkLayout, "", "layout"));
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

bool RenderCommand::choose(BackendOption::Choice& choice) const {
    std::map<std::string, std::string> refused;
    for (const std::string& kind : kinds()) {
        if (kind != "voices" && kind != "openal") {
            refused[kind] = "expected the kind \"voices\" or \"openal\"";
        }
    }
    return BackendOption::read(backend_, choice, refused);
}

int RenderCommand::run() {
    BackendOption::Choice choice;
    if (!choose(choice)) {
        return kWrongUse;
    }
    Config::ParamLine given;
    given.setParamLine(choice.params.c_str());
    if (const std::string rate = given.getParam("rate", ""); !rate.empty()) {
        report("--backend " + backend_ + ": give the rate of the file as --rate " + rate);
        return kWrongUse;
    }
    if (!layout_.empty()) {
        if (choice.kind != "voices") {
            report("--output works with the back end \"voices\" only; omit --backend");
            return kWrongUse;
        }
        choice.params += " output=" + layout_;
    }
    const Show::ShowFile file = load();
    if (file.isCapture() && !plot_.empty()) {
        report("--plot draws scenes, but " + scenePath_ + " is a capture; omit the option");
        return kWrongUse;
    }
    if (!file.isGood()) {
        return kFailure;
    }
    OutputGuard guard;
    guard.reads(scenePath_, file.isCapture() ? "the input capture" : "the input scene");
    guard.readsSounds(file);
    if (!guard.accept(output_, OutputGuard::kSound) ||
        (!plot_.empty() && !guard.accept(plot_, OutputGuard::kPicture))) {
        return kWrongUse;
    }
    return render(file, choice);
}

int RenderCommand::render(const Show::ShowFile& file, const BackendOption::Choice& choice) {
    using Clock = std::chrono::steady_clock;
    const auto begin = Clock::now();
    // OpenAL probes the sound drivers even for offline rendering, which may start a sound server.
    // No other thread runs yet that could read the environment.
    setenv("ALSOFT_DRIVERS", "null", 1); // NOLINT(concurrency-mt-unsafe)
    Diagnostics diagnostics(verbose_, file);
    const std::size_t channels = choice.kind == "voices" ? file.layout(choice.params).channels : 2;
    Show::LevelMeter perSecond(rate_, 1.0, channels);
    Show::LevelMeter forPlot(rate_, Show::ShowFile::kPictureWindow, channels);
    Progress progress("rendering");
    // Fetching may take long. Until it is over, Ctrl-C ends the process at once; then the output
    // file exists and must be removed.
    std::optional<StopSignals> signals;
    Show::RenderSettings settings;
    settings.rate = rate_;
    settings.from = from_;
    settings.seconds = seconds_;
    settings.format = format_ == "f32" ? Show::SampleFormat::f32 : Show::SampleFormat::s16;
    settings.kind = choice.kind;
    settings.params = choice.params;
    settings.samples = [&](std::span<const float> samples) {
        perSecond.add(samples);
        if (!plot_.empty()) {
            forPlot.add(samples);
        }
    };
    settings.progress = [&](double done) {
        if (!signals) {
            signals.emplace();
        }
        progress.show(done);
        if (diagnostics.pending()) {
            progress.clear();
            diagnostics.report();
        }
        return !StopSignals::came();
    };
    const Show::RenderResult rendered = Show::renderToFile(file, output_, settings);
    progress.clear();
    diagnostics.report();
    if (!rendered.isGood()) {
        return explain(rendered);
    }
    const std::chrono::duration<double> taken = Clock::now() - begin;
    const Result result{
        rendered.seconds, taken.count(), rendered.clipped, diagnostics.lost(), perSecond};
    if (!plot_.empty()) {
        Show::OutputFile picture(plot_);
        picture.write(file.picture(&forPlot));
        picture.keep();
    }
    writeResult(result);
    if (result.lost != 0 || !file.isComplete()) {
        report(
            Show::nameOfOutput(output_) +
            " is written, but some sounds are missing from it (see above)");
        return kFailure;
    }
    return kSuccess;
}

int RenderCommand::explain(const Show::RenderResult& result) const {
    using Cause = Show::RenderResult::Cause;
    if (result.cancelled) {
        report(
            "interrupted; " + Show::nameOfOutput(output_) +
            (Show::isStandardOutput(output_) ? " is incomplete" : " is not written"));
    } else if (result.cause == Cause::Empty && from_ > 0.0 && from_ >= result.end) {
        report(tooLate(result.end));
        return kWrongUse;
    } else if (result.cause == Cause::Empty) {
        report(
            scenePath_ + ": " + result.error + "; set the scene's \"duration\", or use --seconds");
    } else if (result.cause == Cause::TooLong) {
        report(result.error + "; use --seconds, a lower --rate or --format s16");
    } else {
        report(result.error);
    }
    return kFailure;
}

void RenderCommand::writeResult(const Result& result) const {
    std::ostream& out = Show::isStandardOutput(output_) || Show::isStandardOutput(plot_)
                            ? standardError()
                            : standardOutput();
    if (json_) {
        nlohmann::ordered_json json;
        json["file"] = output_;
        json["rate"] = rate_;
        json["channels"] = result.perSecond.channels();
        json["format"] = format_;
        json["from"] = from_;
        json["seconds"] = result.seconds;
        json["renderSeconds"] = result.renderSeconds;
        json["speed"] = result.speed();
        json["clipped"] = result.clipped;
        json["lost"] = result.lost;
        json.update(toJson(result.perSecond));
        using Json = nlohmann::ordered_json;
        out << json.dump(2, ' ', true, Json::error_handler_t::replace) << '\n';
        return;
    }
    writeTable(out, result.perSecond, all_ ? std::numeric_limits<std::size_t>::max() : kMaxRows);
    if (result.clipped != 0) {
        out << result.clipped << " samples exceeded full scale and were clipped; lower the gains, "
            << "or use --format f32\n";
    }
    out << Show::nameOfOutput(output_) << ": " << fixed(result.seconds, 2) << " s, rendered in "
        << fixed(result.renderSeconds, 2) << " s, " << fixed(result.speed(), 0)
        << " times as fast as real time\n";
}

} // namespace OrvelTool

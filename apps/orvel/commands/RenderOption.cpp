#include "commands/RenderOption.h"

#include "commands/LevelReport.h"
#include "process/Output.h"
#include <Show/detail/OutputFile.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <ctime>
#include <iomanip>
#include <iterator>
#include <sstream>

namespace OrvelTool {

namespace {

/// A recording that was behind the clock by more than this, in seconds, is reported.
constexpr double kLagToReport = 0.5;

std::string rounded(double value) {
    std::ostringstream text;
    text.precision(2);
    text << std::fixed << value;
    return text.str();
}

/// Date and time with microseconds.
std::string utc(std::chrono::system_clock::time_point time) {
    using namespace std::chrono;
    const auto second = floor<seconds>(time);
    const std::time_t when = system_clock::to_time_t(second);
    std::tm parts = {};
    ::gmtime_r(&when, &parts);
    std::ostringstream text;
    text << std::put_time(&parts, "%F %T") << '.' << std::setw(6) << std::setfill('0')
         << duration_cast<microseconds>(time - second).count() << " UTC";
    return text.str();
}

} // namespace

void RenderOption::declare(CLI::App& app) {
    app.add_option(
           "--render", path_,
           "Write the output in real time to a WAV file, to a FIFO or, with -, to standard "
           "output; no sound device is needed")
        ->type_name("OUT.wav");
    app.add_option("--render-rate", rate_, "Sample rate of --render in Hz, 8000 to 192000")
        ->type_name("HZ")
        ->check(CLI::Range(8000, 192000))
        ->capture_default_str();
    app.add_flag(
        "--render-raw", raw_,
        "Write raw samples to a FIFO or standard output, without the WAV header: 16-bit integers, "
        "little endian, interleaved");
}

bool RenderOption::accept(OutputGuard& guard) const {
    if (raw_ && !Show::PcmStream::isStream(path_)) {
        report("--render-raw is for streams: --render - or --render FIFO (mkfifo creates one)");
        return false;
    }
    return !given() || guard.accept(path_, OutputGuard::kSound);
}

bool RenderOption::open(
    std::optional<Show::FrameSource>& frames, Orvel::World& world, std::size_t emitters,
    const std::vector<BackendOption::Choice>& choices, const std::string& params,
    Diagnostics& diagnostics) const {
    std::vector<BackendOption::Choice> mixing;
    std::copy_if(
        choices.begin(), choices.end(), std::back_inserter(mixing),
        [](const auto& choice) { return opensDevice(choice.kind); });
    const BackendOption::Choice recorded =
        mixing.size() == 1 ? mixing.front() : BackendOption::Choice{"voices", params};
    frames.emplace(world, recorded.kind, recorded.params, rate_, emitters);
    diagnostics.report();
    if (!frames->isWorking()) {
        report("OpenAL gave no loopback device; check the installation of OpenAL Soft");
        return false;
    }
    return true;
}

void RenderOption::begin(
    std::optional<Show::LiveRecording>& recording, Show::FrameSource& frames,
    Show::LiveRecording::Clock::time_point begin, double skew) const {
    std::signal(SIGPIPE, SIG_IGN); // a reader that leaves is no reason to end at once
    recording.emplace(frames, path_, raw_, begin, skew);
}

void RenderOption::look(const Show::LiveRecording& recording) {
    if (!saidSlow_ && recording.missedSeconds() > 0.0) {
        saidSlow_ = true;
        report(
            "the reader of " + Show::nameOfOutput(path_) +
            " is too slow: it misses parts, which are counted");
    }
}

std::ostream& RenderOption::results() const {
    return Show::isStandardOutput(path_) ? standardError() : standardOutput();
}

void RenderOption::writeLevels(const Show::LiveRecording& recording) const {
    std::ostream& out = results();
    writeTable(out, recording.levels());
    if (recording.clipped() != 0) {
        out << recording.clipped()
            << " samples exceeded full scale and were clipped; lower the gains\n";
    }
    if (recording.worstLag() > kLagToReport) {
        out << "this machine was too slow at times: " << rounded(recording.worstLag())
            << " s behind at most\n";
    }
    out << Show::nameOfOutput(path_) << ": " << rounded(recording.seconds()) << " s from "
        << utc(std::chrono::system_clock::now() -
               (std::chrono::steady_clock::now() - recording.begin()))
        << '\n';
}

void RenderOption::reportEnd(const Show::LiveRecording& recording, bool complete) const {
    if (recording.missedSeconds() > 0.0) {
        report(
            "the reader of " + Show::nameOfOutput(path_) + " was too slow: it missed " +
            rounded(recording.missedSeconds()) + " s");
    }
    if (recording.isOver()) {
        report("the reader of " + Show::nameOfOutput(path_) + " has gone");
    } else if (!complete) {
        report(
            Show::nameOfOutput(path_) + ": a WAV file holds at most 4 GiB; the recording is full");
    }
}

} // namespace OrvelTool

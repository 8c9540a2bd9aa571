#include <Show/orvel_show.h>

#include <Show/CaptureRecorder.h>
#include <Show/MonitorPage.h>
#include <Show/OscInput.h>
#include <Show/Playback.h>
#include <Show/Render.h>

#include <Config/Param.h>
#include <Orvel/detail/CCalls.h>

#include <limits>
#include <memory>
#include <string>
#include <vector>

// NOLINTBEGIN(readability-identifier-naming): as is usual in C

struct orvel_show_file {
    Show::ShowFile file;
    std::vector<Show::Problem> warnings;
};
struct orvel_show_playback {
    orvel_show_playback(Orvel::World& world, const Show::ShowFile& file) : playback(world, file) {}
    Show::Playback playback;
};
struct orvel_show_recorder {
    orvel_show_recorder(
        Orvel::Server& server, const std::string& path,
        const Show::CaptureRecorder::Settings& settings)
        : recorder(server, path, settings) {}
    Show::CaptureRecorder recorder;
};
struct orvel_show_osc {
    orvel_show_osc(Orvel::World& world, const Show::OscInput::Settings& settings)
        : input(world, settings) {}
    Show::OscInput input;
};
struct orvel_show_monitor {
    orvel_show_monitor(Orvel::World& world, const Show::MonitorPage::Settings& settings)
        : page(world, settings) {}
    Show::MonitorPage page;
};

namespace {

using Orvel::detail::done;
using Orvel::detail::guarded;
using Orvel::detail::need;
using Orvel::detail::Refusal;

thread_local std::string monitorUrl;

Orvel::World& get(orvel_world* world) {
    return *reinterpret_cast<Orvel::World*>(need(world, "the world"));
}

orvel_show_file& get(orvel_show_file* file) {
    return *need(file, "the file");
}

Show::Playback& get(orvel_show_playback* playback) {
    return need(playback, "the playback")->playback;
}

Show::CaptureRecorder& get(orvel_show_recorder* recorder) {
    return need(recorder, "the recorder")->recorder;
}

Show::OscInput& get(orvel_show_osc* osc) {
    return need(osc, "the OSC input")->input;
}

const char* orEmpty(const char* text) {
    return text == nullptr ? "" : text;
}

void needGood(const Show::ShowFile& file) {
    if (!file.isGood()) {
        throw Refusal(file.problems().empty() ? "nothing was loaded" : file.problems()[0].str());
    }
}

void write(const std::vector<Show::Problem>& problems, std::size_t index, orvel_show_problem* out) {
    need(out, "the place for the problem");
    if (index >= problems.size()) {
        throw Refusal(
            "there are " + std::to_string(problems.size()) + "; use an index below that, from 0");
    }
    const Show::Problem& problem = problems[index];
    *out = {
        problem.file.c_str(), problem.line, problem.column, problem.field.c_str(),
        problem.text.c_str()};
}

Show::RenderSettings read(const orvel_show_render_settings* given) {
    Show::RenderSettings settings;
    if (given != nullptr) {
        settings.rate = given->rate == 0 ? settings.rate : given->rate;
        settings.format = given->floats ? Show::SampleFormat::f32 : Show::SampleFormat::s16;
        settings.from = given->from;
        settings.seconds = given->seconds;
    }
    return settings;
}

void needWhole(const Show::RenderResult& result) {
    if (!result.isGood()) {
        throw Refusal(result.cancelled ? "cancelled by the callback" : result.error);
    }
}

} // namespace

orvel_show_file* orvel_show_file_load(const char* path, bool fetch) {
    return guarded(__func__, static_cast<orvel_show_file*>(nullptr), [&] {
        return new orvel_show_file{Show::ShowFile::load(need(path, "the path"), fetch), {}};
    });
}

void orvel_show_file_destroy(orvel_show_file* file) {
    delete file;
}

bool orvel_show_file_good(orvel_show_file* file) {
    return done(__func__, [&] { needGood(get(file).file); });
}

size_t orvel_show_file_problem_count(orvel_show_file* file) {
    return guarded(__func__, size_t{0}, [&] { return get(file).file.problems().size(); });
}

bool orvel_show_file_problem(orvel_show_file* file, size_t index, orvel_show_problem* problem) {
    return done(__func__, [&] { write(get(file).file.problems(), index, problem); });
}

int orvel_show_file_check(orvel_show_file* file, double* seconds) {
    return guarded(__func__, -1, [&] {
        orvel_show_file& scene = get(file);
        needGood(scene.file);
        if (scene.file.isCapture()) {
            throw Refusal("the file is a capture; only scenes are checked");
        }
        auto check = scene.file.check();
        scene.warnings = std::move(check.warnings);
        if (seconds != nullptr) {
            *seconds = check.seconds;
        }
        return static_cast<int>(scene.warnings.size());
    });
}

bool orvel_show_file_warning(orvel_show_file* file, size_t index, orvel_show_problem* warning) {
    return done(__func__, [&] { write(get(file).warnings, index, warning); });
}

orvel_show_playback* orvel_show_playback_create(orvel_world* world, orvel_show_file* file) {
    return guarded(__func__, static_cast<orvel_show_playback*>(nullptr), [&] {
        auto playback = std::make_unique<orvel_show_playback>(get(world), get(file).file);
        if (!playback->playback.isGood()) {
            throw Refusal(playback->playback.error());
        }
        return playback.release();
    });
}

void orvel_show_playback_destroy(orvel_show_playback* playback) {
    delete playback;
}

bool orvel_show_playback_start(orvel_show_playback* playback, double from) {
    return done(__func__, [&] { get(playback).start(from); });
}

bool orvel_show_playback_advance(orvel_show_playback* playback, double seconds) {
    return done(__func__, [&] { get(playback).advance(seconds); });
}

double orvel_show_playback_next(orvel_show_playback* playback) {
    return guarded(__func__, -1.0, [&] { return get(playback).nextStep(); });
}

double orvel_show_playback_end(orvel_show_playback* playback) {
    return guarded(__func__, -1.0, [&] { return get(playback).end(); });
}

bool orvel_show_render_file(
    orvel_show_file* file, const char* path, const orvel_show_render_settings* settings,
    orvel_show_progress progress, void* user) {
    return done(__func__, [&] {
        Show::RenderSettings all = read(settings);
        if (progress != nullptr) {
            all.progress = [&](double part) { return progress(part, user); };
        }
        needWhole(Show::renderToFile(get(file).file, need(path, "the path"), all));
    });
}

bool orvel_show_render(
    orvel_show_file* file, const orvel_show_render_settings* settings, orvel_show_take take,
    void* user) {
    return done(__func__, [&] {
        need(take, "the function that takes the samples");
        needWhole(Show::render(
            get(file).file,
            [&](std::span<const float> samples) {
                return take(samples.data(), samples.size() / 2, user);
            },
            read(settings)));
    });
}

orvel_show_recorder* orvel_show_recorder_create(
    orvel_server* server, const char* path, const char* scene_path, uint64_t max_bytes) {
    return guarded(__func__, static_cast<orvel_show_recorder*>(nullptr), [&] {
        orvel_world* world = orvel_server_world(need(server, "the server"));
        const Show::CaptureRecorder::Settings settings{
            orEmpty(scene_path),
            max_bytes == 0 ? std::numeric_limits<std::uint64_t>::max() : max_bytes};
        auto recorder = std::make_unique<orvel_show_recorder>(
            dynamic_cast<Orvel::Server&>(get(world)), need(path, "the path"), settings);
        if (!recorder->recorder.isRecording()) {
            throw Refusal(recorder->recorder.error());
        }
        return recorder.release();
    });
}

void orvel_show_recorder_destroy(orvel_show_recorder* recorder) {
    delete recorder;
}

bool orvel_show_recorder_flush(orvel_show_recorder* recorder) {
    return done(__func__, [&] {
        get(recorder).flush();
        if (!get(recorder).isRecording()) {
            throw Refusal("the recording has ended; " + get(recorder).error());
        }
    });
}

bool orvel_show_recorder_finish(orvel_show_recorder* recorder) {
    return done(__func__, [&] {
        if (!get(recorder).finish()) {
            throw Refusal("not everything is in the capture; " + get(recorder).error());
        }
    });
}

uint64_t orvel_show_recorder_events(orvel_show_recorder* recorder) {
    return guarded(__func__, uint64_t{0}, [&] { return get(recorder).events(); });
}

orvel_show_osc* orvel_show_osc_create(
    orvel_world* world, const char* address, unsigned short port, float scale,
    orvel_show_report report, void* user) {
    return guarded(__func__, static_cast<orvel_show_osc*>(nullptr), [&] {
        Show::OscInput::Settings settings;
        settings.address = address == nullptr ? settings.address : address;
        settings.port = port;
        settings.scale = scale == 0.0F ? settings.scale : scale;
        if (report != nullptr) {
            settings.report = [=](const std::string& text) { report(text.c_str(), user); };
        }
        auto osc = std::make_unique<orvel_show_osc>(get(world), settings);
        if (!osc->input.isOpen()) {
            throw Refusal(osc->input.error());
        }
        return osc.release();
    });
}

void orvel_show_osc_destroy(orvel_show_osc* osc) {
    delete osc;
}

unsigned short orvel_show_osc_port(orvel_show_osc* osc) {
    return guarded(__func__, static_cast<unsigned short>(0), [&] { return get(osc).port(); });
}

int orvel_show_osc_descriptor(orvel_show_osc* osc) {
    return guarded(__func__, -1, [&] { return get(osc).loop().descriptor(); });
}

bool orvel_show_osc_serve(orvel_show_osc* osc, double seconds) {
    return done(__func__, [&] { get(osc).serve(seconds); });
}

orvel_show_monitor* orvel_show_monitor_create(
    orvel_world* world, const char* address, int port, const char* host_names) {
    return guarded(__func__, static_cast<orvel_show_monitor*>(nullptr), [&] {
        Show::MonitorPage::Settings settings;
        settings.address = address == nullptr ? settings.address : address;
        if (port < -1 || port > 65535) {
            throw Refusal("the port is " + std::to_string(port) + "; use -1 to 65535");
        }
        if (port >= 0) {
            settings.port = static_cast<std::uint16_t>(port);
        }
        settings.hostNames = Config::splitList(orEmpty(host_names));
        auto monitor = std::make_unique<orvel_show_monitor>(get(world), settings);
        if (!monitor->page.isOpen()) {
            throw Refusal(monitor->page.error());
        }
        return monitor.release();
    });
}

void orvel_show_monitor_destroy(orvel_show_monitor* monitor) {
    delete monitor;
}

const char* orvel_show_monitor_url(orvel_show_monitor* monitor) {
    return guarded(__func__, static_cast<const char*>(nullptr), [&] {
        monitorUrl = need(monitor, "the monitor")->page.url();
        return monitorUrl.c_str();
    });
}

// NOLINTEND(readability-identifier-naming)

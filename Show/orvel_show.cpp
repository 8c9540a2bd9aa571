#include <Show/orvel_show.h>

#include <Show/CaptureRecorder.h>
#include <Show/MonitorPage.h>
#include <Show/OscInput.h>
#include <Show/Playback.h>
#include <Show/Render.h>

#include <Config/Param.h>
#include <Orvel/detail/CCalls.h>
#include <Orvel/detail/Handles.h>

#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// NOLINTBEGIN(readability-identifier-naming): as is usual in C

namespace {

using Orvel::detail::Attachment;
using Orvel::detail::Callback;
using Orvel::detail::CallingBack;
using Orvel::detail::done;
using Orvel::detail::guarded;
using Orvel::detail::Kind;
using Orvel::detail::live;
using Orvel::detail::need;
using Orvel::detail::OwnHandle;
using Orvel::detail::Refusal;

struct File {
    explicit File(Show::ShowFile loaded) : file(std::move(loaded)) {}
    Show::ShowFile file;
    std::vector<Show::Problem> warnings;
    std::string picture;
    std::string cueName;
    OwnHandle handle{this, Kind::File};
};

/// An object of this library that uses a world, and goes with it.
template <class Object, Kind kind>
struct Attached : Attachment {
    static constexpr Kind kKind = kind;
    template <class... Arguments>
    explicit Attached(Arguments&&... arguments) : object(std::forward<Arguments>(arguments)...) {}
    Object object;
    OwnHandle handle{this, kind};
};
using Playback = Attached<Show::Playback, Kind::Playback>;
using Recorder = Attached<Show::CaptureRecorder, Kind::Recorder>;
using Osc = Attached<Show::OscInput, Kind::Osc>;
using Monitor = Attached<Show::MonitorPage, Kind::Monitor>;

/// Gives a new object to its world, and its handle to the caller.
template <class Handle, class Object>
Handle* give(Orvel::World& world, std::unique_ptr<Object> attached) {
    auto* handle = attached->handle.template as<Handle>();
    Attachment::attach(world, std::move(attached));
    return handle;
}

/// Destroys an object of a world; null is ignored.
template <class Object>
void destroy(const char* function, const void* handle) {
    done(function, [&] {
        if (handle != nullptr) {
            live<Object>(handle, Object::kKind).detach();
        }
    });
}

thread_local std::string monitorUrl;

Orvel::World& get(orvel_world* world) {
    return live<Orvel::World>(world, Kind::World);
}

File& get(orvel_show_file* file) {
    return live<File>(file, Kind::File);
}

Show::Playback& get(orvel_show_playback* playback) {
    return live<Playback>(playback, Kind::Playback).object;
}

Show::CaptureRecorder& get(orvel_show_recorder* recorder) {
    return live<Recorder>(recorder, Kind::Recorder).object;
}

Show::OscInput& get(orvel_show_osc* osc) {
    return live<Osc>(osc, Kind::Osc).object;
}

const char* orEmpty(const char* text) {
    return text == nullptr ? "" : text;
}

void needGood(const Show::ShowFile& file) {
    if (!file.isGood()) {
        throw Refusal(file.problems().empty() ? "nothing was loaded" : file.problems()[0].str());
    }
}

void needScene(const Show::ShowFile& file) {
    needGood(file);
    if (file.isCapture()) {
        throw Refusal("the file is a capture; this is for scenes");
    }
}

void needIndex(std::size_t index, std::size_t count) {
    if (index >= count) {
        throw Refusal("there are " + std::to_string(count) + "; use an index below that, from 0");
    }
}

void write(const std::vector<Show::Problem>& problems, std::size_t index, orvel_show_problem* out) {
    need(out, "the place for the problem");
    needIndex(index, problems.size());
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
        auto file = std::make_unique<File>(Show::ShowFile::load(need(path, "the path"), fetch));
        return file.release()->handle.as<orvel_show_file>();
    });
}

void orvel_show_file_destroy(orvel_show_file* file) {
    done(__func__, [&] {
        if (file != nullptr) {
            const File& last = get(file);
            Orvel::detail::refuseInCallback();
            delete &last;
        }
    });
}

bool orvel_show_file_good(orvel_show_file* file) {
    return done(__func__, [&] { needGood(get(file).file); });
}

bool orvel_show_file_capture(orvel_show_file* file) {
    return guarded(__func__, false, [&] { return get(file).file.isCapture(); });
}

bool orvel_show_file_complete(orvel_show_file* file) {
    return guarded(__func__, false, [&] { return get(file).file.isComplete(); });
}

size_t orvel_show_file_sources(orvel_show_file* file) {
    return guarded(__func__, size_t{0}, [&] { return get(file).file.sources(); });
}

size_t orvel_show_file_emitters(orvel_show_file* file) {
    return guarded(__func__, size_t{0}, [&] { return get(file).file.emitters(); });
}

size_t orvel_show_file_channels(orvel_show_file* file) {
    return guarded(__func__, size_t{0}, [&] { return size_t{get(file).file.layout().channels}; });
}

const char* orvel_show_file_picture(orvel_show_file* file) {
    return guarded(__func__, static_cast<const char*>(nullptr), [&] {
        File& scene = get(file);
        needScene(scene.file);
        scene.picture = scene.file.picture();
        return scene.picture.c_str();
    });
}

size_t orvel_show_file_cue_count(orvel_show_file* file) {
    return guarded(__func__, size_t{0}, [&] { return get(file).file.cues().size(); });
}

bool orvel_show_file_cue(orvel_show_file* file, size_t index, orvel_show_cue* cue) {
    return done(__func__, [&] {
        need(cue, "the place for the cue");
        File& scene = get(file);
        const auto cues = scene.file.cues();
        needIndex(index, cues.size());
        scene.cueName = cues[index].name;
        *cue = {scene.cueName.c_str(), cues[index].at, cues[index].until};
    });
}

size_t orvel_show_file_problem_count(orvel_show_file* file) {
    return guarded(__func__, size_t{0}, [&] { return get(file).file.problems().size(); });
}

bool orvel_show_file_problem(orvel_show_file* file, size_t index, orvel_show_problem* problem) {
    return done(__func__, [&] { write(get(file).file.problems(), index, problem); });
}

int orvel_show_file_check(orvel_show_file* file, double* seconds) {
    return guarded(__func__, -1, [&] {
        File& scene = get(file);
        needScene(scene.file);
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
        auto playback = std::make_unique<Playback>(get(world), get(file).file);
        if (!playback->object.isGood()) {
            throw Refusal(playback->object.error());
        }
        return give<orvel_show_playback>(get(world), std::move(playback));
    });
}

void orvel_show_playback_destroy(orvel_show_playback* playback) {
    destroy<Playback>(__func__, playback);
}

bool orvel_show_playback_start(orvel_show_playback* playback, double from) {
    return done(__func__, [&] { get(playback).start(from); });
}

bool orvel_show_playback_advance(orvel_show_playback* playback, double seconds) {
    return done(__func__, [&] { get(playback).advance(seconds); });
}

bool orvel_show_playback_arm(orvel_show_playback* playback) {
    return done(__func__, [&] { get(playback).arm(); });
}

bool orvel_show_playback_go(orvel_show_playback* playback) {
    return done(__func__, [&] {
        if (!get(playback).go()) {
            throw Refusal("there is no further cue");
        }
    });
}

bool orvel_show_playback_cue(orvel_show_playback* playback, const char* name) {
    return done(__func__, [&] {
        if (!get(playback).cue(need(name, "the name"))) {
            throw Refusal(std::string("there is no cue \"") + name + '"');
        }
    });
}

bool orvel_show_playback_seek(orvel_show_playback* playback, double seconds) {
    return done(__func__, [&] { get(playback).seek(seconds); });
}

bool orvel_show_playback_pause(orvel_show_playback* playback, bool paused) {
    return done(__func__, [&] { get(playback).pause(paused); });
}

double orvel_show_playback_position(orvel_show_playback* playback) {
    return guarded(__func__, -1.0, [&] { return get(playback).position(); });
}

const char* orvel_show_playback_state(orvel_show_playback* playback) {
    return guarded(__func__, static_cast<const char*>(nullptr), [&] {
        return Show::nameOf(get(playback).state());
    });
}

const char* orvel_show_playback_current_cue(orvel_show_playback* playback) {
    return guarded(__func__, static_cast<const char*>(nullptr), [&] {
        const Show::Cue* cue = get(playback).currentCue();
        return cue == nullptr ? "" : cue->name.c_str();
    });
}

const char* orvel_show_playback_next_cue(orvel_show_playback* playback) {
    return guarded(__func__, static_cast<const char*>(nullptr), [&] {
        const Show::Cue* cue = get(playback).nextCue();
        return cue == nullptr ? "" : cue->name.c_str();
    });
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
        const Show::ShowFile kept = get(file).file; // the callback may destroy the file
        needWhole(Show::renderToFile(kept, need(path, "the path"), all));
    });
}

bool orvel_show_render(
    orvel_show_file* file, const orvel_show_render_settings* settings, orvel_show_take take,
    void* user) {
    return done(__func__, [&] {
        need(take, "the function that takes the samples");
        const Show::ShowFile kept = get(file).file; // the callback may destroy the file
        const std::size_t channels = kept.layout().channels;
        needWhole(Show::render(
            kept,
            [&](std::span<const float> samples) {
                return take(samples.data(), samples.size() / channels, user);
            },
            read(settings)));
    });
}

orvel_show_recorder* orvel_show_recorder_create(
    orvel_server* server, const char* path, const char* scene_path, uint64_t max_bytes) {
    return guarded(__func__, static_cast<orvel_show_recorder*>(nullptr), [&] {
        orvel_world* world = orvel_server_world(server);
        if (world == nullptr) {
            Orvel::detail::refuseHandle(server, Kind::Server);
        }
        const Show::CaptureRecorder::Settings settings{
            orEmpty(scene_path),
            max_bytes == 0 ? std::numeric_limits<std::uint64_t>::max() : max_bytes};
        auto recorder = std::make_unique<Recorder>(
            dynamic_cast<Orvel::Server&>(get(world)), need(path, "the path"), settings);
        if (!recorder->object.isRecording()) {
            throw Refusal(recorder->object.error());
        }
        return give<orvel_show_recorder>(get(world), std::move(recorder));
    });
}

void orvel_show_recorder_destroy(orvel_show_recorder* recorder) {
    destroy<Recorder>(__func__, recorder);
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

double orvel_show_recorder_seconds(orvel_show_recorder* recorder) {
    return guarded(__func__, 0.0, [&] { return get(recorder).seconds(); });
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
            settings.report = [=](const std::string& text) {
                const CallingBack running(Callback::Report);
                report(text.c_str(), user);
            };
        }
        auto osc = std::make_unique<Osc>(get(world), settings);
        if (!osc->object.isOpen()) {
            throw Refusal(osc->object.error());
        }
        return give<orvel_show_osc>(get(world), std::move(osc));
    });
}

void orvel_show_osc_destroy(orvel_show_osc* osc) {
    destroy<Osc>(__func__, osc);
}

bool orvel_show_osc_control(orvel_show_osc* osc, orvel_show_playback* playback) {
    return done(
        __func__, [&] { get(osc).control(playback == nullptr ? nullptr : &get(playback)); });
}

unsigned short orvel_show_osc_port(orvel_show_osc* osc) {
    return guarded(__func__, static_cast<unsigned short>(0), [&] { return get(osc).port(); });
}

int orvel_show_osc_descriptor(orvel_show_osc* osc) {
    return guarded(__func__, -1, [&] { return get(osc).loop().descriptor(); });
}

bool orvel_show_osc_serve(orvel_show_osc* osc, double seconds) {
    return done(__func__, [&] {
        Show::OscInput& input = get(osc);
        Orvel::detail::refuseInCallback();
        input.serve(seconds);
    });
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
        auto monitor = std::make_unique<Monitor>(get(world), settings);
        if (!monitor->object.isOpen()) {
            throw Refusal(monitor->object.error());
        }
        return give<orvel_show_monitor>(get(world), std::move(monitor));
    });
}

void orvel_show_monitor_destroy(orvel_show_monitor* monitor) {
    destroy<Monitor>(__func__, monitor);
}

const char* orvel_show_monitor_url(orvel_show_monitor* monitor) {
    return guarded(__func__, static_cast<const char*>(nullptr), [&] {
        monitorUrl = live<Monitor>(monitor, Kind::Monitor).object.url();
        return monitorUrl.c_str();
    });
}

// NOLINTEND(readability-identifier-naming)

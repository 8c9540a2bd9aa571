#include "doctor/SoundCheck.h"

#include "process/Diagnostics.h"
#include "process/HiddenStandardError.h"

#include <Orvel/Backend.h>
#include <Orvel/BackendState.h>
#include <Orvel/Emitter.h>
#include <Orvel/OwningWorld.h>
#include <Orvel/SoundFile.h>
#include <Orvel/VoicesBackend.h>

#include <AL/alc.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace OrvelTool {

namespace {

using Verdict = CheckResult::Verdict;

constexpr std::size_t kMaxDevices = 32;
constexpr std::size_t kFewVoices = 64;
constexpr double kLongLatency = 100.0; // in ms

struct CloseDevice {
    void operator()(ALCdevice* device) const { alcCloseDevice(device); }
};
using Device = std::unique_ptr<ALCdevice, CloseDevice>;
struct DestroyContext {
    void operator()(ALCcontext* context) const { alcDestroyContext(context); }
};
using Context = std::unique_ptr<ALCcontext, DestroyContext>;

std::string roundedMilliseconds(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f ms", value);
    return text;
}

/// The names in ALC's list: separated by zeros and terminated by an empty one.
std::vector<std::string> deviceNames() {
    const bool all = alcIsExtensionPresent(nullptr, "ALC_ENUMERATE_ALL_EXT") == ALC_TRUE;
    std::vector<std::string> names;
    const char* list =
        alcGetString(nullptr, all ? ALC_ALL_DEVICES_SPECIFIER : ALC_DEVICE_SPECIFIER);
    while (list != nullptr && *list != '\0' && names.size() < kMaxDevices) {
        names.emplace_back(list);
        list += names.back().size() + 1;
    }
    return names;
}

bool goesNowhere(std::string_view name) {
    return name.find("No Output") != std::string_view::npos ||
           name.find("Wave File Writer") != std::string_view::npos;
}

int integer(ALCdevice* device, ALCenum what) {
    ALCint value = 0;
    alcGetIntegerv(device, what, 1, &value);
    return value;
}

/// The state of the back end that plays by default, after changes of an emitter that plays nothing,
/// from which it measures the latency. The back end is removed again.
Orvel::BackendState defaultState(bool verbose) {
    constexpr std::chrono::seconds kPatience{5};
    constexpr std::chrono::milliseconds kPause{10};
    constexpr int kChanges = 30;
    Diagnostics diagnostics(verbose);
    Orvel::OwningWorld<> world;
    const auto* voices = dynamic_cast<Orvel::VoicesBackend*>(world.addBackend("voices", ""));
    Orvel::BackendState state{.working = false};
    if (voices != nullptr && voices->waitForDevice(kPatience)) {
        Orvel::Emitter* emitter = world.createEmitter();
        for (int i = 0; i < kChanges; ++i) {
            const Orvel::Vec3f place{static_cast<float>(i), 0.0F, 0.0F};
            emitter->setTransform(&place, nullptr);
            world.update();
            std::this_thread::sleep_for(kPause);
        }
        state = voices->state();
    }
    diagnostics.drop(); // the result reports it
    return state;
}

/// A device as an option of the shell's command line.
std::string optionFor(const std::string& device) {
    std::string text = "--backend 'voices:device=\"";
    for (const char c : device) {
        text += c == '"' || c == '\\' ? std::string("\\") + c
                : c == '\''           ? std::string("'\\''")
                                      : std::string(1, c);
    }
    return text + "\"'";
}

CheckResult checkDefault(const Orvel::BackendState& state) {
    CheckResult result{"sound output", Verdict::Ok, {}, {}, {}};
    if (!state.working) {
        result.verdict = Verdict::Problem;
        result.text = "no sound device can be opened";
        result.advice =
            "check that one is connected, that no other program uses it exclusively, and that you "
            "have access to it (group audio); orvel render and orvel serve --render need none";
        return result;
    }
    result.text = "\"" + state.device + "\" is used for playback";
    if (goesNowhere(state.device)) {
        result.verdict = Verdict::Warning;
        result.advice = "it makes no sound: connect a device, or check ALSOFT_DRIVERS and "
                        "\"drivers\" in OpenAL's configuration file";
    }
    return result;
}

CheckResult checkTiming(ALCdevice* device, const Orvel::BackendState& state) {
    const int rate = integer(device, ALC_FREQUENCY);
    const int refresh = integer(device, ALC_REFRESH);
    const double delay = state.latency.value_or(0.0) * 1000.0;
    const double period = refresh > 0 ? 1000.0 / refresh : 0.0;
    CheckResult result{"sound timing", Verdict::Ok, {}, {}, {}};
    result.text = std::to_string(rate) + " Hz, mixed every " + roundedMilliseconds(period) +
                  ", a change of the scene leaves it after " + roundedMilliseconds(delay);
    result.values = {{"rateHz", rate}, {"periodMs", period}, {"latencyMs", delay}};
    if (std::max(delay, period) > kLongLatency) {
        result.verdict = Verdict::Warning;
        result.advice = "changes are heard late: lower \"period_size\" and \"periods\" in "
                        "OpenAL's configuration file";
    }
    return result;
}

CheckResult checkVoices(const Orvel::BackendState& state) {
    const std::size_t count = state.voicesAllowed;
    CheckResult result{
        "sounds at once",
        Verdict::Ok,
        std::to_string(count) + " emitters, the loudest, can be mixed at the same time; more with "
                                "--backend voices:voices=N, up to 1024",
        {},
        {{"sources", static_cast<double>(count)}}};
    if (count < kFewVoices) {
        result.verdict = count == 0 ? Verdict::Problem : Verdict::Warning;
        result.advice = "raise \"sources\" in OpenAL's configuration file";
    }
    return result;
}

} // namespace

CheckResults checkSound(bool verbose) {
    std::optional<HiddenStandardError> hidden;
    if (!verbose) {
        hidden.emplace();
    }
    CheckResults results;
    const Orvel::BackendState state = defaultState(verbose);
    results.push_back(checkDefault(state));
    if (state.working) {
        if (const Device device(alcOpenDevice(nullptr)); device != nullptr) {
            const Context context(alcCreateContext(device.get(), nullptr)); // starts the mixer
            results.push_back(checkTiming(device.get(), state));
        }
        results.push_back(checkVoices(state));
    }
    // The default device is closed by now, so that it can be opened by name.
    for (const std::string& name : deviceNames()) {
        const Device device(alcOpenDevice(name.c_str()));
        results.push_back(
            {"sound device",
             device == nullptr ? Verdict::Warning : Verdict::Ok,
             "\"" + name + "\" " +
                 (device == nullptr ? "does not open" : "opens: " + optionFor(name)),
             device == nullptr ? "another program may use it exclusively; this does no harm as "
                                 "long as the device used for playback opens"
                               : "",
             {}});
    }
    return results;
}

CheckResult checkFormats() {
    const std::set<std::string> extensions = Orvel::SoundFile::extensions();
    // libsndfile lists Ogg under the extension of one of its codecs.
    const bool ogg = extensions.contains("oga") || extensions.contains("ogg");
    std::string missing;
    for (const char* wanted : {"wav", "aiff", "flac"}) {
        missing += extensions.contains(wanted) ? "" : std::string(" ") + wanted;
    }
    missing += ogg ? "" : " ogg";
    std::string list;
    for (const std::string& extension : extensions) {
        list += (list.empty() ? "" : " ") + extension;
    }
    return {
        "file formats",
        missing.empty() ? Verdict::Ok : Verdict::Warning,
        "readable sound files: " + list,
        missing.empty() ? ""
                        : "not readable:" + missing +
                              "; convert such files, or install a libsndfile that supports them",
        {{"formats", static_cast<double>(extensions.size())}}};
}

} // namespace OrvelTool

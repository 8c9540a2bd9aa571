#include "doctor/SoundCheck.h"

#include "process/HiddenStandardError.h"

#include <Orvel/SoundFile.h>

#include <AL/al.h>
#include <AL/alc.h>
#include <AL/alext.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace OrvelTool {

namespace {

using Verdict = Finding::Verdict;

constexpr std::size_t kMaxDevices = 32;
constexpr std::size_t kMaxSources = 4096; // higher counts are not measured
constexpr std::size_t kFewSources = 64;
constexpr double kLongLatency = 100.0; // in ms

struct CloseDevice {
    void operator()(ALCdevice* device) const { alcCloseDevice(device); }
};
using Device = std::unique_ptr<ALCdevice, CloseDevice>;
struct DestroyContext {
    void operator()(ALCcontext* context) const {
        alcMakeContextCurrent(nullptr);
        alcDestroyContext(context);
    }
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

std::string nameOf(ALCdevice* device) {
    const char* name = alcGetString(device, ALC_ALL_DEVICES_SPECIFIER);
    return name == nullptr ? "unnamed" : name;
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

/// In milliseconds; negative if the device does not support the query.
double latency(ALCdevice* device) {
    if (alcIsExtensionPresent(device, "ALC_SOFT_device_clock") != ALC_TRUE) {
        return -1.0;
    }
    const auto get =
        reinterpret_cast<LPALCGETINTEGER64VSOFT>(alcGetProcAddress(device, "alcGetInteger64vSOFT"));
    if (get == nullptr) {
        return -1.0;
    }
    ALCint64SOFT nanoseconds = -1;
    get(device, ALC_DEVICE_LATENCY_SOFT, 1, &nanoseconds);
    return static_cast<double>(nanoseconds) / 1e6;
}

std::size_t countSources() {
    std::vector<ALuint> sources;
    alGetError();
    while (sources.size() < kMaxSources) {
        ALuint source = 0;
        alGenSources(1, &source);
        if (alGetError() != AL_NO_ERROR) {
            break;
        }
        sources.push_back(source);
    }
    alDeleteSources(static_cast<ALsizei>(sources.size()), sources.data());
    return sources.size();
}

Finding checkDefault(ALCdevice* device) {
    Finding finding{"sound output", Verdict::Ok, {}, {}, {}};
    if (device == nullptr) {
        finding.verdict = Verdict::Problem;
        finding.text = "no sound device can be opened";
        finding.advice =
            "check that one is connected, that no other program uses it exclusively, and that you "
            "have access to it (group audio); orvel render and orvel serve --render need none";
        return finding;
    }
    const std::string name = nameOf(device);
    finding.text = "\"" + name + "\" is used for playback";
    if (goesNowhere(name)) {
        finding.verdict = Verdict::Warning;
        finding.advice = "it makes no sound: connect a device, or check ALSOFT_DRIVERS and "
                         "\"drivers\" in OpenAL's configuration file";
    }
    return finding;
}

Finding checkTiming(ALCdevice* device) {
    const int rate = integer(device, ALC_FREQUENCY);
    const int refresh = integer(device, ALC_REFRESH);
    const double delay = latency(device);
    const double period = refresh > 0 ? 1000.0 / refresh : 0.0;
    Finding finding{"sound timing", Verdict::Ok, {}, {}, {}};
    finding.text = std::to_string(rate) + " Hz, mixed every " + roundedMilliseconds(period) +
                   (delay >= 0.0 ? ", latency " + roundedMilliseconds(delay) : "");
    finding.values = {{"rateHz", rate}, {"periodMs", period}};
    if (delay >= 0.0) {
        finding.values.emplace_back("latencyMs", delay);
    }
    if (std::max(delay, period) > kLongLatency) {
        finding.verdict = Verdict::Warning;
        finding.advice = "changes are heard late: lower \"period_size\" and \"periods\" in "
                         "OpenAL's configuration file";
    }
    return finding;
}

Finding checkSources() {
    const std::size_t count = countSources();
    Finding finding{
        "sounds at once",
        Verdict::Ok,
        (count == kMaxSources ? "at least " : "") + std::to_string(count) +
            " emitters can play at the same time",
        {},
        {{"sources", static_cast<double>(count)}}};
    if (count < kFewSources) {
        finding.verdict = count == 0 ? Verdict::Problem : Verdict::Warning;
        finding.advice = "raise \"sources\" in OpenAL's configuration file";
    }
    return finding;
}

} // namespace

Findings checkSound(bool verbose) {
    std::optional<HiddenStandardError> hidden;
    if (!verbose) {
        hidden.emplace();
    }
    Findings findings;
    {
        const Device device(alcOpenDevice(nullptr));
        findings.push_back(checkDefault(device.get()));
        const Context context(
            device == nullptr ? nullptr : alcCreateContext(device.get(), nullptr));
        if (context != nullptr && alcMakeContextCurrent(context.get()) == ALC_TRUE) {
            findings.push_back(checkTiming(device.get()));
            findings.push_back(checkSources());
        } else if (device != nullptr) {
            findings.front().verdict = Verdict::Problem;
            findings.front().advice =
                "it opens but cannot be used for playback; check the installation of OpenAL Soft";
        }
    }
    // The default device is closed by now, so that it can be opened by name.
    for (const std::string& name : deviceNames()) {
        const Device device(alcOpenDevice(name.c_str()));
        findings.push_back(
            {"sound device",
             device == nullptr ? Verdict::Warning : Verdict::Ok,
             "\"" + name + "\" " + (device == nullptr ? "does not open" : "opens"),
             device == nullptr ? "another program may use it exclusively; this does no harm as "
                                 "long as the device used for playback opens"
                               : "",
             {}});
    }
    return findings;
}

Finding checkFormats() {
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

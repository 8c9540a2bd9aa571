#include <Orvel/detail/voices/VoiceOutput.h>

#include <Orvel/detail/Report.h>
#include <Orvel/detail/al/Loopback.h>
#include <Orvel/detail/voices/OpenALSettings.h>

#include <AL/alext.h>
#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace Orvel::detail {

namespace {

template <class Function>
Function procedure(const char* name) {
    return reinterpret_cast<Function>(alcGetProcAddress(nullptr, name));
}

ALCcontext* threadContext() {
    static const auto get = procedure<PFNALCGETTHREADCONTEXTPROC>("alcGetThreadContext");
    return get();
}

void setThreadContext(ALCcontext* context) {
    static const auto set = procedure<PFNALCSETTHREADCONTEXTPROC>("alcSetThreadContext");
    set(context);
}

ALCint integerOf(ALCdevice* device, ALCenum property) {
    ALCint value = 0;
    alcGetIntegerv(device, property, 1, &value);
    return value;
}

template <std::size_t count>
std::array<ALCint64SOFT, count> integers(ALCdevice* device, ALCenum property) {
    static const auto get = procedure<LPALCGETINTEGER64VSOFT>("alcGetInteger64vSOFT");
    std::array<ALCint64SOFT, count> values{};
    get(device, property, static_cast<ALCsizei>(count), values.data());
    return values;
}

/// Whether this OpenAL library has what voices need; reports what is missing.
bool isSufficient(ALCdevice* device) {
    for (const char* extension :
         {"ALC_EXT_thread_local_context", "ALC_SOFT_device_clock", "ALC_EXT_disconnect"}) {
        if (alcIsExtensionPresent(device, extension) != ALC_TRUE) {
            ORVEL_REPORT(
                Fatal, about(Diagnostic::Code::NoDevice),
                "This OpenAL library has no %s; the kind \"voices\" needs OpenAL Soft\n",
                extension);
            return false;
        }
    }
    return true;
}

/// Twice as many AL sources as voices, see VoicePool.
ALCint sourcesFor(std::size_t voices) {
    return static_cast<ALCint>(2 * voices);
}

/// The loopback device's format of so many channels.
ALCint formatOf(unsigned channels) {
    switch (channels) {
    case 1:
        return ALC_MONO_SOFT;
    case 4:
        return ALC_QUAD_SOFT;
    case 6:
        return ALC_5POINT1_SOFT;
    case 7:
        return ALC_6POINT1_SOFT;
    case 8:
        return ALC_7POINT1_SOFT;
    default:
        return ALC_STEREO_SOFT;
    }
}

/// The names of the HRTF data sets in the order of their numbers.
std::vector<std::string> hrtfsOf(ALCdevice* device) {
    std::vector<std::string> names;
    if (alcIsExtensionPresent(device, "ALC_SOFT_HRTF") == ALC_TRUE) {
        static const auto nameOf = procedure<LPALCGETSTRINGISOFT>("alcGetStringiSOFT");
        const ALCint count = integerOf(device, ALC_NUM_HRTF_SPECIFIERS_SOFT);
        for (ALCint i = 0; i < count; ++i) {
            names.emplace_back(nameOf(device, ALC_HRTF_SPECIFIER_SOFT, i));
        }
    }
    return names;
}

} // namespace

VoiceOutput::VoiceOutput(ALCdevice* device, const ALCint* attributes)
    : device_(device), context_(alcCreateContext(device, attributes)) {
    if (context_ == nullptr) {
        return;
    }
    rate_ = static_cast<unsigned>(integerOf(device_, ALC_FREQUENCY));
    const ALCint refresh = integerOf(device_, ALC_REFRESH); // 0 on a loopback device
    period_ = refresh > 0 ? static_cast<std::int64_t>(rate_) / refresh : 1;
    const char* name = alcGetString(device_, ALC_ALL_DEVICES_SPECIFIER);
    name_ = name == nullptr ? "" : name;
}

VoiceOutput::~VoiceOutput() {
    if (context_ != nullptr) {
        if (threadContext() == context_) {
            setThreadContext(nullptr);
        }
        alcDestroyContext(context_);
    }
    alcCloseDevice(device_);
}

std::unique_ptr<VoiceOutput>
VoiceOutput::on(ALCdevice* device, const Settings& settings, std::vector<ALCint> attributes) {
    if (device == nullptr) {
        return nullptr;
    }
    if (!isSufficient(device)) {
        alcCloseDevice(device);
        return nullptr;
    }
    std::string problem;
    std::string hrtf;
    const bool binaural = settings.layout != nullptr && settings.layout->isBinaural;
    if (settings.layout != nullptr) {
        attributes.insert(attributes.end(), {ALC_HRTF_SOFT, binaural ? ALC_TRUE : ALC_FALSE});
    }
    if (binaural && !settings.hrtf.empty()) {
        const unsigned rate = settings.rate > 0
                                  ? settings.rate
                                  : static_cast<unsigned>(integerOf(device, ALC_FREQUENCY));
        const auto names = hrtfsOf(device);
        auto found = std::ranges::find(names, settings.hrtf + '-' + std::to_string(rate));
        if (found == names.end()) {
            found = std::ranges::find(names, settings.hrtf);
        }
        if (found == names.end()) {
            problem = "There is no HRTF \"" + settings.hrtf + "\"; expected one of:";
            for (const std::string& name : names) {
                problem += " \"" + name + '"';
            }
        } else {
            hrtf = *found;
            attributes.insert(
                attributes.end(), {ALC_HRTF_ID_SOFT, static_cast<ALCint>(found - names.begin())});
        }
    }
    attributes.push_back(0);
    std::unique_ptr<VoiceOutput> output(new VoiceOutput(device, attributes.data()));
    if (output->context_ == nullptr) {
        return nullptr;
    }
    if (binaural && problem.empty() && integerOf(device, ALC_HRTF_SOFT) != ALC_TRUE) {
        problem = "No HRTF data set fits this output of " + std::to_string(output->rate_) +
                  " Hz; expected stereo and a rate of one of the data sets";
    } else if (!hrtf.empty() && hrtf != alcGetString(device, ALC_HRTF_SPECIFIER_SOFT)) {
        problem = "The HRTF \"" + hrtf + "\" cannot be used at " + std::to_string(output->rate_) +
                  " Hz; using \"" + alcGetString(device, ALC_HRTF_SPECIFIER_SOFT) + '"';
    }
    output->problem_ = std::move(problem);
    return output;
}

std::unique_ptr<VoiceOutput> VoiceOutput::openDevice(const Settings& settings) {
    std::vector<ALCint> attributes{
        ALC_MONO_SOURCES, sourcesFor(settings.voices) - 1, ALC_STEREO_SOURCES, 1};
    if (settings.rate > 0) {
        attributes.insert(attributes.end(), {ALC_FREQUENCY, static_cast<ALCint>(settings.rate)});
    }
    return on(
        alcOpenDevice(settings.name.empty() ? nullptr : settings.name.c_str()), settings,
        std::move(attributes));
}

std::unique_ptr<VoiceOutput> VoiceOutput::openOffline(const Settings& settings) {
    Settings chosen = settings;
    if (chosen.layout == nullptr) {
        chosen.layout = kOutputLayouts.data();
    }
    return on(
        openLoopback(), chosen,
        {ALC_FORMAT_CHANNELS_SOFT, formatOf(chosen.layout->channels), ALC_FORMAT_TYPE_SOFT,
         ALC_FLOAT_SOFT, ALC_FREQUENCY, static_cast<ALCint>(chosen.rate), ALC_MONO_SOURCES,
         sourcesFor(chosen.voices) - 1, ALC_STEREO_SOURCES, 1});
}

std::vector<std::string> VoiceOutput::hrtfNames() {
    std::vector<std::string> names;
    if (ALCdevice* device = openLoopback()) {
        names = hrtfsOf(device);
        alcCloseDevice(device);
    }
    return names;
}

std::string VoiceOutput::latencyProblem(const Settings& settings) const {
    const unsigned wanted = OpenALSettings::periodFor(settings.latency, rate_);
    // A device may round.
    if (settings.latency == 0 || period_ <= std::int64_t{2} * wanted) {
        return {};
    }
    return "The device does not have latency=" + std::to_string(settings.latency) + ": it mixes " +
           std::to_string(period_) + " frames at a time instead of " + std::to_string(wanted) +
           "; the sound server decides, or OpenAL was in use before";
}

bool VoiceOutput::connected() const {
    return integerOf(device_, ALC_CONNECTED) == ALC_TRUE;
}

std::int64_t VoiceOutput::clock() const {
    return framesOf(integers<1>(device_, ALC_DEVICE_CLOCK_SOFT)[0]);
}

VoiceOutput::Position VoiceOutput::position() const {
    const auto values = integers<2>(device_, ALC_DEVICE_CLOCK_LATENCY_SOFT);
    return {framesOf(values[0]), std::chrono::nanoseconds(values[1])};
}

std::int64_t VoiceOutput::framesOf(std::int64_t nanoseconds) const {
    return std::llround(static_cast<double>(nanoseconds) * 1e-9 * rate_);
}

void VoiceOutput::render(float* samples, unsigned frames) {
    renderLoopback(device_, samples, frames);
}

VoiceOutput::Use::Use(const VoiceOutput* output)
    : used_(output != nullptr), before_(used_ ? threadContext() : nullptr) {
    if (used_) {
        setThreadContext(output->context_);
    }
}

VoiceOutput::Use::~Use() {
    if (used_) {
        setThreadContext(before_);
    }
}

} // namespace Orvel::detail

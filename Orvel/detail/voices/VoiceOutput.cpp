#include <Orvel/detail/voices/VoiceOutput.h>

#include <Orvel/detail/Report.h>
#include <Orvel/detail/al/Loopback.h>

#include <AL/alext.h>
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

std::unique_ptr<VoiceOutput> VoiceOutput::on(ALCdevice* device, const ALCint* attributes) {
    if (device == nullptr) {
        return nullptr;
    }
    if (!isSufficient(device)) {
        alcCloseDevice(device);
        return nullptr;
    }
    std::unique_ptr<VoiceOutput> output(new VoiceOutput(device, attributes));
    return output->context_ == nullptr ? nullptr : std::move(output);
}

std::unique_ptr<VoiceOutput>
VoiceOutput::openDevice(const std::string& name, unsigned rate, std::size_t voices) {
    std::vector<ALCint> attributes{ALC_MONO_SOURCES, sourcesFor(voices) - 1, ALC_STEREO_SOURCES, 1};
    if (rate > 0) {
        attributes.insert(attributes.end(), {ALC_FREQUENCY, static_cast<ALCint>(rate)});
    }
    attributes.push_back(0);
    return on(alcOpenDevice(name.empty() ? nullptr : name.c_str()), attributes.data());
}

std::unique_ptr<VoiceOutput> VoiceOutput::openOffline(unsigned rate, std::size_t voices) {
    return on(openLoopback(), loopbackAttributes(rate, sourcesFor(voices)).data());
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

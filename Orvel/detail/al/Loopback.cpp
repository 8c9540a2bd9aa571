#include <Orvel/detail/al/Loopback.h>

#include <Orvel/detail/Report.h>

#include <AL/alext.h>

namespace Orvel::detail {

ALCdevice* openLoopback() {
    if (alcIsExtensionPresent(nullptr, "ALC_SOFT_loopback") != ALC_TRUE) {
        ORVEL_REPORT(
            Fatal, about(Diagnostic::Code::NoDevice),
            "This OpenAL library does not support loopback devices\n");
        return nullptr;
    }
    static const auto open = reinterpret_cast<LPALCLOOPBACKOPENDEVICESOFT>(
        alcGetProcAddress(nullptr, "alcLoopbackOpenDeviceSOFT"));
    return open(nullptr);
}

std::array<ALCint, 13> loopbackAttributes(unsigned rate, long sources) {
    return {
        ALC_FORMAT_CHANNELS_SOFT,
        ALC_STEREO_SOFT,
        ALC_FORMAT_TYPE_SOFT,
        ALC_FLOAT_SOFT,
        ALC_FREQUENCY,
        static_cast<ALCint>(rate),
        ALC_HRTF_SOFT,
        ALC_FALSE,
        ALC_MONO_SOURCES,
        static_cast<ALCint>(sources - 1),
        ALC_STEREO_SOURCES,
        1,
        0};
}

void renderLoopback(ALCdevice* device, float* samples, unsigned frames) {
    static const auto render = reinterpret_cast<LPALCRENDERSAMPLESSOFT>(
        alcGetProcAddress(nullptr, "alcRenderSamplesSOFT"));
    render(device, samples, static_cast<ALCsizei>(frames));
}

} // namespace Orvel::detail

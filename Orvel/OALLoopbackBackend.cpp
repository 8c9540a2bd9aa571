#include <Orvel/OALLoopbackBackend.h>

#include <Orvel/detail/KindParams.h>
#include <Orvel/detail/Report.h>
#include <Orvel/detail/al/OALDevice.h>

#include <AL/alc.h>
#include <AL/alext.h>
#include <array>

namespace Orvel {

namespace {

class LoopbackDevice : public detail::OALDevice {
public:
    ALCdevice* open(const Config::ParamBag& params) override {
        const auto read = detail::readParams(params, detail::kLoopbackParams, "OALLoopbackBackend");
        rate = static_cast<unsigned>(read.number("rate"));
        // All attributes that could otherwise come from the user's OpenAL settings and change the
        // sound.
        attributes_ = {
            ALC_FORMAT_CHANNELS_SOFT,
            ALC_STEREO_SOFT,
            ALC_FORMAT_TYPE_SOFT,
            ALC_FLOAT_SOFT,
            ALC_FREQUENCY,
            static_cast<ALCint>(rate),
            ALC_HRTF_SOFT,
            ALC_FALSE,
            ALC_MONO_SOURCES,
            static_cast<ALCint>(read.number("sources") - 1),
            ALC_STEREO_SOURCES,
            1,
            0};
        if (alcIsExtensionPresent(nullptr, "ALC_SOFT_loopback") != ALC_TRUE) {
            ORVEL_REPORT(
                Fatal, detail::about(Diagnostic::Code::NoDevice),
                "This OpenAL library does not support loopback devices\n");
            return nullptr;
        }
        const auto openLoopback = reinterpret_cast<LPALCLOOPBACKOPENDEVICESOFT>(
            alcGetProcAddress(nullptr, "alcLoopbackOpenDeviceSOFT"));
        renderSamples = reinterpret_cast<LPALCRENDERSAMPLESSOFT>(
            alcGetProcAddress(nullptr, "alcRenderSamplesSOFT"));
        return openLoopback(nullptr);
    }

    [[nodiscard]] const ALCint* attributes() const override { return attributes_.data(); }

    unsigned rate = OALLoopbackBackend::kDefaultRate;
    LPALCRENDERSAMPLESSOFT renderSamples = nullptr;

private:
    std::array<ALCint, 13> attributes_{};
};

const LoopbackDevice& asLoopback(const detail::OALDevice& device) {
    return static_cast<const LoopbackDevice&>(device);
}

} // namespace

OALLoopbackBackend::OALLoopbackBackend(World& world, const char* params)
    : OALBackend(world, params, std::make_unique<LoopbackDevice>()) {}

unsigned OALLoopbackBackend::rate() const noexcept {
    return asLoopback(device()).rate;
}

bool OALLoopbackBackend::render(float* samples, unsigned frames) {
    if (!working()) {
        return false;
    }
    const LoopbackDevice& loopback = asLoopback(device());
    loopback.renderSamples(loopback.device, samples, static_cast<ALCsizei>(frames));
    return true;
}

BackendType* OALLoopbackBackend::type() {
    return registerType();
}

Backend* OALLoopbackBackend::createMethod(World& world, const char* params) {
    return new OALLoopbackBackend(world, params);
}

BackendType* OALLoopbackBackend::registerType() {
    static BackendType type(
        "loopback", &OALLoopbackBackend::createMethod, "renders offline; used by \"orvel render\"",
        detail::kLoopbackParams);
    return &type;
}

} // namespace Orvel

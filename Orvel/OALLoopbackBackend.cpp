#include <Orvel/OALLoopbackBackend.h>

#include <Orvel/detail/Report.h>
#include <Orvel/detail/al/OALDevice.h>

#include <AL/alc.h>
#include <AL/alext.h>
#include <array>
#include <charconv>
#include <string_view>

namespace Orvel {

namespace {

constexpr unsigned kLowestRate = 8000;
constexpr unsigned kHighestRate = 192000;
// OpenAL Soft's default; it provides fewer only because of its settings.
constexpr unsigned kDefaultSources = 256;
constexpr unsigned kMaxSources = 65536;

unsigned readNumber(
    const Config::ParamBag& params, const char* name, unsigned least, unsigned most,
    unsigned defaultValue) {
    const char* text = params.getParam(name, nullptr);
    if (text == nullptr) {
        return defaultValue;
    }
    const std::string_view view(text);
    unsigned number = 0;
    const auto [end, error] = std::from_chars(view.data(), view.data() + view.size(), number);
    if (error != std::errc() || end != view.data() + view.size() || number < least ||
        number > most) {
        ORVEL_REPORT(
            Warning, detail::about(Diagnostic::Code::Parameter, {}, name, text),
            "Parameter %s is \"%s\", expected %u to %u; %u is used\n", name, text, least, most,
            defaultValue);
        return defaultValue;
    }
    return number;
}

class LoopbackDevice : public detail::OALDevice {
public:
    ALCdevice* open(const Config::ParamBag& params) override {
        rate = readNumber(params, "rate", kLowestRate, kHighestRate, rate);
        const unsigned sources =
            readNumber(params, "sources", kDefaultSources, kMaxSources, kDefaultSources);
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
            static_cast<ALCint>(sources - 1),
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
    static BackendType type("loopback", &OALLoopbackBackend::createMethod);
    return &type;
}

} // namespace Orvel

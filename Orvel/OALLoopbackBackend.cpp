#include <Orvel/OALLoopbackBackend.h>

#include <Orvel/detail/KindParams.h>
#include <Orvel/detail/al/Loopback.h>
#include <Orvel/detail/al/OALDevice.h>

#include <array>

namespace Orvel {

namespace {

class LoopbackDevice : public detail::OALDevice {
public:
    ALCdevice* open(const Config::ParamBag& params) override {
        const auto read = detail::readParams(params, detail::kLoopbackParams, "OALLoopbackBackend");
        rate = static_cast<unsigned>(read.number("rate"));
        attributes_ = detail::loopbackAttributes(rate, read.number("sources"));
        return detail::openLoopback();
    }

    [[nodiscard]] const ALCint* attributes() const override { return attributes_.data(); }

    unsigned rate = OALLoopbackBackend::kDefaultRate;

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
    detail::renderLoopback(device().device, samples, frames);
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

#include <Show/render/FrameSource.h>

#include <Show/scene/LoadedScene.h>

#include <Orvel/BackendState.h>
#include <Orvel/OALLoopbackBackend.h>
#include <Orvel/VoicesBackend.h>

#include <algorithm>

namespace Show {

namespace {

/// OpenAL's number of sources, unless its settings say otherwise, and the parameter's limit.
constexpr std::size_t kUsualSources = 256;
constexpr std::size_t kMaxSources = 65536;

} // namespace

FrameSource::FrameSource(
    Orvel::World& world, const std::string& kind, const std::string& params, unsigned rate,
    std::size_t emitters) {
    // The last of equal keys counts.
    const std::string frequency = " rate=" + std::to_string(rate);
    if (kind == "voices") {
        Orvel::VoicesBackend::registerType();
        const std::string line = "voices=" + std::to_string(voicesFor(emitters)) + ' ' + params +
                                 frequency + " offline=yes";
        voices_ = dynamic_cast<Orvel::VoicesBackend*>(world.addBackend("voices", line.c_str()));
        return;
    }
    Orvel::OALLoopbackBackend::registerType();
    const std::string line =
        "sources=" + std::to_string(std::clamp(emitters, kUsualSources, kMaxSources)) + ' ' +
        params + frequency;
    loopback_ =
        dynamic_cast<Orvel::OALLoopbackBackend*>(world.addBackend("loopback", line.c_str()));
}

bool FrameSource::isWorking() const {
    return voices_ != nullptr ? voices_->state().working
                              : loopback_ != nullptr && loopback_->working();
}

unsigned FrameSource::rate() const {
    return voices_ != nullptr ? voices_->rate() : loopback_->rate();
}

const Orvel::OutputLayout& FrameSource::layout() const {
    return voices_ != nullptr ? voices_->layout() : Orvel::kOutputLayouts[0];
}

void FrameSource::render(float* samples, unsigned frames) {
    if (voices_ != nullptr) {
        voices_->render(samples, frames);
    } else {
        loopback_->render(samples, frames);
    }
}

} // namespace Show

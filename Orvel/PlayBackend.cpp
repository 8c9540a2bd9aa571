#include <Orvel/PlayBackend.h>

#include <Corvid/URL.h>
#include <Orvel/Emitter.h>
#include <Orvel/Source.h>

#include <iostream>

namespace Orvel {

namespace {

/// Whether a state starts playback. An unknown state is reported; `place` distinguishes the two
/// reports.
bool startsPlaying(WorldPart::State state, int place) {
    if (state == WorldPart::PLAY) {
        return true;
    }
    if (state != WorldPart::PAUSE && state != WorldPart::STOP) {
        std::cout << "ERROR: Unknown emitter state in Orvel/PlayBackend:" << place << std::endl;
    }
    return false;
}

/// `params` is null in a copy of a back end, which has no command.
void writeCommand(const Config::ParamBag* params, const Source& source) {
    if (source.dataKind() != Source::URL_SD) {
        std::cout << "Invalid SourceData" << std::endl;
        return;
    }
    const std::string url = source.url() == nullptr ? std::string() : source.url()->text();
    const char* command = params == nullptr ? "" : params->getParam("command", "");
    std::cout << "systemCall: " << command << ' ' << url << " &" << std::endl;
}

} // namespace

PlayBackend::PlayBackend(World& world, const char* params) : Backend(world, params) {}

PlayBackend::PlayBackend(const PlayBackend&) = default;

void PlayBackend::setSourceState(Source& source) {
    if (startsPlaying(source.state(), 168)) {
        writeCommand(params(), source);
    }
}

void PlayBackend::setEmitterState(Emitter& emitter) {
    const Source* source = emitter.source();
    if (source != nullptr && startsPlaying(emitter.state(), 269)) {
        writeCommand(params(), *source);
    }
}

BackendType* PlayBackend::type() {
    return &_type;
}

Backend* PlayBackend::createMethod(World& world, const char* params) {
    return new PlayBackend(world, params);
}

} // namespace Orvel

#include <Show/scene/SceneSources.h>

#include <Show/scene/LoadedScene.h>

#include <Corvid/URL.h>
#include <Orvel/Backend.h>
#include <Orvel/BackendType.h>
#include <Orvel/Diagnostic.h>
#include <Orvel/OALBackend.h>
#include <Orvel/VoicesBackend.h>

#include <algorithm>
#include <array>
#include <string>
#include <utility>
#include <variant>

namespace Show {

namespace {

/// Whether each back end that plays or sends the world's sounds reads files while they play. An
/// application's own kind may need samples.
bool streamsFiles(const Orvel::World& world) {
    bool streams = false;
    for (Orvel::Backend* backend : world.backends()) {
        constexpr std::array kWithoutSound{"log", "monitor", "silent", "web"};
        const Orvel::BackendType* type = backend->type();
        if (dynamic_cast<const Orvel::VoicesBackend*>(backend) != nullptr) {
            streams = true;
        } else if (
            type == nullptr ||
            std::ranges::find(kWithoutSound, type->name()) == kWithoutSound.end()) {
            return false;
        }
    }
    return streams;
}

/// False if its path cannot be expressed as a URL.
bool givePath(Orvel::Source& source, const SoundFile& file) {
    using Channels = Orvel::SoundFile::Channels;
    try {
        source.setDataFromURL(file.path, file.keepChannels ? Channels::Keep : Channels::Mono);
        return true;
    } catch (const Corvid::URLImpl::Exception&) {
        return false;
    }
}

} // namespace

void nameSound(const Orvel::Source& source, const Sound& sound) {
    for (Orvel::Backend* backend : source.world().backends()) {
        if (auto* names = dynamic_cast<SoundNames*>(backend)) {
            names->setSoundName(source.id(), nameOf(sound));
        }
    }
}

void giveUrl(Orvel::Source& source, const std::string& url) {
    source.setDataFromURL(url);
    Orvel::OALBackend::reportRefusedSound(source);
}

void giveSound(
    const SoundBank& sounds, Orvel::Source& source, const Sound& sound, LongFiles longFiles) {
    nameSound(source, sound);
    if (const auto* url = std::get_if<SoundUrl>(&sound)) {
        giveUrl(source, url->text);
        return;
    }
    if (sounds.isLong(sound) && (longFiles == LongFiles::ByPath || streamsFiles(source.world())) &&
        givePath(source, std::get<SoundFile>(sound))) {
        return;
    }
    std::string fault;
    if (const Samples* samples = sounds.decode(sound, fault)) {
        samples->giveTo(source);
    } else if (!fault.empty()) {
        Orvel::Diagnostic failure{
            .code = Orvel::Diagnostic::Code::CannotPlay, .level = Orvel::Log::Level::Fatal};
        failure.part = source;
        failure.text = std::move(fault);
        Orvel::report(failure, "orvel");
    }
}

GiveSound
giveLength(const SoundBank& sounds, std::function<void(int source, double seconds)> setLength) {
    return [&sounds, setLength = std::move(setLength)](Orvel::Source& source, const Sound& sound) {
        const auto shape = sounds.shapeOf(sound);
        setLength(source.id(), shape ? shape->seconds : 0.0);
    };
}

void createSource(Orvel::World& world, const SourceSpec& spec, const GiveSound& give) {
    if (Orvel::Source* source = world.createSource(spec.id)) {
        give(*source, spec.sound);
        source->setParam(spec.loop, spec.pitch);
    }
}

} // namespace Show

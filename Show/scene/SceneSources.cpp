#include <Show/scene/SceneSources.h>

#include <Show/scene/LoadedScene.h>

#include <Orvel/Backend.h>
#include <Orvel/OALBackend.h>

#include <variant>

namespace Show {

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

void giveSound(const SoundBank& sounds, Orvel::Source& source, const Sound& sound) {
    nameSound(source, sound);
    if (const auto* url = std::get_if<SoundUrl>(&sound)) {
        giveUrl(source, url->text);
    } else if (const Samples* samples = sounds.find(sound)) {
        samples->giveTo(source);
    }
}

void createSource(Orvel::World& world, const SourceSpec& spec, const GiveSound& give) {
    if (Orvel::Source* source = world.createSource(spec.id)) {
        give(*source, spec.sound);
        source->setParam(spec.loop, spec.pitch);
    }
}

} // namespace Show

#include <Orvel/detail/voices/Reverb.h>

#include <AL/efx-presets.h>
#include <AL/al.h>
#include <AL/alext.h>
#include <AL/efx.h>
#include <algorithm>
#include <array>

namespace Orvel::detail {

namespace {

struct Preset {
    const char* name;
    EFXEAXREVERBPROPERTIES values;
};

const Preset kPresets[] = {
    {"generic", EFX_REVERB_PRESET_GENERIC},
    {"paddedcell", EFX_REVERB_PRESET_PADDEDCELL},
    {"room", EFX_REVERB_PRESET_ROOM},
    {"bathroom", EFX_REVERB_PRESET_BATHROOM},
    {"livingroom", EFX_REVERB_PRESET_LIVINGROOM},
    {"stoneroom", EFX_REVERB_PRESET_STONEROOM},
    {"auditorium", EFX_REVERB_PRESET_AUDITORIUM},
    {"concerthall", EFX_REVERB_PRESET_CONCERTHALL},
    {"cave", EFX_REVERB_PRESET_CAVE},
    {"arena", EFX_REVERB_PRESET_ARENA},
    {"hangar", EFX_REVERB_PRESET_HANGAR},
    {"carpetedhallway", EFX_REVERB_PRESET_CARPETEDHALLWAY},
    {"hallway", EFX_REVERB_PRESET_HALLWAY},
    {"stonecorridor", EFX_REVERB_PRESET_STONECORRIDOR},
    {"alley", EFX_REVERB_PRESET_ALLEY},
    {"forest", EFX_REVERB_PRESET_FOREST},
    {"city", EFX_REVERB_PRESET_CITY},
    {"mountains", EFX_REVERB_PRESET_MOUNTAINS},
    {"quarry", EFX_REVERB_PRESET_QUARRY},
    {"plain", EFX_REVERB_PRESET_PLAIN},
    {"parkinglot", EFX_REVERB_PRESET_PARKINGLOT},
    {"sewerpipe", EFX_REVERB_PRESET_SEWERPIPE},
    {"underwater", EFX_REVERB_PRESET_UNDERWATER},
    {"drugged", EFX_REVERB_PRESET_DRUGGED},
    {"dizzy", EFX_REVERB_PRESET_DIZZY},
    {"psychotic", EFX_REVERB_PRESET_PSYCHOTIC},
    {"castle-smallroom", EFX_REVERB_PRESET_CASTLE_SMALLROOM},
    {"castle-shortpassage", EFX_REVERB_PRESET_CASTLE_SHORTPASSAGE},
    {"castle-mediumroom", EFX_REVERB_PRESET_CASTLE_MEDIUMROOM},
    {"castle-largeroom", EFX_REVERB_PRESET_CASTLE_LARGEROOM},
    {"castle-longpassage", EFX_REVERB_PRESET_CASTLE_LONGPASSAGE},
    {"castle-hall", EFX_REVERB_PRESET_CASTLE_HALL},
    {"castle-cupboard", EFX_REVERB_PRESET_CASTLE_CUPBOARD},
    {"castle-courtyard", EFX_REVERB_PRESET_CASTLE_COURTYARD},
    {"castle-alcove", EFX_REVERB_PRESET_CASTLE_ALCOVE},
    {"factory-smallroom", EFX_REVERB_PRESET_FACTORY_SMALLROOM},
    {"factory-shortpassage", EFX_REVERB_PRESET_FACTORY_SHORTPASSAGE},
    {"factory-mediumroom", EFX_REVERB_PRESET_FACTORY_MEDIUMROOM},
    {"factory-largeroom", EFX_REVERB_PRESET_FACTORY_LARGEROOM},
    {"factory-longpassage", EFX_REVERB_PRESET_FACTORY_LONGPASSAGE},
    {"factory-hall", EFX_REVERB_PRESET_FACTORY_HALL},
    {"factory-cupboard", EFX_REVERB_PRESET_FACTORY_CUPBOARD},
    {"factory-courtyard", EFX_REVERB_PRESET_FACTORY_COURTYARD},
    {"factory-alcove", EFX_REVERB_PRESET_FACTORY_ALCOVE},
    {"icepalace-smallroom", EFX_REVERB_PRESET_ICEPALACE_SMALLROOM},
    {"icepalace-shortpassage", EFX_REVERB_PRESET_ICEPALACE_SHORTPASSAGE},
    {"icepalace-mediumroom", EFX_REVERB_PRESET_ICEPALACE_MEDIUMROOM},
    {"icepalace-largeroom", EFX_REVERB_PRESET_ICEPALACE_LARGEROOM},
    {"icepalace-longpassage", EFX_REVERB_PRESET_ICEPALACE_LONGPASSAGE},
    {"icepalace-hall", EFX_REVERB_PRESET_ICEPALACE_HALL},
    {"icepalace-cupboard", EFX_REVERB_PRESET_ICEPALACE_CUPBOARD},
    {"icepalace-courtyard", EFX_REVERB_PRESET_ICEPALACE_COURTYARD},
    {"icepalace-alcove", EFX_REVERB_PRESET_ICEPALACE_ALCOVE},
    {"spacestation-smallroom", EFX_REVERB_PRESET_SPACESTATION_SMALLROOM},
    {"spacestation-shortpassage", EFX_REVERB_PRESET_SPACESTATION_SHORTPASSAGE},
    {"spacestation-mediumroom", EFX_REVERB_PRESET_SPACESTATION_MEDIUMROOM},
    {"spacestation-largeroom", EFX_REVERB_PRESET_SPACESTATION_LARGEROOM},
    {"spacestation-longpassage", EFX_REVERB_PRESET_SPACESTATION_LONGPASSAGE},
    {"spacestation-hall", EFX_REVERB_PRESET_SPACESTATION_HALL},
    {"spacestation-cupboard", EFX_REVERB_PRESET_SPACESTATION_CUPBOARD},
    {"spacestation-alcove", EFX_REVERB_PRESET_SPACESTATION_ALCOVE},
    {"wooden-smallroom", EFX_REVERB_PRESET_WOODEN_SMALLROOM},
    {"wooden-shortpassage", EFX_REVERB_PRESET_WOODEN_SHORTPASSAGE},
    {"wooden-mediumroom", EFX_REVERB_PRESET_WOODEN_MEDIUMROOM},
    {"wooden-largeroom", EFX_REVERB_PRESET_WOODEN_LARGEROOM},
    {"wooden-longpassage", EFX_REVERB_PRESET_WOODEN_LONGPASSAGE},
    {"wooden-hall", EFX_REVERB_PRESET_WOODEN_HALL},
    {"wooden-cupboard", EFX_REVERB_PRESET_WOODEN_CUPBOARD},
    {"wooden-courtyard", EFX_REVERB_PRESET_WOODEN_COURTYARD},
    {"wooden-alcove", EFX_REVERB_PRESET_WOODEN_ALCOVE},
    {"sport-emptystadium", EFX_REVERB_PRESET_SPORT_EMPTYSTADIUM},
    {"sport-squashcourt", EFX_REVERB_PRESET_SPORT_SQUASHCOURT},
    {"sport-smallswimmingpool", EFX_REVERB_PRESET_SPORT_SMALLSWIMMINGPOOL},
    {"sport-largeswimmingpool", EFX_REVERB_PRESET_SPORT_LARGESWIMMINGPOOL},
    {"sport-gymnasium", EFX_REVERB_PRESET_SPORT_GYMNASIUM},
    {"sport-fullstadium", EFX_REVERB_PRESET_SPORT_FULLSTADIUM},
    {"sport-stadiumtannoy", EFX_REVERB_PRESET_SPORT_STADIUMTANNOY},
    {"prefab-workshop", EFX_REVERB_PRESET_PREFAB_WORKSHOP},
    {"prefab-schoolroom", EFX_REVERB_PRESET_PREFAB_SCHOOLROOM},
    {"prefab-practiseroom", EFX_REVERB_PRESET_PREFAB_PRACTISEROOM},
    {"prefab-outhouse", EFX_REVERB_PRESET_PREFAB_OUTHOUSE},
    {"prefab-caravan", EFX_REVERB_PRESET_PREFAB_CARAVAN},
    {"dome-tomb", EFX_REVERB_PRESET_DOME_TOMB},
    {"pipe-small", EFX_REVERB_PRESET_PIPE_SMALL},
    {"dome-saintpauls", EFX_REVERB_PRESET_DOME_SAINTPAULS},
    {"pipe-longthin", EFX_REVERB_PRESET_PIPE_LONGTHIN},
    {"pipe-large", EFX_REVERB_PRESET_PIPE_LARGE},
    {"pipe-resonant", EFX_REVERB_PRESET_PIPE_RESONANT},
    {"outdoors-backyard", EFX_REVERB_PRESET_OUTDOORS_BACKYARD},
    {"outdoors-rollingplains", EFX_REVERB_PRESET_OUTDOORS_ROLLINGPLAINS},
    {"outdoors-deepcanyon", EFX_REVERB_PRESET_OUTDOORS_DEEPCANYON},
    {"outdoors-creek", EFX_REVERB_PRESET_OUTDOORS_CREEK},
    {"outdoors-valley", EFX_REVERB_PRESET_OUTDOORS_VALLEY},
    {"mood-heaven", EFX_REVERB_PRESET_MOOD_HEAVEN},
    {"mood-hell", EFX_REVERB_PRESET_MOOD_HELL},
    {"mood-memory", EFX_REVERB_PRESET_MOOD_MEMORY},
    {"driving-commentator", EFX_REVERB_PRESET_DRIVING_COMMENTATOR},
    {"driving-pitgarage", EFX_REVERB_PRESET_DRIVING_PITGARAGE},
    {"driving-incar-racer", EFX_REVERB_PRESET_DRIVING_INCAR_RACER},
    {"driving-incar-sports", EFX_REVERB_PRESET_DRIVING_INCAR_SPORTS},
    {"driving-incar-luxury", EFX_REVERB_PRESET_DRIVING_INCAR_LUXURY},
    {"driving-fullgrandstand", EFX_REVERB_PRESET_DRIVING_FULLGRANDSTAND},
    {"driving-emptygrandstand", EFX_REVERB_PRESET_DRIVING_EMPTYGRANDSTAND},
    {"driving-tunnel", EFX_REVERB_PRESET_DRIVING_TUNNEL},
    {"city-streets", EFX_REVERB_PRESET_CITY_STREETS},
    {"city-subway", EFX_REVERB_PRESET_CITY_SUBWAY},
    {"city-museum", EFX_REVERB_PRESET_CITY_MUSEUM},
    {"city-library", EFX_REVERB_PRESET_CITY_LIBRARY},
    {"city-underpass", EFX_REVERB_PRESET_CITY_UNDERPASS},
    {"city-abandoned", EFX_REVERB_PRESET_CITY_ABANDONED},
    {"dustyroom", EFX_REVERB_PRESET_DUSTYROOM},
    {"chapel", EFX_REVERB_PRESET_CHAPEL},
    {"smallwaterroom", EFX_REVERB_PRESET_SMALLWATERROOM},
};

const Preset* findPreset(std::string_view name) {
    const auto* found = std::ranges::find(kPresets, name, &Preset::name);
    return found == std::end(kPresets) ? nullptr : found;
}

template <class Function>
Function efx(const char* name) {
    return reinterpret_cast<Function>(alGetProcAddress(name));
}

/// The properties that are one number.
struct Property {
    ALenum name;
    float EFXEAXREVERBPROPERTIES::*value;
};
constexpr std::array kProperties{
    Property{AL_EAXREVERB_DENSITY, &EFXEAXREVERBPROPERTIES::flDensity},
    Property{AL_EAXREVERB_DIFFUSION, &EFXEAXREVERBPROPERTIES::flDiffusion},
    Property{AL_EAXREVERB_GAIN, &EFXEAXREVERBPROPERTIES::flGain},
    Property{AL_EAXREVERB_GAINHF, &EFXEAXREVERBPROPERTIES::flGainHF},
    Property{AL_EAXREVERB_GAINLF, &EFXEAXREVERBPROPERTIES::flGainLF},
    Property{AL_EAXREVERB_DECAY_TIME, &EFXEAXREVERBPROPERTIES::flDecayTime},
    Property{AL_EAXREVERB_DECAY_HFRATIO, &EFXEAXREVERBPROPERTIES::flDecayHFRatio},
    Property{AL_EAXREVERB_DECAY_LFRATIO, &EFXEAXREVERBPROPERTIES::flDecayLFRatio},
    Property{AL_EAXREVERB_REFLECTIONS_GAIN, &EFXEAXREVERBPROPERTIES::flReflectionsGain},
    Property{AL_EAXREVERB_REFLECTIONS_DELAY, &EFXEAXREVERBPROPERTIES::flReflectionsDelay},
    Property{AL_EAXREVERB_LATE_REVERB_GAIN, &EFXEAXREVERBPROPERTIES::flLateReverbGain},
    Property{AL_EAXREVERB_LATE_REVERB_DELAY, &EFXEAXREVERBPROPERTIES::flLateReverbDelay},
    Property{AL_EAXREVERB_ECHO_TIME, &EFXEAXREVERBPROPERTIES::flEchoTime},
    Property{AL_EAXREVERB_ECHO_DEPTH, &EFXEAXREVERBPROPERTIES::flEchoDepth},
    Property{AL_EAXREVERB_MODULATION_TIME, &EFXEAXREVERBPROPERTIES::flModulationTime},
    Property{AL_EAXREVERB_MODULATION_DEPTH, &EFXEAXREVERBPROPERTIES::flModulationDepth},
    Property{AL_EAXREVERB_AIR_ABSORPTION_GAINHF, &EFXEAXREVERBPROPERTIES::flAirAbsorptionGainHF},
    Property{AL_EAXREVERB_HFREFERENCE, &EFXEAXREVERBPROPERTIES::flHFReference},
    Property{AL_EAXREVERB_LFREFERENCE, &EFXEAXREVERBPROPERTIES::flLFReference},
    Property{AL_EAXREVERB_ROOM_ROLLOFF_FACTOR, &EFXEAXREVERBPROPERTIES::flRoomRolloffFactor}};

/// The gain of a closed filter at high frequencies.
constexpr float kClosed = 0.001F;

} // namespace

std::vector<std::string> Reverb::names() {
    std::vector<std::string> names;
    for (const Preset& preset : kPresets) {
        names.emplace_back(preset.name);
    }
    return names;
}

bool Reverb::isName(std::string_view name) {
    return findPreset(name) != nullptr;
}

float Reverb::decayOf(std::string_view name) {
    const Preset* preset = findPreset(name);
    return preset == nullptr ? 0.0F : preset->values.flDecayTime;
}

Reverb::Reverb(std::string_view name, float wet) {
    const Preset* preset = findPreset(name);
    const auto genEffects = efx<LPALGENEFFECTS>("alGenEffects");
    if (preset == nullptr || genEffects == nullptr) {
        return;
    }
    const EFXEAXREVERBPROPERTIES& values = preset->values;
    ALuint effect = 0;
    genEffects(1, &effect);
    efx<LPALEFFECTI>("alEffecti")(effect, AL_EFFECT_TYPE, AL_EFFECT_EAXREVERB);
    const auto set = efx<LPALEFFECTF>("alEffectf");
    for (const Property& property : kProperties) {
        set(effect, property.name, values.*property.value);
    }
    const auto setVector = efx<LPALEFFECTFV>("alEffectfv");
    setVector(effect, AL_EAXREVERB_REFLECTIONS_PAN, values.flReflectionsPan);
    setVector(effect, AL_EAXREVERB_LATE_REVERB_PAN, values.flLateReverbPan);
    efx<LPALEFFECTI>("alEffecti")(effect, AL_EAXREVERB_DECAY_HFLIMIT, values.iDecayHFLimit);
    efx<LPALGENAUXILIARYEFFECTSLOTS>("alGenAuxiliaryEffectSlots")(1, &slot_);
    efx<LPALAUXILIARYEFFECTSLOTF>("alAuxiliaryEffectSlotf")(slot_, AL_EFFECTSLOT_GAIN, wet);
    efx<LPALAUXILIARYEFFECTSLOTI>("alAuxiliaryEffectSloti")(
        slot_, AL_EFFECTSLOT_EFFECT, static_cast<ALint>(effect));
    efx<LPALDELETEEFFECTS>("alDeleteEffects")(1, &effect); // the slot has taken its values over
}

Reverb::~Reverb() {
    if (slot_ != 0) {
        efx<LPALDELETEAUXILIARYEFFECTSLOTS>("alDeleteAuxiliaryEffectSlots")(1, &slot_);
    }
}

void Reverb::send(unsigned source, bool sends, unsigned filter) const {
    alSource3i(
        source, AL_AUXILIARY_SEND_FILTER, sends ? static_cast<ALint>(slot_) : AL_EFFECTSLOT_NULL, 0,
        static_cast<ALint>(filter));
}

LowPass::LowPass() {
    if (const auto genFilters = efx<LPALGENFILTERS>("alGenFilters")) {
        genFilters(1, &filter_);
        efx<LPALFILTERI>("alFilteri")(filter_, AL_FILTER_TYPE, AL_FILTER_LOWPASS);
    }
}

LowPass::~LowPass() {
    if (filter_ != 0) {
        efx<LPALDELETEFILTERS>("alDeleteFilters")(1, &filter_);
    }
}

unsigned LowPass::close(float value) {
    if (value <= 0.0F || filter_ == 0) {
        return AL_FILTER_NULL;
    }
    const float open = 1.0F - std::min(value, 1.0F);
    static const auto set = efx<LPALFILTERF>("alFilterf");
    set(filter_, AL_LOWPASS_GAINHF, std::max(open * open * open, kClosed));
    return filter_;
}

} // namespace Orvel::detail

#include <Orvel/detail/al/ALCalls.h>

#include <AL/al.h>
#include <AL/alext.h>
#include <algorithm>
#include <array>
#include <cstdio>

namespace Orvel::detail {

void setListenerPlace(const Vec3f& position, const Quaternion& rotation) {
    alListenerfv(AL_POSITION, std::array{position.x, position.y, position.z}.data());
    const Vec3f at = rotation.rotate({0.0F, 0.0F, -1.0F});
    const Vec3f up = rotation.rotate({0.0F, 1.0F, 0.0F});
    alListenerfv(AL_ORIENTATION, std::array{at.x, at.y, at.z, up.x, up.y, up.z}.data());
    alListenerfv(AL_VELOCITY, std::array{0.0F, 0.0F, 0.0F}.data());
}

void setPlace(unsigned source, bool spatial, const Vec3f& position) {
    const Vec3f place = spatial ? position : Vec3f{};
    alSourcefv(source, AL_POSITION, std::array{place.x, place.y, place.z}.data());
    alSourcei(source, AL_SOURCE_RELATIVE, spatial ? AL_FALSE : AL_TRUE);
}

void setReach(unsigned source, bool spatial, const Hull& hull) {
    // A reference at or beyond the maximum would disable attenuation.
    const Reach reach = spatial ? reachOf(hull) : Reach{1.0F, 2.0F};
    alSourcefv(source, AL_DIRECTION, std::array{1.0F, 0.0F, 0.0F}.data());
    alSourcef(source, AL_CONE_INNER_ANGLE, 360.0F);
    alSourcef(source, AL_CONE_OUTER_ANGLE, 360.0F);
    alSourcef(source, AL_REFERENCE_DISTANCE, reach.full);
    alSourcef(source, AL_MAX_DISTANCE, reach.softest);
    alSourcef(source, AL_ROLLOFF_FACTOR, spatial ? 1.0F : 0.0F);
}

void setRadius(unsigned source, float radius) {
    // Searching the list of extensions takes longer than the calls above.
    static const bool isKnown = alIsExtensionPresent("AL_EXT_SOURCE_RADIUS") == AL_TRUE;
    if (isKnown) {
        alSourcef(source, AL_SOURCE_RADIUS, std::max(radius, 0.0F));
    }
}

void setPlayback(unsigned source, float pitch, bool loop) {
    alSourcef(source, AL_PITCH, pitch);
    alSourcei(source, AL_LOOPING, loop ? AL_TRUE : AL_FALSE);
}

// The texts of "invalid enum" and "invalid value" are swapped. They stay so, because log filters
// rely on them.
std::string errorText(int error) {
    switch (error) {
    case AL_INVALID_NAME:
        return "Invalid Name parameter passed to AL call";
    case AL_INVALID_ENUM:
        return "Invalid parameter passed to AL call";
    case AL_INVALID_VALUE:
        return "Invalid enum parameter value";
    case AL_INVALID_OPERATION:
        return "Illegal call";
    case AL_OUT_OF_MEMORY:
        return "Out of memory";
    default: {
        std::array<char, 16> text{};
        std::snprintf(text.data(), text.size(), "0x%x", static_cast<unsigned>(error));
        return text.data();
    }
    }
}

} // namespace Orvel::detail

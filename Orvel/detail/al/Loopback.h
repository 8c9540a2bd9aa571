#pragma once

#include <AL/alc.h>
#include <array>

namespace Orvel::detail {

/// OpenAL's loopback device, from which a program pulls frames: stereo floats, without the HRTF and
/// the limits of the user's OpenAL settings.

/// Opens one; reports and returns null if this OpenAL library has none.
ALCdevice* openLoopback();
/// The attributes of its context: sample rate in Hz, and the number of AL sources.
std::array<ALCint, 13> loopbackAttributes(unsigned rate, long sources);
/// Renders interleaved frames, left first.
void renderLoopback(ALCdevice* device, float* samples, unsigned frames);

} // namespace Orvel::detail

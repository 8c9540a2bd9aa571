#pragma once

#include <AL/al.h>
#include <string>
#include <utility>

namespace Orvel::Test {

/// Stands in for OpenAL and ALUT in a test program that is not linked with them: records each call,
/// fails on demand, and behaves like the real ones where a mistake would otherwise stay unseen.
/// Names begin at 1 in every context, so that those of another one look just as valid; errors are
/// per context and the first one stays; a destroyed context is no longer current.
struct FakeAL {
    static FakeAL& the();

    /// The calls since the last take(), such as "alSourcePlay(1); alGetError()", with numbers
    /// rounded to six digits; without questions for the current context.
    std::string take() { return std::exchange(calls, {}); }
    /// Leaves an error pending in the current context, as other code may.
    static void setPendingError(ALenum error);

    /// Functions whose names begin so do nothing but fail: those that open with null, those of AL
    /// with AL_INVALID_VALUE. Loading a file succeeds, but leaves that error as well.
    std::string failing = "none";
    ALenum fileFormat = AL_FORMAT_STEREO16; ///< of each file, which lasts 1 s at 44100.9 Hz
    int devices = 0;
    int contexts = 0;
    std::string calls;
};

} // namespace Orvel::Test

#pragma once

#include <AL/al.h>
#include <AL/alc.h>
#include <string>
#include <utility>

namespace Orvel::Test {

/// Stands in for OpenAL and ALUT in a test program that is not linked with them: records each call,
/// answers as told, and behaves like the real ones where a mistake would otherwise stay unseen.
/// Names begin at 1 in every context, so that those of another one look just as valid; errors are
/// per context and the first one stays; ALUT counts no users, keeps its first error, and refuses to
/// load while an error is pending; a destroyed context is no longer current.
struct FakeAL {
    /// What alutLoadMemoryFromFile() gives: samples, or an ALUT error.
    struct File {
        ALenum format = AL_FORMAT_MONO16;
        ALsizei size = 0;
        ALfloat frequency = 44100.0F;
        ALenum error = 0;
    };

    static FakeAL& the();

    /// Forgets everything and repairs what fails; a test begins with it.
    static void reset() { the() = FakeAL(); }
    /// The calls since the last take() or reset(), such as "alSourcePlay(1); alGetError()", with
    /// numbers rounded to six digits; without questions for the current context.
    std::string take() { return std::exchange(calls, {}); }
    /// Leaves an error pending in the current context, as other code may.
    static void setPendingError(ALenum error);

    /// Functions whose names begin so do nothing but fail: those that open or ask with null or
    /// false, those of AL with AL_INVALID_VALUE.
    std::string failing = "none";
    File file;
    bool alutRuns = false;
    ALenum alutError = 0; ///< unread
    int devices = 0;
    int contexts = 0;
    std::string calls;
};

} // namespace Orvel::Test

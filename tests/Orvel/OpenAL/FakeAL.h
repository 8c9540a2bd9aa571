#pragma once

#include <AL/al.h>
#include <AL/alc.h>
#include <map>
#include <string>
#include <utility>

namespace Orvel::Test {

/// Stands in for OpenAL and ALUT in a test program that is not linked with them: records each call,
/// answers as told, and behaves like the real ones where a mistake would otherwise stay unseen.
/// Names of sources begin at 1 in every context and those of buffers on every device, so that a
/// call in the wrong context hits an object that exists; errors are per context and the first one
/// stays; ALUT counts no users, keeps its first error, and refuses to load while an error is
/// pending; a destroyed context is no longer current.
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
    static void reset();
    /// The calls since the last take() or reset(), such as "alSourcePlay(1); alGetError()", with
    /// numbers rounded to six digits. alcGetCurrentContext() is not among them, see `queries`.
    std::string take() { return std::exchange(calls, {}); }
    /// Leaves an error pending in the current context, as other code may.
    static void setPendingError(ALenum error);
    /// How many devices and contexts are open.
    static std::size_t open();

    bool opensDevices = true;
    bool createsContexts = true;
    bool hasLoopback = true;
    std::map<std::string, ALenum> failures; ///< functions that only leave this error behind
    File file;
    bool alutRuns = false;
    ALenum alutError = 0; ///< unread
    int queries = 0;      ///< calls of alcGetCurrentContext()
    std::string calls;
};

} // namespace Orvel::Test

#pragma once

#include <AL/al.h>
#include <AL/alc.h>
#include <map>
#include <string>
#include <vector>

namespace Orvel::Test {

/// Stands in for OpenAL and ALUT in a test program that is not linked with them: records each call,
/// answers as told, and behaves like the real ones where a mistake would otherwise stay unseen.
/// Names of sources begin at 1 in every context and those of buffers on every device, so that a
/// call in the wrong context hits an object that exists; errors are per context and the first one
/// stays; ALUT counts no users, keeps its first error, and refuses to load while an error is
/// pending; a destroyed context is no longer current.
class FakeAL {
public:
    /// What the next alutLoadMemoryFromFile() gives: samples, or an ALUT error.
    struct File {
        ALenum format = AL_FORMAT_MONO16;
        ALsizei size = 0;
        ALfloat frequency = 44100.0F;
        ALenum error = 0;
    };

    static FakeAL& the();

    /// Forgets everything; a test begins with it.
    void reset();

    /// The calls since the last take() or reset(), such as "alSourcef(1, AL_PITCH, 2)"; numbers are
    /// rounded to six digits. alcGetCurrentContext() is not among them, see `queries`.
    std::vector<std::string> take();

    /// Each call of `function` from now on leaves `error` behind and has no other effect.
    void fail(const std::string& function, ALenum error) { failures_[function] = error; }
    void failNothing() { failures_.clear(); }
    /// Leaves an error pending in the current context, as other code may.
    void setPendingError(ALenum error);

    /// Devices, contexts, sources and buffers not yet deleted.
    [[nodiscard]] static int living();

    bool opensDevices = true;
    bool createsContexts = true;
    bool hasLoopback = true;
    File file;
    ALenum alutError = 0; // unread
    int queries = 0;      // calls of alcGetCurrentContext()

    // For the functions themselves.
    void record(const std::string& call) { calls_.push_back(call); }
    [[nodiscard]] ALenum failureOf(const char* function) const;
    bool alutRuns = false;

private:
    std::vector<std::string> calls_;
    std::map<std::string, ALenum> failures_;
};

} // namespace Orvel::Test

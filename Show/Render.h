#pragma once

#include <Show/SampleFormat.h>
#include <Show/ShowFile.h>

#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include <orvel_show_export.h>

namespace Show {

/// Settings of a render.
struct RenderSettings {
    unsigned rate = 44100; ///< sample rate in Hz, 8000 to 192000
    double from = 0.0;     ///< start in seconds of the file; the part before is discarded
    double seconds = 0.0;  ///< length to render; 0: until the end
    SampleFormat format = SampleFormat::s16; ///< of renderToFile()
    /// The kind of the back end: "voices", or "openal" in its offline form.
    std::string kind = "voices";
    /// Its parameters (docs/parameters.md). By default "voices" has ShowFile::voicesParams().
    std::string params;
    /// Called with 0 before the file is created, and then after each block, of at most 0.1 s, with
    /// the progress from 0 to 1. Returning false cancels.
    std::function<bool(double done)> progress;
    /// Receives the samples that renderToFile() writes, as the function of render() does, such as
    /// for a LevelMeter. May be empty.
    std::function<void(std::span<const float> samples)> samples;
};

/// The result of a render.
struct RenderResult {
    /// The cause of an error, for programs that say more about it.
    enum class Cause {
        None,
        Empty,   ///< nothing plays, or the start is not before the end
        TooLong, ///< for a WAV file
        Other
    };

    std::string error; ///< empty on success
    Cause cause = Cause::None;
    double end = 0.0;          ///< end of the file in seconds; 0 if it could not be played
    bool cancelled = false;    ///< by the progress function or the one that takes the samples
    double seconds = 0.0;      ///< rendered length
    std::uint64_t clipped = 0; ///< samples that renderToFile() has clipped

    [[nodiscard]] bool isGood() const noexcept { return error.empty() && !cancelled; }
};

/// Renders a scene or a capture to a WAV file of at most 4 GiB, with the channels of
/// ShowFile::layout(), faster than real time,
/// through OpenAL's loopback device, with the kind "voices" unless the settings say otherwise. The
/// same file always gives the same bytes. The WAV file appears when it is complete; on failure or
/// cancellation nothing is left behind.
///
/// Blocks until it is done, on the calling thread; no other thread may render meanwhile, because
/// all OpenAL back ends of a process must be used by one thread at a time. Sounds by URL are
/// fetched here; those that cannot be fetched are logged and left out. OpenAL probes the sound
/// drivers even for offline rendering; set ALSOFT_DRIVERS=null in the environment to prevent that.
ORVEL_SHOW_EXPORT RenderResult
renderToFile(const ShowFile& file, const std::string& path, const RenderSettings& settings = {});

/// Renders into a function, block by block: interleaved, with the channels of
/// ShowFile::layout(); full scale is 1. The samples are valid during the call. Returning false
/// cancels. Its exceptions are passed on.
ORVEL_SHOW_EXPORT RenderResult render(
    const ShowFile& file, const std::function<bool(std::span<const float> samples)>& take,
    const RenderSettings& settings = {});

} // namespace Show

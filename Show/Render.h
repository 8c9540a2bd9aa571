#pragma once

#include <Show/SampleFormat.h>
#include <Show/ShowFile.h>

#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include <orvel_show_export.h>

namespace Show {

/// How to render.
struct RenderSettings {
    unsigned rate = 44100; ///< frames a second, 8000 to 192000
    double from = 0.0;     ///< seconds of the file; what comes before is rendered and left out
    double seconds = 0.0;  ///< how much to render; 0: until the end
    SampleFormat format = SampleFormat::s16; ///< of renderToFile()
    /// Called after each block, of at most 0.1 s, with the part that is done, from 0 to 1. False
    /// cancels.
    std::function<bool(double done)> progress;
};

/// What came of rendering.
struct RenderResult {
    std::string error;         ///< empty if all was rendered
    bool cancelled = false;    ///< by the progress function or the one that takes the samples
    double seconds = 0.0;      ///< that were rendered
    std::uint64_t clipped = 0; ///< samples beyond full scale that renderToFile() has limited

    [[nodiscard]] bool isGood() const noexcept { return error.empty() && !cancelled; }
};

/// Renders what a scene or a capture sounds like to a stereo WAV file of at most 4 GiB, faster than
/// real time, through OpenAL's loopback device. The same file gives the same bytes each time. The
/// WAV file appears when it is whole; when this fails or is cancelled, nothing is left behind.
///
/// Blocks until it is done, on the calling thread, which no other may render on meanwhile: all
/// OpenAL back ends of a process belong to one thread at a time. Sounds by URL are fetched here;
/// those that cannot be had are logged and left out. OpenAL looks for sound drivers even where it
/// only renders; set ALSOFT_DRIVERS=null in the environment to prevent that.
ORVEL_SHOW_EXPORT RenderResult
renderToFile(const ShowFile& file, const std::string& path, const RenderSettings& settings = {});

/// The same into a function, block by block: left and right interleaved, full scale is 1. The
/// samples live during the call. False cancels. What it throws leaves this function.
ORVEL_SHOW_EXPORT RenderResult render(
    const ShowFile& file, const std::function<bool(std::span<const float> samples)>& take,
    const RenderSettings& settings = {});

} // namespace Show

#include <Show/Render.h>

#include <Show/render/OfflineRenderer.h>
#include <Show/render/WavWriter.h>

#include <cmath>
#include <exception>
#include <optional>

namespace Show {

namespace {

constexpr unsigned kMinRate = 8000;
constexpr unsigned kMaxRate = 192000;

/// Renders a good file; the writer may be made when the length is known.
RenderResult
renderWith(const ShowFile& file, const RenderSettings& settings, auto&& begin, auto&& take) {
    RenderResult result;
    const auto fail = [&result](std::string text) {
        result.error = std::move(text);
        return result;
    };
    if (!file.isGood()) {
        return fail(file.problems().empty() ? "nothing was loaded" : file.problems().front().str());
    }
    if (settings.rate < kMinRate || settings.rate > kMaxRate) {
        return fail(
            "expected a rate of " + std::to_string(kMinRate) + " to " + std::to_string(kMaxRate) +
            " frames a second, found " + std::to_string(settings.rate));
    }
    if (!(settings.from >= 0.0) || !(settings.seconds >= 0.0) ||
        !std::isfinite(settings.from + settings.seconds)) {
        return fail("expected times from 0 seconds on");
    }
    Orvel::OALLoopbackBackend::registerType();
    OfflineRenderer renderer(*file.playable(), settings.rate);
    if (!renderer.working()) {
        return fail("OpenAL gave no loopback device; check the installation of OpenAL Soft");
    }
    const double end = settings.seconds > 0.0 ? settings.from + settings.seconds : renderer.end();
    const double rate = settings.rate;
    if ((end - settings.from) * rate < 1.0) {
        return fail(
            "nothing to render: it is over at " + std::to_string(renderer.end()) +
            " s; give the scene a \"duration\", or a number of seconds");
    }
    begin(
        static_cast<std::uint64_t>(std::llround(end * rate) - std::llround(settings.from * rate)));
    std::uint64_t frames = 0;
    for (;;) {
        const bool skipping = renderer.seconds() < settings.from;
        const auto samples = renderer.next(skipping ? settings.from : end);
        if (samples.empty() && !skipping) {
            break;
        }
        if (!skipping) {
            frames += samples.size() / Orvel::OALLoopbackBackend::kChannels;
            result.cancelled = !take(samples);
        }
        if (settings.progress && !settings.progress(renderer.seconds() / end)) {
            result.cancelled = true;
        }
        if (result.cancelled) {
            break;
        }
    }
    result.seconds = static_cast<double>(frames) / rate;
    return result;
}

} // namespace

RenderResult
renderToFile(const ShowFile& file, const std::string& path, const RenderSettings& settings) {
    try {
        std::optional<WavWriter> writer;
        RenderResult result = renderWith(
            file, settings,
            [&](std::uint64_t frames) {
                if (frames > WavWriter::mostFrames(settings.format)) {
                    throw OutputError(
                        path + ": so much does not fit into a WAV file of 4 GiB; render less, or "
                               "at a lower rate");
                }
                writer.emplace(path, settings.rate, settings.format, frames);
            },
            [&](std::span<const float> samples) {
                writer->write(samples);
                return true;
            });
        if (result.isGood()) {
            writer->finish();
            result.clipped = writer->clipped();
        }
        return result;
    } catch (const OutputError& fault) {
        RenderResult result;
        result.error = fault.what();
        return result;
    }
}

RenderResult render(
    const ShowFile& file, const std::function<bool(std::span<const float> samples)>& take,
    const RenderSettings& settings) {
    return renderWith(
        file, settings, [](std::uint64_t /*frames*/) {}, take);
}

} // namespace Show

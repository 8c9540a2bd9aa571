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

/// Renders a good file. `begin` receives the number of frames, and returns an error or an empty
/// text.
RenderResult
renderWith(const ShowFile& file, const RenderSettings& settings, auto&& begin, auto&& take) {
    RenderResult result;
    const auto fail = [&result](std::string text, RenderResult::Cause cause) {
        result.error = std::move(text);
        result.cause = cause;
        return result;
    };
    using Cause = RenderResult::Cause;
    if (!file.isGood()) {
        return fail(
            file.problems().empty() ? "nothing was loaded" : file.problems().front().str(),
            Cause::Other);
    }
    if (settings.rate < kMinRate || settings.rate > kMaxRate) {
        return fail(
            "expected a rate of " + std::to_string(kMinRate) + " to " + std::to_string(kMaxRate) +
                " frames a second, found " + std::to_string(settings.rate),
            Cause::Other);
    }
    if (!(settings.from >= 0.0) || !(settings.seconds >= 0.0) ||
        !std::isfinite(settings.from + settings.seconds)) {
        return fail("expected times from 0 seconds on", Cause::Other);
    }
    if (settings.kind != "voices" && settings.kind != "openal") {
        return fail(
            "expected the kind \"voices\" or \"openal\", found \"" + settings.kind + '"',
            Cause::Other);
    }
    OfflineRenderer renderer(*file.playable(), settings.rate, settings.kind, settings.params);
    if (!renderer.working()) {
        return fail(
            "OpenAL gave no loopback device; check the installation of OpenAL Soft", Cause::Other);
    }
    result.end = renderer.end();
    const double end = settings.seconds > 0.0 ? settings.from + settings.seconds : result.end;
    const double rate = settings.rate;
    if ((end - settings.from) * rate < 1.0) {
        return fail(
            settings.from > 0.0 ? "nothing to render: the start is not before the end"
                                : "nothing to render: no sound plays, and no length is given",
            Cause::Empty);
    }
    result.cancelled = settings.progress && !settings.progress(0.0);
    const auto length =
        static_cast<std::uint64_t>(std::llround(end * rate) - std::llround(settings.from * rate));
    if (std::string text = result.cancelled ? "" : begin(length); !text.empty()) {
        return fail(std::move(text), Cause::TooLong);
    }
    std::uint64_t frames = 0;
    while (!result.cancelled) {
        const bool skipping = renderer.seconds() < settings.from;
        const auto samples = renderer.next(skipping ? settings.from : end);
        if (samples.empty() && !skipping) {
            break;
        }
        if (!skipping) {
            frames += samples.size() / renderer.layout().channels;
            result.cancelled = !take(samples);
        }
        if (settings.progress && !settings.progress(renderer.seconds() / end)) {
            result.cancelled = true;
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
                const Orvel::OutputLayout& layout = settings.kind == "voices"
                                                        ? file.layout(settings.params)
                                                        : Orvel::kOutputLayouts[0];
                if (frames > WavWriter::maxFrames(settings.format, layout)) {
                    return path + ": " + std::to_string(frames / settings.rate) +
                           " s do not fit into a WAV file, which holds 4 GiB";
                }
                writer.emplace(
                    path, settings.rate, settings.format, frames, WavWriter::Unfinished::Removed,
                    layout);
                return std::string();
            },
            [&](std::span<const float> samples) {
                writer->write(samples);
                if (settings.samples) {
                    settings.samples(samples);
                }
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
        result.cause = RenderResult::Cause::Other;
        return result;
    }
}

RenderResult render(
    const ShowFile& file, const std::function<bool(std::span<const float> samples)>& take,
    const RenderSettings& settings) {
    return renderWith(
        file, settings, [](std::uint64_t /*frames*/) { return std::string(); }, take);
}

} // namespace Show

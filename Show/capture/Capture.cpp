#include <Show/capture/Capture.h>

#include <Show/capture/ReplayPlayer.h>
#include <Show/player/ScenePlayable.h>

#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <variant>
#include <vector>

namespace Show {

namespace {

/// The number of emitters that will play at once is unknown.
constexpr std::size_t kMaxEmitters = 4096;

/// The scene's path, for finding its sounds: the original one or, if its folder does not exist on
/// this machine, beside the capture.
std::string scenePath(const CaptureReader& reader, const std::string& capture) {
    const std::filesystem::path scene(reader.scenePath());
    std::error_code error;
    return std::filesystem::is_directory(scene.parent_path(), error)
               ? scene.string()
               : (std::filesystem::path(capture).parent_path() / scene.filename()).string();
}

using Urls = std::pair<std::size_t, std::string>;

/// Removes the sounds by URL from a scene; returns their number and the first.
Urls takeUrls(Scene& scene) {
    Urls urls;
    const auto take = [&urls](Sound& sound) {
        if (const auto* url = std::get_if<SoundUrl>(&sound)) {
            if (urls.first++ == 0) {
                urls.second = url->text;
            }
            sound = {};
        }
    };
    for (SourceSpec& source : scene.sources) {
        take(source.sound);
    }
    for (Change& change : scene.timeline) {
        take(change.sound);
        if (change.newSource) {
            take(change.newSource->sound);
        }
    }
    return urls;
}

} // namespace

std::unique_ptr<const Capture>
Capture::load(const std::string& path, bool fetch, std::vector<Problem>& problems) {
    std::string fault;
    const auto reader = CaptureReader::open(path, fault);
    if (reader == nullptr) {
        problems.push_back({path, 0, "", fault});
        return nullptr;
    }
    std::unique_ptr<Capture> capture(new Capture(path));
    const auto add = [&](std::string text) { problems.push_back({path, 0, "", std::move(text)}); };
    if (!reader->sceneText().empty()) {
        std::size_t before = problems.size();
        auto scene = parseScene(reader->sceneText(), scenePath(*reader, path), problems);
        if (scene) {
            capture->bank_.scene = std::move(*scene);
            if (const auto [count, first] = fetch ? Urls() : takeUrls(capture->bank_.scene);
                count > 0) {
                capture->incomplete_ = true;
                capture->unfetched_ = count;
                add("names " + std::to_string(count) +
                    (count == 1 ? " sound by URL (" : " sounds by URL (the first is ") + first +
                    "), which are not fetched; their sources stay silent");
                ++before;
            }
            capture->bank_.sounds.load(capture->bank_.scene, problems);
        }
        if (problems.size() > before) {
            capture->incomplete_ = true;
            add("refers to its sounds but does not contain them; the sources above stay silent. "
                "Put the files at their paths, or beside the capture");
        }
    }
    if (!reader->length()) {
        add("is truncated: it has no end mark, because the recording was interrupted or is still "
            "running, or the file was cut; it plays up to its end");
    }
    return capture;
}

std::unique_ptr<CaptureReader> Capture::read() const {
    std::string fault;
    auto reader = CaptureReader::open(path_, fault);
    if (reader == nullptr) {
        throw std::runtime_error(path_ + ": " + fault); // it could be opened before
    }
    return reader;
}

std::unique_ptr<Player> Capture::makePlayer(Orvel::World& world, LongFiles longFiles) const {
    return std::make_unique<ReplayPlayer>(path_, read(), bank_, world, longFiles);
}

std::unique_ptr<Player> Capture::makeSilentPlayer(Orvel::World& world, SetLength setLength) const {
    return std::make_unique<ReplayPlayer>(
        path_, read(), bank_, world, giveLength(bank_.sounds, std::move(setLength)));
}

std::size_t Capture::emitters() const {
    return kMaxEmitters;
}

std::unique_ptr<const Playable>
loadPlayable(const std::string& path, bool fetch, std::vector<Problem>& problems) {
    if (CaptureReader::isCapture(path)) {
        return Capture::load(path, fetch, problems);
    }
    auto scene = loadScene(path, problems);
    return scene == nullptr ? nullptr : std::make_unique<ScenePlayable>(std::move(scene));
}

} // namespace Show

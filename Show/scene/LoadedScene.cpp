#include <Show/scene/LoadedScene.h>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <utility>

namespace Show {

namespace {

std::string stem(std::string text) {
    text.erase(std::min(text.find_first_of("?#"), text.size()));
    if (const auto slash = text.rfind('/'); slash != std::string::npos) {
        text.erase(0, slash + 1);
    }
    if (const auto dot = text.rfind('.'); dot != std::string::npos && dot != 0) {
        text.erase(dot);
    }
    return text;
}

std::unique_ptr<const LoadedScene>
load(std::optional<Scene> scene, std::vector<Problem>& problems) {
    auto loaded = std::make_unique<LoadedScene>();
    if (scene) {
        loaded->scene = std::move(*scene);
        loaded->sounds.load(loaded->scene, problems);
    }
    return problems.empty() ? std::move(loaded) : nullptr;
}

} // namespace

std::unique_ptr<const LoadedScene>
loadScene(const std::string& path, std::vector<Problem>& problems) {
    return load(readScene(path, problems), problems);
}

std::unique_ptr<const LoadedScene>
loadScene(std::istream& in, const std::string& name, std::vector<Problem>& problems) {
    return load(readScene(in, name, problems), problems);
}

std::size_t countEmitters(const Scene& scene) {
    return scene.emitters.size() +
           static_cast<std::size_t>(std::count_if(
               scene.timeline.begin(), scene.timeline.end(),
               [](const Change& change) { return change.newEmitter.has_value(); }));
}

std::size_t countSources(const Scene& scene) {
    return scene.sources.size() +
           static_cast<std::size_t>(std::count_if(
               scene.timeline.begin(), scene.timeline.end(),
               [](const Change& change) { return change.newSource.has_value(); }));
}

std::string nameOf(const Sound& sound) {
    if (const auto* file = std::get_if<SoundFile>(&sound)) {
        return stem(file->path);
    }
    if (const auto* url = std::get_if<SoundUrl>(&sound)) {
        return stem(url->text);
    }
    if (const auto* tone = std::get_if<Tone>(&sound)) {
        char text[32];
        std::snprintf(text, sizeof text, "%g Hz", tone->hertz);
        return text;
    }
    return {};
}

} // namespace Show

#include "Require.h"
#include <Show/player/ScenePlayer.h>
#include <Show/scene/SceneFile.h>

#include <Orvel/OwningWorld.h>
#include <Orvel/SilentBackend.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string_view>

using namespace Show;

namespace {

/// A scene without problems must play, without any sounds.
void play(const Scene& scene) {
    Orvel::OwningWorld<> world;
    Orvel::SilentBackend backend(world, nullptr);
    const SoundBank sounds;
    ScenePlayer player(scene, sounds, world, [](Orvel::Source&, const Sound&) {});
    player.start();
    double now = 0.0;
    for (double next = 0.0; std::isfinite(next = player.nextChange(now)); now = next) {
        require(next > now);
        player.advance((now + next) / 2.0);
        player.advance(next);
    }
    require(!player.moving());
    require(std::isfinite(player.end()) && player.end() >= 0.0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<Problem> problems;
    const std::optional<Scene> scene = parseScene(
        std::string_view(reinterpret_cast<const char*>(data), size), "scene.json", problems);
    require(scene.has_value() == problems.empty());
    require(problems.size() <= kMaxProblems);
    for (const Problem& problem : problems) {
        require(!problem.text.empty() && problem.str().find('\n') == std::string::npos);
        require(!problem.text.starts_with("expected JSON")); // the parser's own words would follow
    }
    if (scene) {
        play(*scene);
    }
    return 0;
}

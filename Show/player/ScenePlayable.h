#pragma once

#include <Show/player/Playable.h>
#include <Show/player/ScenePlayer.h>
#include <Show/scene/LoadedScene.h>

#include <memory>
#include <string>
#include <utility>

namespace Show {

/// The scene of a scene file.
class ScenePlayable : public Playable {
public:
    explicit ScenePlayable(std::unique_ptr<const LoadedScene> loaded)
        : loaded_(std::move(loaded)) {}

    [[nodiscard]] std::unique_ptr<Player>
    makePlayer(Orvel::World& world, LongFiles longFiles) const override {
        return std::make_unique<ScenePlayer>(loaded_->scene, loaded_->sounds, world, longFiles);
    }
    [[nodiscard]] std::unique_ptr<Player>
    makeSilentPlayer(Orvel::World& world, SetLength setLength) const override {
        return std::make_unique<ScenePlayer>(
            loaded_->scene, loaded_->sounds, world,
            giveLength(loaded_->sounds, std::move(setLength)));
    }
    [[nodiscard]] std::size_t emitters() const override { return countEmitters(loaded_->scene); }
    [[nodiscard]] const Scene& sources() const override { return loaded_->scene; }
    [[nodiscard]] std::string voicesParams() const override { return loaded_->scene.voicesParams; }
    [[nodiscard]] const LoadedScene* scene() const override { return loaded_.get(); }

private:
    std::unique_ptr<const LoadedScene> loaded_;
};

} // namespace Show

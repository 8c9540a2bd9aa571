#pragma once

#include "LibraryMessages.h"
#include "LoadedScene.h"

#include <Orvel/World.h>

#include <map>
#include <string>

namespace OrvelTool {

/// The world in which the tool plays a scene: it knows which part a back end is busy with when
/// something goes wrong, and leaves nothing behind. The scene and the messages must outlive it.
/// Confined to one thread at a time.
class Stage : public Orvel::World {
public:
    Stage(const Scene& scene, LibraryMessages& messages);
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;
    /// Destroys the parts, then the back ends.
    ~Stage() override;

    using World::createEmitter;
    using World::createSource;
    void createSource(Orvel::Source& source) override;
    void setSourceData(Orvel::Source& source) override;
    void createEmitter(Orvel::Emitter& emitter) override;

    /// Writes what the library has reported since the last call to standard error, each message
    /// behind the scene file's name. False if there was nothing.
    bool tell();

private:
    [[nodiscard]] std::string subject(const Orvel::Source& source) const;

    std::string path_;
    LibraryMessages& messages_;
    std::map<int, Where> sounds_; // where a source gets its sound, for those that keep it
};

} // namespace OrvelTool

#pragma once

#include <Show/scene/Scene.h>

#include <Orvel/Diagnostic.h>

#include <map>
#include <string>

namespace Show {

/// The names of a scene's parts in messages: for a source the line and field in the scene file that
/// define its sound, for other parts, and without a scene, kind and id. Immutable; keeps no
/// reference to the scene.
class PartNames {
public:
    PartNames() = default;
    explicit PartNames(const Scene& scene);

    /// Such as "scene.json:4: sources[0].file" or "scene.json: emitter 7"; empty for no part.
    [[nodiscard]] std::string operator()(const Orvel::Diagnostic::Part& part) const;

private:
    std::string path_;            // empty without a scene file
    std::map<int, Where> sounds_; // where a source gets its sound, for those that keep it
};

} // namespace Show

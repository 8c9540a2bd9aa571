#pragma once

#include <Show/scene/Scene.h>

#include <Orvel/Diagnostic.h>

#include <map>
#include <string>

namespace Show {

/// What users call the parts of a scene: a source by the line and the field of the scene file where
/// it gets its sound, any other part by its kind and id. Without a scene there are only those.
/// Immutable; keeps nothing of the scene.
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

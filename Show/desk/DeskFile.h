#pragma once

#include <Show/player/Overrides.h>
#include <Show/scene/Scene.h>

#include <filesystem>
#include <map>
#include <string>
#include <string_view>

namespace Show {

/// The file of a scene, into which values that were set by hand are saved. Comments, the order and
/// everything else stay as they are. Confined to one thread at a time.
class DeskFile {
public:
    /// Limit of the length of a new file's name, in bytes.
    static constexpr std::size_t kMaxName = 100;

    /// The scene must outlive it.
    explicit DeskFile(const Scene& scene);

    /// The file's name without its folder; empty if it cannot be saved.
    [[nodiscard]] std::string name() const;

    /// Writes the values as those that the parts have at first: positions, rotations and gains.
    /// `name`: of a new file in the same folder, which must end with ".json"; empty: the scene's
    /// own. Returns why it was not done, or an empty text.
    std::string save(std::string_view name, const std::map<int, Override>& overrides);

private:
    [[nodiscard]] std::string edit(const std::map<int, Override>& overrides) const;

    const Scene& scene_;
    std::filesystem::path path_; // empty if it cannot be saved
    std::string text_;           // of the file, as read or saved
};

} // namespace Show

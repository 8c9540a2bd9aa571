#pragma once

#include <Show/scene/Scene.h>

#include <string>
#include <vector>

namespace OrvelTool {

/// Keeps a command from writing over what it reads, and from writing two things to one file.
/// Files are the same if device and inode are, whatever their paths. Confined to one thread.
class OutputGuard {
public:
    /// A format that is written, with the suffixes that its files have.
    struct Format {
        const char* name;
        std::vector<const char*> suffixes;
        bool text = false; ///< can be shown on a terminal
    };
    static const Format kSound;
    static const Format kPicture;
    static const Format kCapture;

    /// A file that the command reads; `role` stands in messages, such as "the scene".
    void reads(const std::string& path, const std::string& role);
    /// The same for the sounds of a scene.
    void readsSounds(const Show::Scene& scene);

    /// Takes a path to write to; "-" is standard output. False, with a message, if that is refused.
    bool accept(const std::string& path, const Format& format);

private:
    struct File {
        std::string path;
        std::string role;
    };
    std::vector<File> inputs_;
    std::vector<std::string> outputs_;
};

} // namespace OrvelTool

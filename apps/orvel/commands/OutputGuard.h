#pragma once

#include <Show/ShowFile.h>

#include <string>
#include <vector>

namespace OrvelTool {

/// Prevents a command from overwriting its inputs and from writing two outputs to one file. Files
/// are compared by device and inode, whatever their paths. Confined to one thread.
class OutputGuard {
public:
    /// An output format and the suffixes of its files.
    struct Format {
        const char* name;
        std::vector<const char*> suffixes;
        bool text = false; ///< can be shown in a terminal
    };
    static const Format kSound;
    static const Format kPicture;
    static const Format kCapture;

    /// Registers an input file. `role` stands in messages, such as "the input scene".
    void reads(const std::string& path, const std::string& role);
    /// Registers the sound files of a scene or a capture as inputs.
    void readsSounds(const Show::ShowFile& file);

    /// Accepts an output path; "-" is standard output. If it is refused, reports why and returns
    /// false.
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

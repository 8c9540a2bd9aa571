#pragma once

#include <Corvid/URLImpl.h>

#include <string>

#include <orvel_export.h>

namespace Corvid {

/// A file of this machine. By default, and as the base of relative texts, the current directory at
/// the time of construction. Immutable. Constructors throw Exception: "Cannot parse URL" for an
/// empty path or one with control characters, another text if the current directory is missing or
/// has such a name.
class ORVEL_EXPORT URLFile : public URLImpl {
public:
    /// The current directory.
    URLFile();
    /// A path; a relative one starts at the current directory. With a trailing slash it is a
    /// directory, and texts relative to it name files in it, otherwise files beside it.
    explicit URLFile(const std::string& path);

    /// The absolute path, not encoded.
    [[nodiscard]] const std::string& path() const noexcept { return path_; }

    /// The file itself. Throws Exception if it is missing, unreadable or not a regular file.
    [[nodiscard]] std::unique_ptr<File> fetch() const override;

private:
    struct Absolute {
        std::string path;
    };
    explicit URLFile(Absolute absolute);

    std::string path_;
};

} // namespace Corvid

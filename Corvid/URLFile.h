#pragma once

#include <Corvid/URLImpl.h>

#include <string>

#include <orvel_export.h>

namespace Corvid {

/// A file of this machine. The default, for URLs without an implementation of their own and as the
/// base of relative texts, is the current directory at the time of construction. Immutable.
/// Constructors throw Exception: "Cannot parse URL" for an empty path or one with control
/// characters, another text when there is no current directory (any more) or it has such a name.
class ORVEL_EXPORT URLFile : public URLImpl {
public:
    /// The current directory.
    URLFile();
    /// A path; a relative one is taken from the current directory. With a slash at its end it is a
    /// directory, and texts that are relative to it name files in it, else files beside it.
    explicit URLFile(const std::string& path);

    /// The absolute path, not encoded.
    [[nodiscard]] const std::string& path() const noexcept { return path_; }

    /// The file itself. Throws Exception when it is missing, unreadable or no regular file.
    [[nodiscard]] std::unique_ptr<File> fetch() const override;

private:
    struct Absolute {
        std::string path;
    };
    explicit URLFile(Absolute absolute);

    std::string path_;
};

} // namespace Corvid

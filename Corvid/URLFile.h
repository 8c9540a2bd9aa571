#pragma once

#include <Corvid/URLImpl.h>

#include <string>

#include <orvel_export.h>

namespace Corvid {

/// A file of this machine. The default, for URLs without an implementation of their own and as the
/// base of relative texts, is the current directory at the time of construction. Immutable.
class ORVEL_EXPORT URLFile : public URLImpl {
public:
    /// The current directory.
    URLFile();
    /// A path; a relative one is taken from the current directory.
    explicit URLFile(const std::string& path);

    /// The absolute path, not encoded.
    [[nodiscard]] const std::string& path() const noexcept { return path_; }

    /// The file itself. Throws Exception when it is missing, unreadable or no regular file.
    [[nodiscard]] std::unique_ptr<File> fetch() const override;

private:
    std::string path_;
};

} // namespace Corvid

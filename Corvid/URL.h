#pragma once

#include <Corvid/URLImpl.h>

#include <memory>
#include <string>

#include <orvel_export.h>

namespace Corvid {

/// A parsed URL. Cheap to copy: copies share one implementation object. Immutable except for
/// assignment; any thread may use one object.
class ORVEL_EXPORT URL {
public:
    /// A URL without an implementation object: the current directory.
    URL() = default;
    /// Parses `text`, relative to the current directory. Throws URLImpl::Exception ("Cannot parse
    /// URL").
    explicit URL(const std::string& text);

    /// The absolute text form, such as "file:///home/me/bell.wav".
    [[nodiscard]] std::string text() const;
    /// Fetches the resource to a local file, see URLImpl::fetch().
    [[nodiscard]] std::unique_ptr<URLImpl::File> fetch() const;

private:
    std::shared_ptr<const URLImpl> impl_;
};

} // namespace Corvid

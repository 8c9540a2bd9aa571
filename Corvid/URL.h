#pragma once

#include <Corvid/URLImpl.h>

#include <memory>
#include <string>

#include <orvel_export.h>

namespace Corvid {

/// A parsed URL, a cheap value: copies share one implementation object. Immutable but for
/// assignment; any thread may use one object.
class ORVEL_EXPORT URL {
public:
    /// A URL without an implementation object: it stands for the current directory.
    URL() = default;
    /// Parses `text`, relative to the current directory; throws URLImpl::Exception ("Cannot parse
    /// URL").
    explicit URL(const std::string& text);

    /// The absolute text form, such as "file:///home/me/bell.wav".
    [[nodiscard]] std::string text() const;
    /// Makes the resource a local file, see URLImpl::fetch().
    [[nodiscard]] std::unique_ptr<URLImpl::File> fetch() const;

private:
    std::shared_ptr<const URLImpl> impl_;
};

} // namespace Corvid

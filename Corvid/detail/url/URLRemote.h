#pragma once

#include <Corvid/URLImpl.h>

#include <memory>
#include <string>
#include <utility>

namespace Corvid::detail {

/// A resource that is not a local file. http and https can be fetched; other schemes only have a
/// text. Immutable.
class URLRemote : public URLImpl {
public:
    /// `text`: an absolute, normalised URL.
    explicit URLRemote(std::string text) : URLImpl(std::move(text)) {}

    /// Downloads to the folder for temporary files, within fetchLimits(). Uses the proxies of the
    /// environment ("http_proxy" etc.).
    [[nodiscard]] std::unique_ptr<File> fetch() const override;
};

} // namespace Corvid::detail

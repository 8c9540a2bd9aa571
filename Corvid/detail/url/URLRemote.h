#pragma once

#include <Corvid/URLImpl.h>

#include <memory>
#include <string>
#include <utility>

namespace Corvid::detail {

/// A resource that is no file of this machine. http and https can be fetched; other schemes are
/// only known by their text. Immutable.
class URLRemote : public URLImpl {
public:
    /// `text`: an absolute URL in its normal form.
    explicit URLRemote(std::string text) : URLImpl(std::move(text)) {}

    /// Downloads into the folder for temporary files, within fetchLimits(). Proxies are those of
    /// the environment ("http_proxy" and its kin).
    [[nodiscard]] std::unique_ptr<File> fetch() const override;
};

} // namespace Corvid::detail

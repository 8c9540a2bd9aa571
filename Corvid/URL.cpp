#include <Corvid/URL.h>

#include <Corvid/URLFile.h>

namespace Corvid {

URL::URL(const std::string& text) : impl_(URLImpl::create(text)) {}

std::string URL::text() const {
    return impl_ ? impl_->text() : URLFile().text();
}

std::unique_ptr<URLImpl::File> URL::fetch() const {
    return impl_ ? impl_->fetch() : URLFile().fetch();
}

} // namespace Corvid

#include <Corvid/WebPage.h>

namespace Corvid {

WebPage::~WebPage() = default;

std::string WebPage::methods() const {
    return "GET, HEAD";
}

} // namespace Corvid

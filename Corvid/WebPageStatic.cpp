#include <Corvid/WebPageStatic.h>

#include <utility>

namespace Corvid {

WebPageStatic::WebPageStatic(std::string contentType, std::string body)
    : contentType_(std::move(contentType)), body_(std::move(body)) {}

bool WebPageStatic::create(
    WebClient* /*client*/, const ProtocolHTTP::Request& /*request*/, ProtocolHTTP::Reply& reply) {
    reply.setHeader("Content-Type", contentType_);
    reply.setBody(body_);
    return true;
}

WebPage* WebPageStatic::clone() const {
    return new WebPageStatic(*this);
}

} // namespace Corvid

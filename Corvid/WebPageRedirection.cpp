#include <Corvid/WebPageRedirection.h>

#include <Corvid/EscapeHtml.h>

#include <utility>

namespace Corvid {

WebPageRedirection::WebPageRedirection(std::string location) : location_(std::move(location)) {}

bool WebPageRedirection::create(
    WebClient* /*client*/, const ProtocolHTTP::Request& /*request*/, ProtocolHTTP::Reply& reply) {
    const std::string place = escapeHtml(location_);
    reply.setStatus(301);
    reply.setHeader("Location", location_);
    reply.setHeader("Content-Type", "text/html; charset=utf-8");
    reply.setBody(
        "<!DOCTYPE html>\n<title>Moved</title>\n<p>See <a href=\"" + place + "\">" + place +
        "</a>.</p>\n");
    return true;
}

WebPage* WebPageRedirection::clone() const {
    return new WebPageRedirection(*this);
}

} // namespace Corvid

#pragma once

#include <Corvid/WebPage.h>

#include <string>

#include <orvel_export.h>

namespace Corvid {

/// Serves fixed bytes.
class ORVEL_EXPORT WebPageStatic : public WebPage {
public:
    WebPageStatic(std::string contentType, std::string body);

    bool create(WebClient* client, const ProtocolHTTP::Request& request, ProtocolHTTP::Reply& reply)
        override;
    [[nodiscard]] WebPage* clone() const override;

private:
    std::string contentType_;
    std::string body_;
};

} // namespace Corvid

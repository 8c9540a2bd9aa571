#pragma once

#include <Corvid/WebPage.h>

#include <string>

#include <orvel_export.h>

namespace Corvid {

/// Redirects permanently (301) to another path.
class ORVEL_EXPORT WebPageRedirection : public WebPage {
public:
    explicit WebPageRedirection(std::string location);

    bool create(WebClient* client, const ProtocolHTTP::Request& request, ProtocolHTTP::Reply& reply)
        override;
    [[nodiscard]] WebPage* clone() const override;

private:
    std::string location_;
};

} // namespace Corvid

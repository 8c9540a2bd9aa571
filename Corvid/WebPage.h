#pragma once

#include <Corvid/ProtocolHTTP.h>
#include <Corvid/WebClient.h>

#include <string>

#include <orvel_export.h>

namespace Corvid {

/// What a web server serves below one path. Confined to the thread that updates the server, which
/// owns a copy.
class ORVEL_EXPORT WebPage {
public:
    WebPage() = default;
    virtual ~WebPage();

    /// Fills in the answer to a request of one of methods(). False if there is nothing below this
    /// path now, which answers 404; what it throws answers 500. `client` lives during the call. It
    /// must not destroy the server; close() takes effect after the answer.
    virtual bool
    create(WebClient* client, const ProtocolHTTP::Request& request, ProtocolHTTP::Reply& reply) = 0;

    /// A new copy, owned by the caller.
    [[nodiscard]] virtual WebPage* clone() const = 0;

    /// The methods that are served, as the header Allow lists them; others answer 405.
    [[nodiscard]] virtual std::string methods() const;

protected:
    WebPage(const WebPage&) = default;
    WebPage& operator=(const WebPage&) = default;
};

} // namespace Corvid

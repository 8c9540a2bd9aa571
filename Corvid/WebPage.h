#pragma once

#include <Corvid/ProtocolHTTP.h>
#include <Corvid/WebClient.h>

#include <string>

#include <orvel_export.h>

namespace Corvid {

/// A page of a web server, served at one path. Confined to the thread that updates the server,
/// which owns a copy.
class ORVEL_EXPORT WebPage {
public:
    WebPage() = default;
    virtual ~WebPage();

    /// Fills in the answer to a request with one of methods(). Returns false to answer 404; an
    /// exception answers 500. `client` is valid during the call. Must not destroy the server;
    /// close() takes effect after the answer.
    virtual bool
    create(WebClient* client, const ProtocolHTTP::Request& request, ProtocolHTTP::Reply& reply) = 0;

    /// Returns a new copy, owned by the caller.
    [[nodiscard]] virtual WebPage* clone() const = 0;

    /// The supported methods, in the form of the header Allow; others are answered with 405.
    [[nodiscard]] virtual std::string methods() const;

protected:
    WebPage(const WebPage&) = default;
    WebPage& operator=(const WebPage&) = default;
};

} // namespace Corvid

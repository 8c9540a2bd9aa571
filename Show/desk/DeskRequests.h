#pragma once

#include <Show/desk/Desk.h>
#include <Show/detail/RandomHex.h>

#include <Corvid/ProtocolHTTP.h>
#include <Corvid/WebPage.h>

#include <chrono>
#include <memory>
#include <string>
#include <utility>

namespace Show {

/// A desk with the secret and the rate of its requests.
struct DeskAccess {
    using Clock = std::chrono::steady_clock;

    explicit DeskAccess(Desk& itsDesk) : desk(itsDesk) {}

    Desk& desk;
    /// In the fragment of the desk's URL, which browsers send to no server; a header of each
    /// change.
    const std::string token = randomHex(32);
    double requestsLeft = 0.0;
    Clock::time_point lastRequest;
};

/// The address of a desk: GET gives its state, POST changes something. No page of another server
/// can post: the browser names that server as the origin, and asks first because of the content
/// type and the header Authorization.
class DeskRequests : public Corvid::WebPage {
public:
    static constexpr const char* kContentType = "application/vnd.orvel.desk+json";
    /// Limits of the accepted requests.
    static constexpr double kMaxPerSecond = 500.0;
    static constexpr double kMaxAtOnce = 1000.0;

    explicit DeskRequests(std::shared_ptr<DeskAccess> access) : access_(std::move(access)) {}

    bool create(
        Corvid::WebClient* client, const Corvid::ProtocolHTTP::Request& request,
        Corvid::ProtocolHTTP::Reply& reply) override;
    [[nodiscard]] std::string methods() const override { return "GET, HEAD, POST"; }
    [[nodiscard]] WebPage* clone() const override { return new DeskRequests(*this); }

private:
    /// Carries out a POST, or refuses it.
    [[nodiscard]] Desk::Answer take(const Corvid::ProtocolHTTP::Request& request) const;
    [[nodiscard]] bool isWithinRate() const;

    std::shared_ptr<DeskAccess> access_;
};

} // namespace Show

#include <Show/desk/DeskRequests.h>

#include <Show/monitor/JsonWriter.h>

#include <algorithm>
#include <utility>

namespace Show {

namespace {

using Corvid::ProtocolHTTP;

/// Whether the request comes from a page of this server. A proxy may have added encryption.
bool isFromOwnPage(const ProtocolHTTP::Request& request) {
    const std::string* origin = request.header("Origin");
    const std::string* host = request.header("Host");
    return origin != nullptr && host != nullptr &&
           (*origin == "http://" + *host || *origin == "https://" + *host);
}

} // namespace

bool DeskRequests::create(
    Corvid::WebClient* /*client*/, const ProtocolHTTP::Request& request,
    ProtocolHTTP::Reply& reply) {
    reply.setHeader("Content-Type", "application/json");
    std::string body;
    const Desk::Answer answer = request.method() == "POST" ? take(request) : Desk::Answer();
    reply.setStatus(answer.status);
    if (answer.status == 200) {
        access_->desk.write(body);
    } else {
        JsonWriter(body).open('{').field("error", answer.error).close('}');
    }
    reply.setBody(std::move(body));
    return true;
}

Desk::Answer DeskRequests::take(const ProtocolHTTP::Request& request) const {
    const std::string* type = request.header("Content-Type");
    if (type == nullptr || *type != kContentType) {
        return {415, std::string("expected the content type ") + kContentType};
    }
    if (!isFromOwnPage(request)) {
        return {403, "expected the header Origin with the address of this server"};
    }
    if (!request.hasBearer(access_->token)) {
        return {401, "expected the token; open the address that was printed at the start"};
    }
    if (!isWithinRate()) {
        return {429, "too many requests; wait a second"};
    }
    return access_->desk.take(request.body());
}

bool DeskRequests::isWithinRate() const {
    const auto now = DeskAccess::Clock::now();
    const std::chrono::duration<double> passed = now - std::exchange(access_->lastRequest, now);
    access_->requestsLeft =
        std::min(kMaxAtOnce, access_->requestsLeft + passed.count() * kMaxPerSecond);
    if (access_->requestsLeft < 1.0) {
        return false;
    }
    access_->requestsLeft -= 1.0;
    return true;
}

} // namespace Show

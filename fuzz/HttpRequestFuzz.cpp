// Any bytes as HTTP input: in pieces, whose size is the first byte, and at once. Both ways must
// give the same requests. Answers must be well-formed, must not contain the client's markup, and
// must end.
#include "Require.h"

#include <Corvid/WebPageObject.h>
#include <Corvid/WebPageRedirection.h>
#include <Corvid/WebPageStatic.h>
#include <Corvid/detail/http/HttpSession.h>

#include <algorithm>
#include <cstdint>
#include <vector>

using namespace Corvid;
using namespace Corvid::detail;
using namespace std::chrono_literals;

namespace {

/// The web site that makes the pages.
struct Maker {
    void log(const ProtocolHTTP::Request& /*request*/, ProtocolHTTP::Reply& reply) {
        site.createLogPage(reply);
    }
    void pieces(const ProtocolHTTP::Request& request, ProtocolHTTP::Reply& reply) {
        const std::string* count = request.parameter("n");
        reply.setBody([left = count == nullptr ? 0U : count->size()](std::string& more) mutable {
            more = std::string(left, '.');
            return left-- > 0;
        });
    }
    WebSite& site;
};

/// The requests in the bytes, fed in pieces. The moment of refusing a malformed one may depend on
/// the pieces, because an incomplete request is parsed again when its header seems complete.
std::vector<std::string> requestsIn(std::string_view bytes, std::size_t step) {
    std::vector<std::string> requests;
    HttpParser parser(1024, 4096);
    for (; !bytes.empty(); bytes.remove_prefix(std::min(step, bytes.size()))) {
        parser.append(bytes.substr(0, step));
        HttpParser::Outcome outcome = parser.read();
        while (outcome == HttpParser::Outcome::Complete) {
            const ProtocolHTTP::Request request = parser.takeRequest();
            std::string text = request.method() + ' ' + request.target();
            for (const auto& [name, value] : request.headers()) {
                text += '\n' + name + ": " + value;
            }
            require(request.body().size() <= 4096);
            require(!request.isValid() || request.path().starts_with('/'));
            requests.push_back(text + "\n\n" + request.body());
            outcome = parser.read();
        }
        if (outcome == HttpParser::Outcome::Refused) {
            require(parser.status() == 400 || parser.status() == 413 || parser.status() == 431);
            return requests;
        }
        require(parser.buffered() <= 1024);
    }
    return requests;
}

void talk(std::string_view bytes, std::size_t step) {
    WebSite site;
    site.limits.headerBytes = 1024;
    site.limits.bodyBytes = 4096;
    site.name = "fuzz";
    site.setLogSize(8);
    site.addPage("/", WebPageRedirection("/log"));
    Maker maker{site};
    site.addPage("/log", WebPageObject<Maker>(maker, &Maker::log));
    site.addPage("/pieces", WebPageObject<Maker>(maker, &Maker::pieces));
    site.addPage("/Style.css", WebPageStatic("text/css", "a"));
    HttpSession::Clock::time_point now;
    HttpSession session(site, WebClient(InetAddress::fromBits(0x7F000001), 1), now);
    std::string output;
    const auto attend = [&] {
        for (int i = 0; i < 100'000 && (session.wantsStep() || !session.output().empty()); ++i) {
            if (session.wantsStep()) {
                session.step(now);
            }
            if (!session.output().empty()) { // a client that reads half of it
                const std::string rest = session.output().front().substr(session.outputOffset());
                const std::size_t taken = (rest.size() + 1) / 2;
                output += rest.substr(0, taken);
                require(session.outputBytes() >= taken);
                session.sent(taken, now);
            }
        }
        require(!session.wantsStep() && session.outputBytes() == 0);
    };
    for (; !bytes.empty(); bytes.remove_prefix(std::min(step, bytes.size()))) {
        if (session.wantsInput()) {
            session.receive(bytes.substr(0, step), now);
        }
        attend();
    }
    for (int i = 0; i < 3 && session.state() != HttpSession::State::Closed; ++i) {
        now = std::max(now, session.deadline());
        session.expire(now);
        attend();
    }
    require(session.state() == HttpSession::State::Closed);
    require(output.empty() || output.starts_with("HTTP/1.1 "));
    require(output.find("<script") == std::string::npos);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    const std::size_t step = data[0] + 1U;
    require(requestsIn(bytes, step) == requestsIn(bytes, bytes.size()));
    talk(bytes, step);
    return 0;
}

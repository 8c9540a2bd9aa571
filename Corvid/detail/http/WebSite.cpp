#include <Corvid/detail/http/WebSite.h>

#include <Corvid/EscapeHtml.h>
#include <Corvid/InetAddress.h>
#include <Corvid/WebPageStatic.h>
#include <Corvid/detail/http/Secret.h>

#include <boost/beast/core/string.hpp>

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cstdio>
#include <ctime>
#include <exception>
#include <netinet/in.h>
#include <string_view>

namespace Corvid::detail {

namespace {

constexpr std::size_t kCookieNameDigits = 8;
constexpr std::size_t kMaxLogged = 10'000;
constexpr std::size_t kMaxShown = 256; // of a text from a client

/// The style of the server's own pages; a host's /Style.css may override it.
constexpr const char* kFrameStyle =
    "body { margin: 0; font-family: sans-serif; color: black; background-color: white }\n"
    "header, footer { display: flex; flex-wrap: wrap; justify-content: space-between;\n"
    "  min-height: 1.5em; padding: 3px 10px; font-style: italic;\n"
    "  color: white; background-color: #003399 }\n"
    "main { padding: 0 10px }\n"
    "h1.title { color: inherit }\n"
    "h1, p, td { overflow-wrap: anywhere }\n"
    "th { text-align: left }\n"
    "@media (prefers-color-scheme: dark) {\n"
    "  body { color: #e5eaf0; background-color: #10151c }\n"
    "}\n";

/// A text from a client, shortened and escaped.
std::string shown(const std::string& text) {
    return escapeHtml(text.substr(0, kMaxShown)) + (text.size() > kMaxShown ? "..." : "");
}

bool lists(const std::string& methods, const std::string& method) {
    std::string_view rest = methods;
    while (!rest.empty()) {
        const std::string_view one = rest.substr(0, rest.find_first_of(", "));
        rest.remove_prefix(std::min(one.size() + 1, rest.size()));
        if (one == method) {
            return true;
        }
    }
    return false;
}

std::string explanation(int status, const WebServer::Limits& limits) {
    switch (status) {
    case 408:
        return "The request did not arrive within " + std::to_string(limits.patience.count()) +
               " ms.";
    case 413:
        return "The limit for the body of a request is " + std::to_string(limits.bodyBytes) +
               " bytes.";
    case 431:
        return "The limit for the header of a request is " + std::to_string(limits.headerBytes) +
               " bytes.";
    default:
        return "This is not a valid HTTP/1.0 or 1.1 request.";
    }
}

} // namespace

std::string httpDate(std::chrono::system_clock::time_point time) {
    // Not strftime, because the names are English in every locale.
    constexpr std::array kDays{"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    constexpr std::array kMonths{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                 "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm parts = {};
    ::gmtime_r(&seconds, &parts);
    std::array<char, 64> text = {};
    std::snprintf(
        text.data(), text.size(), "%s, %02d %s %d %02d:%02d:%02d GMT",
        kDays[static_cast<std::size_t>(parts.tm_wday)], parts.tm_mday,
        kMonths[static_cast<std::size_t>(parts.tm_mon)], parts.tm_year + 1900, parts.tm_hour,
        parts.tm_min, parts.tm_sec);
    return text.data();
}

WebSite::WebSite() {
    addPage("/frame.css", WebPageStatic("text/css; charset=utf-8", kFrameStyle));
}

bool WebSite::isCalled(std::string_view host) const {
    std::array<unsigned char, sizeof(in6_addr)> address = {};
    if (host.empty() || host.starts_with('[') ||
        ::inet_pton(AF_INET, std::string(host).c_str(), address.data()) == 1) {
        return true;
    }
    if (host.ends_with('.')) {
        host.remove_suffix(1);
    }
    const std::string own = InetAddress::getLocalHostName();
    const std::string first = own.substr(0, own.find('.'));
    const auto is = [&host](const std::string& other) {
        return boost::beast::iequals({host.data(), host.size()}, other);
    };
    return is("localhost") || is(own) || is(first) || is(first + ".local") ||
           std::any_of(hostNames.begin(), hostNames.end(), is) || is(listeningHost);
}

bool WebSite::addPage(const std::string& path, const WebPage& page) {
    if (!path.starts_with('/')) {
        return false;
    }
    std::shared_ptr<WebPage> copy(page.clone());
    if (!copy) {
        return false;
    }
    pages_[path] = std::move(copy);
    return true;
}

void WebSite::answer(
    WebClient& client, const ProtocolHTTP::Request& request, ProtocolHTTP::Reply& reply) {
    if (!request.isValid()) {
        setError(
            reply, 400,
            "The address <tt>" + shown(request.target()) + "</tt> or its host is malformed.");
    } else if (!isCalled(request.host())) {
        setError(
            reply, 421,
            "This server is not called <tt>" + shown(request.host()) +
                "</tt>. Use its address, <tt>localhost</tt> or <tt>" +
                escapeHtml(InetAddress::getLocalHostName()) + "</tt>.");
    } else if (admit(request, reply)) {
        fill(client, request, reply);
    }
    // The query of a request may hold the token.
    const std::string& what = token.empty() ? request.target() : request.path();
    note(client, request.method() + ' ' + what, reply.status());
}

bool WebSite::admit(const ProtocolHTTP::Request& request, ProtocolHTTP::Reply& reply) const {
    if (token.empty() || request.hasBearer(token)) {
        return true;
    }
    // Cookies do not know ports, so each server of a machine has a name of its own.
    const std::string cookie = "orvel-" + token.substr(0, kCookieNameDigits) + '=';
    for (const auto& [header, value] : request.headers()) {
        if (const auto place = value.find(cookie);
            boost::beast::iequals(header, "Cookie") && place != std::string::npos &&
            isSameSecret(
                std::string_view(value).substr(place + cookie.size(), token.size()), token)) {
            return true;
        }
    }
    const std::string* given = request.parameter("token");
    if (given != nullptr && isSameSecret(*given, token)) {
        // Leaves the address, so that it is in no history and no Referer.
        reply = {};
        reply.setStatus(303);
        reply.setHeader("Location", "/");
        reply.setHeader("Set-Cookie", cookie + token + "; Path=/; HttpOnly; SameSite=Lax");
        reply.setHeader("Cache-Control", "no-store");
        return false;
    }
    setError(
        reply, 401,
        "Open the complete address that the program printed when it started, with its token.");
    reply.setHeader("WWW-Authenticate", "Bearer");
    return false;
}

void WebSite::fill(
    WebClient& client, const ProtocolHTTP::Request& request, ProtocolHTTP::Reply& reply) const {
    const std::string missing = "There is no page <tt>" + shown(request.path()) + "</tt>.";
    auto found = pages_.find(request.path());
    for (std::size_t slash = std::string::npos; found == pages_.end() && slash != 0;) {
        slash = request.path().rfind('/', slash == std::string::npos ? slash : slash - 1);
        found = pages_.find(request.path().substr(0, slash + 1) + '*');
    }
    if (found == pages_.end()) {
        setError(reply, 404, missing);
        return;
    }
    const std::shared_ptr<WebPage> page = found->second; // it may replace itself
    const std::string methods = page->methods();
    if (!lists(methods, request.method())) {
        setError(
            reply, 405,
            "This page supports the methods " + escapeHtml(methods) + ", not <tt>" +
                shown(request.method()) + "</tt>.");
        reply.setHeader("Allow", methods);
        return;
    }
    std::string fault;
    try {
        if (!page->create(&client, request, reply)) {
            setError(reply, 404, missing);
        }
        if (reply.body().size() > limits.replyBytes) {
            fault = "it made " + std::to_string(reply.body().size()) +
                    " bytes at once, more than " + std::to_string(limits.replyBytes) +
                    "; give it a producer";
        }
    } catch (const std::exception& exception) {
        fault = exception.what();
    } catch (...) {
        fault = "it threw an unknown exception";
    }
    if (!fault.empty()) {
        report("the page " + request.path() + " failed: " + fault);
        setError(reply, 500, "This page failed.");
    }
}

void WebSite::refuse(WebClient& client, int status, ProtocolHTTP::Reply& reply) {
    setError(reply, status, explanation(status, limits));
    note(client, "-", status);
}

void WebSite::setError(ProtocolHTTP::Reply& reply, int status, const std::string& text) const {
    reply = {};
    reply.setStatus(status);
    reply.setHeader("Content-Type", "text/html; charset=utf-8");
    const std::string title(ProtocolHTTP::reason(status));
    reply.setBody(createFrame(title, "    <p>" + text + "</p>\n"));
}

void WebSite::report(const std::string& line) const {
    if (diagnostic) {
        diagnostic(line);
    }
}

std::string WebSite::createFrame(const std::string& title, const std::string& content) const {
    return "<!DOCTYPE html>\n<html lang=\"en\">\n  <head>\n    <meta charset=\"utf-8\">\n"
           "    <meta name=\"viewport\" content=\"width=device-width\">\n    <title>" +
           escapeHtml(title) +
           "</title>\n    <link rel=\"stylesheet\" type=\"text/css\" href=\"/frame.css\">\n" +
           (pages_.contains("/Style.css")
                ? "    <link rel=\"stylesheet\" type=\"text/css\" href=\"/Style.css\">\n"
                : "") +
           "  </head>\n  <body>\n    <header><div>" + escapeHtml(name) + "</div><div>" +
           escapeHtml(notice) + "</div></header>\n    <main>\n    <h1 class=\"title\">" +
           escapeHtml(title) + "</h1>\n" + content + "    </main>\n    <footer>" +
           escapeHtml(contact) + "</footer>\n  </body>\n</html>\n";
}

void WebSite::setLogSize(std::size_t size) {
    logSize_ = std::min(size, kMaxLogged);
    log_.resize(std::min(log_.size(), logSize_));
}

void WebSite::note(const WebClient& client, const std::string& what, int status) {
    ++counters.requests;
    counters.refused += status >= 400 ? 1 : 0;
    if (logSize_ == 0) {
        return;
    }
    if (log_.size() == logSize_) {
        log_.pop_back();
    }
    // One character more than is shown, so that truncation is detected.
    log_.push_front(
        {std::chrono::system_clock::now(), client.text(), what.substr(0, kMaxShown + 1), status});
}

void WebSite::createLogPage(ProtocolHTTP::Reply& reply) const {
    std::string content;
    if (logSize_ == 0) {
        content = "    <p>No requests are logged: the size of the log is 0.</p>\n";
    } else {
        content = "    <p>The last " + std::to_string(log_.size()) + " of at most " +
                  std::to_string(logSize_) +
                  " requests, newest first.</p>\n    <table>\n"
                  "    <tr><th>Time</th><th>Client</th><th>Request</th><th>Status</th></tr>\n";
        for (const LogEntry& entry : log_) {
            content += "    <tr><td>" + httpDate(entry.time) + "</td><td>" +
                       escapeHtml(entry.client) + "</td><td>" + shown(entry.what) + "</td><td>" +
                       std::to_string(entry.status) + "</td></tr>\n";
        }
        content += "    </table>\n";
    }
    reply.setHeader("Content-Type", "text/html; charset=utf-8");
    reply.setBody(createFrame("Log", content));
}

} // namespace Corvid::detail

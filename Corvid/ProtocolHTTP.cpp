#include <Corvid/ProtocolHTTP.h>

#include <Corvid/detail/http/Secret.h>

#include <boost/beast/http/status.hpp>

#include <algorithm>
#include <charconv>
#include <ostream> // missing in Boost 1.74

namespace Corvid {

namespace {

char lower(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                                : character;
}

bool equalIgnoringCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return lower(x) == lower(y);
    });
}

bool isControl(char character) {
    return static_cast<unsigned char>(character) < 0x20U || character == 0x7F;
}

/// A token of RFC 9110.
bool isToken(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char character) {
        const char c = lower(character);
        return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
               std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
    });
}

/// Appends the decoded text. Returns false for a percent sign without two hexadecimal digits.
bool decode(std::string_view text, bool plusIsBlank, std::string& decoded) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%') {
            unsigned value = 0;
            const char* digits = text.data() + i + 1;
            if (text.size() - i < 3 ||
                std::from_chars(digits, digits + 2, value, 16).ptr != digits + 2) {
                return false;
            }
            decoded += static_cast<char>(value);
            i += 2;
        } else {
            decoded += plusIsBlank && text[i] == '+' ? ' ' : text[i];
        }
    }
    return true;
}

template <class Found>
const std::string* find(const ProtocolHTTP::Fields& fields, Found found) {
    const auto field = std::find_if(
        fields.begin(), fields.end(), [&found](const auto& entry) { return found(entry.first); });
    return field == fields.end() ? nullptr : &field->second;
}

} // namespace

ProtocolHTTP::Request::Request(
    std::string method, std::string target, Fields headers, std::string body)
    : method_(std::move(method)), target_(std::move(target)), headers_(std::move(headers)),
      body_(std::move(body)), valid_(readTarget() && readHost()) {
    if (!valid_) {
        host_.clear();
        path_.clear();
        parameters_.clear();
    }
}

bool ProtocolHTTP::Request::readTarget() {
    std::string_view rest = target_;
    constexpr std::string_view kScheme = "http://";
    if (equalIgnoringCase(rest.substr(0, kScheme.size()), kScheme)) {
        rest.remove_prefix(kScheme.size());
        host_ = rest.substr(0, rest.find_first_of("/?#"));
        rest.remove_prefix(host_.size());
        if (host_.empty()) {
            return false;
        }
        if (!rest.starts_with('/')) {
            path_ += '/';
        }
    } else if (!rest.starts_with('/')) {
        return false;
    }
    rest = rest.substr(0, rest.find('#'));
    const std::size_t question = std::min(rest.find('?'), rest.size());
    if (!decode(rest.substr(0, question), false, path_) ||
        std::any_of(path_.begin(), path_.end(), isControl)) {
        return false;
    }
    rest.remove_prefix(std::min(question + 1, rest.size()));
    while (!rest.empty()) {
        const std::string_view field = rest.substr(0, rest.find('&'));
        rest.remove_prefix(std::min(field.size() + 1, rest.size()));
        if (field.empty()) {
            continue;
        }
        const std::size_t equals = std::min(field.find('='), field.size());
        auto& [name, value] = parameters_.emplace_back();
        if (!decode(field.substr(0, equals), true, name) ||
            !decode(field.substr(std::min(equals + 1, field.size())), true, value)) {
            return false;
        }
    }
    return true;
}

bool ProtocolHTTP::Request::readHost() {
    if (host_.empty()) {
        const std::string* field = header("Host");
        if (field == nullptr) {
            return true;
        }
        host_ = *field;
    }
    const std::size_t colon = host_.find_last_not_of("0123456789");
    if (colon != std::string::npos && host_[colon] == ':') {
        host_.erase(colon); // and the port
    }
    std::transform(host_.begin(), host_.end(), host_.begin(), lower);
    if (host_.starts_with('[') && host_.ends_with(']')) {
        return host_.find_first_not_of("0123456789abcdef:.", 1) == host_.size() - 1;
    }
    return !host_.empty() && host_.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789"
                                                     "-._~!$&'()*+,;=%") == std::string::npos;
}

const std::string* ProtocolHTTP::Request::parameter(std::string_view name) const {
    return find(parameters_, [name](const std::string& other) { return other == name; });
}

const std::string* ProtocolHTTP::Request::header(std::string_view name) const {
    return find(
        headers_, [name](const std::string& other) { return equalIgnoringCase(other, name); });
}

bool ProtocolHTTP::Request::hasBearer(std::string_view token) const {
    constexpr std::string_view kScheme = "Bearer ";
    const std::string* given = header("Authorization");
    return given != nullptr && given->starts_with(kScheme) &&
           detail::isSameSecret(std::string_view(*given).substr(kScheme.size()), token);
}

void ProtocolHTTP::Reply::setStatus(int status) {
    status_ = status < 200 || status > 599 ? 500 : status;
}

bool ProtocolHTTP::Reply::setHeader(const std::string& name, const std::string& value) {
    if (!isToken(name) || std::any_of(value.begin(), value.end(), isControl)) {
        return false;
    }
    const auto field = std::find_if(headers_.begin(), headers_.end(), [&name](const auto& entry) {
        return equalIgnoringCase(entry.first, name);
    });
    if (field == headers_.end()) {
        headers_.emplace_back(name, value);
    } else {
        field->second = value;
    }
    return true;
}

const std::string* ProtocolHTTP::Reply::header(std::string_view name) const {
    return find(
        headers_, [name](const std::string& other) { return equalIgnoringCase(other, name); });
}

void ProtocolHTTP::Reply::setBody(std::string body) {
    body_ = std::move(body);
    producer_ = nullptr;
}

void ProtocolHTTP::Reply::setBody(Producer producer) {
    body_.clear();
    producer_ = std::move(producer);
}

std::string_view ProtocolHTTP::reason(int status) noexcept {
    const auto text = boost::beast::http::obsolete_reason(
        boost::beast::http::int_to_status(static_cast<unsigned>(status)));
    return {text.data(), text.size()};
}

} // namespace Corvid

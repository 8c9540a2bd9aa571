#include <Corvid/URLImpl.h>

#include <Corvid/URLFile.h>
#include <Corvid/detail/url/PercentEncode.h>
#include <Corvid/detail/url/URLRemote.h>
#include <Vessa/Mutex.h>

#include <curl/curl.h>
#include <filesystem>
#include <string_view>
#include <system_error>

namespace Corvid {

namespace {

struct Limits {
    Vessa::Mutex mutex;
    URLImpl::FetchLimits values ORVEL_GUARDED_BY(mutex);
};

Limits& limits() {
    static Limits theLimits;
    return theLimits;
}

[[noreturn]] void throwUnparsable() {
    throw URLImpl::Exception("Cannot parse URL");
}

/// An absolute URL, parsed.
class Parsed {
public:
    explicit Parsed(const std::string& text) : url_(curl_url()) {
        // Schemes that cannot be fetched may be supported by a player.
        const unsigned flags = CURLU_NON_SUPPORT_SCHEME | CURLU_URLENCODE;
        if (!url_ || curl_url_set(url_.get(), CURLUPART_URL, text.c_str(), flags) != CURLUE_OK) {
            throwUnparsable();
        }
    }

    [[nodiscard]] std::string part(CURLUPart which, unsigned flags = 0) const {
        char* text = nullptr;
        if (curl_url_get(url_.get(), which, &text, flags) != CURLUE_OK) {
            throwUnparsable();
        }
        const std::unique_ptr<char, decltype(&curl_free)> owner(text, &curl_free);
        return text;
    }

private:
    struct Cleanup {
        void operator()(CURLU* url) const { curl_url_cleanup(url); }
    };
    std::unique_ptr<CURLU, Cleanup> url_;
};

bool isLetter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

/// Whether it starts with "name://" or "file:". For other names a single colon is no scheme: files
/// may be called "take:2.wav".
bool hasScheme(std::string_view text) {
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos || !isLetter(text.front())) {
        return false;
    }
    for (const char c : text.substr(0, colon)) {
        if (!isLetter(c) && (c < '0' || c > '9') && c != '+' && c != '.' && c != '-') {
            return false;
        }
    }
    return text.substr(colon).starts_with("://") || curl_strnequal(text.data(), "file:", 5) != 0;
}

/// Resolves a path against the base's directory, its text up to the last slash.
std::string resolve(const std::string& path, const std::string& base) {
    const std::size_t authority = base.find("://");
    const std::size_t root =
        authority == std::string::npos ? std::string::npos : base.find('/', authority + 3);
    if (root == std::string::npos) {
        throwUnparsable();
    }
    const std::string basePath = base.substr(root, base.find_first_of("?#", root) - root);
    const std::string directory =
        path.front() == '/' ? "" : basePath.substr(0, basePath.rfind('/') + 1);
    return base.substr(0, root) + directory + detail::percentEncode(path);
}

} // namespace

URLImpl::File::File(std::string name, bool temporary)
    : name_(std::move(name)), temporary_(temporary) {}

URLImpl::File::~File() {
    if (temporary_) {
        std::error_code ignored; // in a destructor, errors cannot be reported
        std::filesystem::remove(name_, ignored);
    }
}

void URLImpl::setFetchLimits(const FetchLimits& newLimits) {
    Limits& shared = limits();
    const Vessa::Lock lock(shared.mutex);
    shared.values = newLimits;
}

URLImpl::FetchLimits URLImpl::fetchLimits() {
    Limits& shared = limits();
    const Vessa::Lock lock(shared.mutex);
    return shared.values;
}

std::unique_ptr<URLImpl> URLImpl::create(const std::string& text, const URLImpl& base) {
    if (text.empty() || text.find('\0') != std::string::npos) {
        throwUnparsable();
    }
    std::string absolute; // with encoded spaces, as libcurl does not always encode them
    for (const char c : hasScheme(text) ? text : resolve(text, base.text())) {
        absolute += c == ' ' ? std::string("%20") : std::string(1, c);
    }
    const Parsed url(absolute);
    if (url.part(CURLUPART_SCHEME) == "file") {
        const std::string path = url.part(CURLUPART_PATH, CURLU_URLDECODE);
        if (!path.starts_with('/')) {
            throwUnparsable();
        }
        return std::make_unique<URLFile>(path);
    }
    // libcurl tolerates an extra slash, and would take the first folder for the host. It checks for
    // numeric hosts before it decodes them, so some would change when parsed again.
    const std::string normal = url.part(CURLUPART_URL);
    if (absolute[absolute.find("://") + 3] == '/' || Parsed(normal).part(CURLUPART_URL) != normal) {
        throwUnparsable();
    }
    return std::make_unique<detail::URLRemote>(normal);
}

std::unique_ptr<URLImpl> URLImpl::create(const std::string& text) {
    const bool absolute = text.starts_with('/') || (!text.empty() && hasScheme(text));
    return create(text, absolute ? URLFile("/") : URLFile());
}

} // namespace Corvid

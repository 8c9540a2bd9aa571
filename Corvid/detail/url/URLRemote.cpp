#include <Corvid/detail/url/URLRemote.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <curl/curl.h>
#include <fcntl.h>
#include <filesystem>
#include <limits>
#include <stdexcept>
#include <system_error>
#include <unistd.h>

namespace Corvid::detail {

namespace {

using Clock = std::chrono::steady_clock;

std::string errorText(int code) {
    return std::generic_category().message(code);
}

/// A download in progress, shared with libcurl's callbacks, none of which may throw. The file is
/// removed with this object unless it is moved out.
struct Transfer {
    URLImpl::FetchLimits limits;
    std::unique_ptr<URLImpl::File> file;
    std::FILE* stream = nullptr;
    std::uint64_t size = 0;
    Clock::time_point lastByte = Clock::now();
    int writeError = 0;
    bool tooLarge = false;

    Transfer() = default;
    ~Transfer() { close(); }
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    void close() {
        if (stream != nullptr && std::fclose(stream) != 0 && writeError == 0) {
            writeError = errno; // the last bytes are written here
        }
        stream = nullptr;
    }
};

std::size_t takeBody(char* data, std::size_t one, std::size_t count, void* user) {
    auto& transfer = *static_cast<Transfer*>(user);
    const std::size_t size = one * count;
    transfer.lastByte = Clock::now();
    if (size > transfer.limits.maxBytes - transfer.size) {
        transfer.tooLarge = true;
        return CURL_WRITEFUNC_ERROR;
    }
    if (std::fwrite(data, 1, size, transfer.stream) != size) {
        transfer.writeError = errno;
        return CURL_WRITEFUNC_ERROR;
    }
    transfer.size += size;
    return size;
}

std::size_t takeHeader(char* /*data*/, std::size_t one, std::size_t count, void* user) {
    static_cast<Transfer*>(user)->lastByte = Clock::now();
    return one * count;
}

/// Called about once per second even while nothing arrives. libcurl's own limit uses the average
/// speed of the last seconds, and would notice a stall that much later.
int checkStall(void* user, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    const auto& transfer = *static_cast<const Transfer*>(user);
    const auto pause = Clock::now() - transfer.lastByte;
    return pause > std::chrono::seconds(transfer.limits.stallSeconds) ? 1 : 0;
}

/// Zero, which means no limit, and values beyond libcurl's range become its maximum.
URLImpl::FetchLimits effective(URLImpl::FetchLimits limits) {
    const auto clamp = [](auto& value, auto greatest) {
        value = value == 0 || value > greatest ? greatest : value;
    };
    constexpr unsigned kMaxSeconds = std::numeric_limits<int>::max() / 1000;
    clamp(limits.connectSeconds, kMaxSeconds);
    clamp(limits.stallSeconds, kMaxSeconds);
    clamp(limits.maxBytes, std::uint64_t{std::numeric_limits<curl_off_t>::max()});
    return limits;
}

/// The extension of the path's last name with its dot, or an empty text, since decoders depend on
/// it. The URL is untrusted and this becomes part of a file name, so it must be plain and short.
std::string extension(const std::string& url) {
    constexpr std::size_t kMaxLength = 16;
    const std::string path = url.substr(0, url.find_first_of("?#"));
    const std::string found =
        std::filesystem::path(path.substr(path.rfind('/') + 1)).extension().string();
    const bool safe = std::all_of(found.begin(), found.end(), [](char c) {
        return c == '.' || (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') ||
               (c >= 'a' && c <= 'z');
    });
    return safe && found.size() <= kMaxLength ? found : std::string();
}

void openTemporary(Transfer& transfer, const std::string& suffix) {
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::temp_directory_path(error);
    if (error) {
        throw std::runtime_error(
            "no folder for temporary files (" + error.message() + "); set TMPDIR to one");
    }
    std::string name = (folder / ("orvel-XXXXXX" + suffix)).string();
    const int descriptor = ::mkostemps(name.data(), static_cast<int>(suffix.size()), O_CLOEXEC);
    if (descriptor < 0) {
        throw std::runtime_error(
            "cannot create a file in \"" + folder.string() + "\": " + errorText(errno));
    }
    transfer.file = std::make_unique<URLImpl::File>(name, true);
    transfer.stream = ::fdopen(descriptor, "wb");
    if (transfer.stream == nullptr) {
        const int reason = errno;
        ::close(descriptor);
        throw std::runtime_error("cannot open \"" + name + "\": " + errorText(reason));
    }
}

/// The reason why a finished transfer failed, or an empty text.
std::string whyFailed(CURL* curl, CURLcode code, const char* details, const Transfer& transfer) {
    if (transfer.tooLarge || code == CURLE_FILESIZE_EXCEEDED) {
        return "it is larger than the limit of " + std::to_string(transfer.limits.maxBytes) +
               " bytes";
    }
    if (code == CURLE_ABORTED_BY_CALLBACK) { // checkStall() is the only one that does
        return "the server sent nothing for " + std::to_string(transfer.limits.stallSeconds) +
               " seconds";
    }
    if (transfer.writeError != 0) {
        return "cannot write \"" + transfer.file->name() + "\": " + errorText(transfer.writeError);
    }
    if (code != CURLE_OK) {
        return *details != '\0' ? details : curl_easy_strerror(code);
    }
    long status = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    if (status < 200 || status > 299) { // such as a redirect without a target
        return "the server answered with status " + std::to_string(status);
    }
    return {};
}

struct CurlCleanup {
    void operator()(CURL* curl) const { curl_easy_cleanup(curl); }
};

std::unique_ptr<URLImpl::File> download(const std::string& url) {
    // Once per process, before libcurl's first use; static initialisation is thread-safe.
    static const CURLcode ready = curl_global_init(CURL_GLOBAL_DEFAULT);
    const std::unique_ptr<CURL, CurlCleanup> curl(ready == CURLE_OK ? curl_easy_init() : nullptr);
    if (!curl) {
        throw std::runtime_error("libcurl cannot be initialised");
    }
    Transfer transfer;
    transfer.limits = effective(URLImpl::fetchLimits());
    openTemporary(transfer, extension(url));

    std::array<char, CURL_ERROR_SIZE> details = {};
    const auto set = [&curl](CURLoption option, auto value) {
        if (const CURLcode code = curl_easy_setopt(curl.get(), option, value); code != CURLE_OK) {
            throw std::runtime_error(curl_easy_strerror(code));
        }
    };
    set(CURLOPT_ERRORBUFFER, details.data());
    set(CURLOPT_URL, url.c_str());
    set(CURLOPT_USERAGENT, "orvel/" ORVEL_VERSION);
    set(CURLOPT_NOSIGNAL, 1L); // signals belong to the host
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    set(CURLOPT_FOLLOWLOCATION, 1L);
    set(CURLOPT_MAXREDIRS, static_cast<long>(transfer.limits.maxRedirects));
    set(CURLOPT_CONNECTTIMEOUT, static_cast<long>(transfer.limits.connectSeconds));
    set(CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(transfer.limits.maxBytes));
    set(CURLOPT_FAILONERROR, 1L);
    set(CURLOPT_WRITEFUNCTION, &takeBody);
    set(CURLOPT_WRITEDATA, &transfer);
    set(CURLOPT_HEADERFUNCTION, &takeHeader);
    set(CURLOPT_HEADERDATA, &transfer);
    set(CURLOPT_XFERINFOFUNCTION, &checkStall);
    set(CURLOPT_XFERINFODATA, &transfer);
    set(CURLOPT_NOPROGRESS, 0L);

    transfer.lastByte = Clock::now();
    const CURLcode code = curl_easy_perform(curl.get());
    transfer.close();
    std::string reason = whyFailed(curl.get(), code, details.data(), transfer);
    if (!reason.empty()) {
        const char* last = nullptr;
        curl_easy_getinfo(curl.get(), CURLINFO_EFFECTIVE_URL, &last);
        if (last != nullptr && url != last) {
            reason += " (redirected to \"" + std::string(last) + "\")";
        }
        throw std::runtime_error(reason);
    }
    return std::move(transfer.file);
}

} // namespace

std::unique_ptr<URLImpl::File> URLRemote::fetch() const {
    try {
        const std::string scheme = text().substr(0, text().find(':'));
        if (scheme != "http" && scheme != "https") {
            throw std::runtime_error(
                "\"" + scheme + "\" is not supported; use file, http or https");
        }
        return download(text());
    } catch (const std::runtime_error& reason) {
        throw Exception("Cannot fetch \"" + text() + "\": " + reason.what(), reason.what());
    }
}

} // namespace Corvid::detail

#include <Corvid/detail/URLRemote.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <curl/curl.h>
#include <fcntl.h>
#include <filesystem>
#include <limits>
#include <system_error>
#include <unistd.h>

namespace Corvid::detail {

namespace {

using Clock = std::chrono::steady_clock;

std::string errorText(int code) {
    return std::generic_category().message(code);
}

/// The file that a download goes to. Only the descriptor is owned here.
class Descriptor {
public:
    explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
    ~Descriptor() { close(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    /// 0, or the error number.
    int write(const char* data, std::size_t size) const {
        while (size > 0) {
            const ssize_t written = ::write(descriptor_, data, size);
            if (written < 0 && errno != EINTR) {
                return errno;
            }
            const auto done = static_cast<std::size_t>(std::max<ssize_t>(written, 0));
            data += done;
            size -= done;
        }
        return 0;
    }

    /// 0, or the error number: some file systems report a full disk only here.
    int close() {
        const int result = descriptor_ >= 0 && ::close(descriptor_) != 0 ? errno : 0;
        descriptor_ = -1;
        return result;
    }

private:
    int descriptor_;
};

/// What libcurl's callbacks share. None of them may throw.
struct Transfer {
    Transfer(const URLImpl::FetchLimits& l, int descriptor) : limits(l), file(descriptor) {}

    URLImpl::FetchLimits limits;
    Descriptor file;
    std::uint64_t size = 0;
    Clock::time_point lastByte = Clock::now();
    int writeError = 0;
    bool tooLarge = false;
    bool stalled = false;
};

std::size_t takeBody(char* data, std::size_t one, std::size_t count, void* user) {
    auto& transfer = *static_cast<Transfer*>(user);
    const std::size_t size = one * count;
    transfer.lastByte = Clock::now();
    if (size > transfer.limits.maxBytes - transfer.size) {
        transfer.tooLarge = true;
        return CURL_WRITEFUNC_ERROR;
    }
    transfer.writeError = transfer.file.write(data, size);
    transfer.size += size;
    return transfer.writeError == 0 ? size : CURL_WRITEFUNC_ERROR;
}

std::size_t takeHeader(char*, std::size_t one, std::size_t count, void* user) {
    static_cast<Transfer*>(user)->lastByte = Clock::now();
    return one * count;
}

/// Called about once per second also while nothing arrives. libcurl's own limit is one of the
/// average speed, which notices a stall seconds late.
int checkStall(void* user, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    auto& transfer = *static_cast<Transfer*>(user);
    transfer.stalled =
        Clock::now() - transfer.lastByte > std::chrono::seconds(transfer.limits.stallSeconds);
    return transfer.stalled ? 1 : 0;
}

/// The extension of the path's last name with its dot, or nothing: a decoder may go by it. What a
/// stranger's URL puts there becomes part of a file name, so it is plain and short.
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

/// Zero, which stands for no limit, and what is beyond libcurl's range become its greatest values.
URLImpl::FetchLimits effective(URLImpl::FetchLimits limits) {
    const auto clamp = [](auto& value, auto greatest) {
        value = value == 0 || value > greatest ? greatest : value;
    };
    constexpr unsigned kMostSeconds = std::numeric_limits<int>::max() / 1000;
    clamp(limits.connectSeconds, kMostSeconds);
    clamp(limits.stallSeconds, kMostSeconds);
    clamp(limits.maxBytes, std::uint64_t{std::numeric_limits<curl_off_t>::max()});
    return limits;
}

struct CurlCleanup {
    void operator()(CURL* curl) const { curl_easy_cleanup(curl); }
};

} // namespace

std::unique_ptr<URLImpl::File> URLRemote::fetch() const {
    const auto fail = [this](const std::string& reason) {
        throw Exception("Cannot fetch \"" + text() + "\": " + reason);
    };
    const std::string scheme = text().substr(0, text().find(':'));
    if (scheme != "http" && scheme != "https") {
        fail("\"" + scheme + "\" is not supported; use file, http or https");
    }
    // libcurl asks for this once per process, before anything else.
    static const CURLcode ready = curl_global_init(CURL_GLOBAL_DEFAULT);
    const std::unique_ptr<CURL, CurlCleanup> curl(ready == CURLE_OK ? curl_easy_init() : nullptr);
    if (!curl) {
        fail("libcurl cannot be initialised");
    }

    const std::string suffix = extension(text());
    std::error_code noFolder;
    const std::filesystem::path folder = std::filesystem::temp_directory_path(noFolder);
    if (noFolder) {
        fail("There is no folder for temporary files: " + noFolder.message() + "; set TMPDIR");
    }
    std::string name = (folder / ("orvel-XXXXXX" + suffix)).string();
    const int descriptor = ::mkostemps(name.data(), static_cast<int>(suffix.size()), O_CLOEXEC);
    if (descriptor < 0) {
        fail("No file can be made in \"" + folder.string() + "\": " + errorText(errno));
    }
    Transfer transfer(effective(fetchLimits()), descriptor);
    auto file = std::make_unique<File>(name, true);

    std::array<char, CURL_ERROR_SIZE> reason = {};
    const auto set = [&](CURLoption option, auto value) {
        if (const CURLcode code = curl_easy_setopt(curl.get(), option, value); code != CURLE_OK) {
            fail(curl_easy_strerror(code));
        }
    };
    set(CURLOPT_ERRORBUFFER, reason.data());
    set(CURLOPT_URL, text().c_str());
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
    const CURLcode code = curl_easy_perform(curl.get());

    if (transfer.tooLarge || code == CURLE_FILESIZE_EXCEEDED) {
        fail(
            "It is larger than the limit of " + std::to_string(transfer.limits.maxBytes) +
            " bytes");
    }
    if (transfer.stalled) {
        fail(
            "The server sent nothing for " + std::to_string(transfer.limits.stallSeconds) +
            " seconds");
    }
    if (transfer.writeError != 0) {
        fail("Cannot write \"" + name + "\": " + errorText(transfer.writeError));
    }
    if (code != CURLE_OK) {
        fail(reason.front() != '\0' ? reason.data() : curl_easy_strerror(code));
    }
    long status = 0;
    curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &status);
    if (status < 200 || status > 299) { // a redirect without a target, a login page
        fail("The server answered with status " + std::to_string(status));
    }
    if (const int error = transfer.file.close(); error != 0) {
        fail("Cannot write \"" + name + "\": " + errorText(error));
    }
    return file;
}

} // namespace Corvid::detail

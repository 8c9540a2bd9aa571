#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include <orvel_export.h>

namespace Corvid {

/// The implementation of a URL: its text form, and fetching its resource to a local file. `URL`
/// holds one of these; kinds are local files (`URLFile`) and resources fetched over http or https.
///
/// Immutable: any thread may use one object, including fetches.
class ORVEL_EXPORT URLImpl {
public:
    /// A text that is not a URL, or a resource that could not be fetched; what() has the details.
    class ORVEL_EXPORT Exception : public std::runtime_error {
    public:
        explicit Exception(const std::string& text) : Exception(text, text) {}
        Exception(const std::string& text, std::string reason)
            : std::runtime_error(text), reason_(std::move(reason)) {}
        /// The cause alone, for messages that name the URL themselves; what() where it does not.
        [[nodiscard]] const std::string& reason() const noexcept { return reason_; }

    private:
        std::string reason_;
    };

    /// A resource as a local file, for the lifetime of this object. A downloaded file keeps the
    /// extension of the URL's name and is removed with this object; the file of a file URL is used
    /// in place and never removed.
    class ORVEL_EXPORT File {
    public:
        File(std::string name, bool temporary);
        ~File();
        File(const File&) = delete;
        File& operator=(const File&) = delete;

        /// The local file's path.
        [[nodiscard]] const std::string& name() const noexcept { return name_; }

    private:
        std::string name_;
        bool temporary_;
    };

    /// Limits of a fetch. Redirects are followed to http and https only. Zero seconds or bytes mean
    /// no limit, zero redirects mean none.
    struct FetchLimits {
        unsigned connectSeconds = 10;         ///< to connect
        unsigned stallSeconds = 30;           ///< without receiving a byte
        std::uint64_t maxBytes = 1ULL << 30U; ///< of one resource
        unsigned maxRedirects = 5;
    };

    /// The process-wide limits of all fetches that start from now on. Any thread.
    static void setFetchLimits(const FetchLimits& limits);
    [[nodiscard]] static FetchLimits fetchLimits();

    /// Parses a URL. A text that starts with a scheme ("http://...", "file:/...") is absolute;
    /// anything else is a literal path ('%', '#' and '?' are characters of names) relative to the
    /// directory of `base`: its text up to the last slash of the path. Any scheme is parsed, but
    /// only file, http and https can be fetched. Control characters, and file URLs that name
    /// another host, are errors. Throws Exception ("Cannot parse URL").
    static std::unique_ptr<URLImpl> create(const std::string& text, const URLImpl& base);
    /// Parses relative to the current directory, which is only needed for relative texts.
    static std::unique_ptr<URLImpl> create(const std::string& text);

    virtual ~URLImpl() = default;
    URLImpl(const URLImpl&) = delete;
    URLImpl& operator=(const URLImpl&) = delete;

    /// The absolute, percent-encoded text form; parsing it gives the same text.
    [[nodiscard]] const std::string& text() const noexcept { return text_; }

    /// Fetches the resource to a local file; blocks during a download. Throws Exception with the
    /// reason if it cannot be fetched within the limits.
    [[nodiscard]] virtual std::unique_ptr<File> fetch() const = 0;

protected:
    explicit URLImpl(std::string text) : text_(std::move(text)) {}

private:
    std::string text_;
};

} // namespace Corvid

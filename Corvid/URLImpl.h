#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include <orvel_export.h>

namespace Corvid {

/// What a URL stands for: its text form, and how its resource becomes a local file. `URL` holds one
/// of these; kinds are local files (`URLFile`) and resources fetched over http or https.
///
/// Immutable: any thread may use one object, fetches included.
class ORVEL_EXPORT URLImpl {
public:
    /// A text that is no URL, or a resource that could not be fetched; what() says which.
    class ORVEL_EXPORT Exception : public std::runtime_error {
    public:
        using std::runtime_error::runtime_error;
    };

    /// A resource as a local file, for as long as this object lives. A downloaded file keeps the
    /// extension of the URL's name and is removed with this object; the file of a file URL is used
    /// where it stands and never removed.
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

    /// What a fetch may cost. Redirects lead to http and https only. Zero seconds or bytes stand
    /// for no limit, zero redirects for none.
    struct FetchLimits {
        unsigned connectSeconds = 10;         ///< to connect
        unsigned stallSeconds = 30;           ///< without a single byte
        std::uint64_t maxBytes = 1ULL << 30U; ///< of one resource
        unsigned maxRedirects = 5;
    };

    /// The limits of every fetch that begins from now on, process-wide. Any thread.
    static void setFetchLimits(const FetchLimits& limits);
    [[nodiscard]] static FetchLimits fetchLimits();

    /// Parses a URL. A text that begins with a scheme ("http://...", "file:/...") is absolute;
    /// anything else is a path, taken as it is ('%', '#' and '?' are characters of names) and
    /// relative to the directory of `base`: what its text holds up to the last slash of the path.
    /// Any scheme is parsed, but only file, http and https can be fetched. Control characters, and
    /// file URLs that name another host, are errors. Throws Exception with the text "Cannot parse
    /// URL".
    static std::unique_ptr<URLImpl> create(const std::string& text, const URLImpl& base);
    /// The same relative to the current directory, which only relative texts need.
    static std::unique_ptr<URLImpl> create(const std::string& text);

    virtual ~URLImpl() = default;
    URLImpl(const URLImpl&) = delete;
    URLImpl& operator=(const URLImpl&) = delete;

    /// The absolute, percent-encoded text form; parsing it again gives the same text.
    [[nodiscard]] const std::string& text() const noexcept { return text_; }

    /// Makes the resource a local file; blocks while a download takes. Throws Exception with the
    /// reason when it cannot be had within the limits.
    [[nodiscard]] virtual std::unique_ptr<File> fetch() const = 0;

protected:
    explicit URLImpl(std::string text) : text_(std::move(text)) {}

private:
    std::string text_;
};

} // namespace Corvid

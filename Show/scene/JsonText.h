#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace Show {

/// A JSON text with comments in which single values are replaced. Everything else stays as it is:
/// comments, order, spaces. The text must have been read by parseJson() without a problem.
class JsonText {
public:
    explicit JsonText(std::string text) : text_(std::move(text)) {}

    [[nodiscard]] const std::string& text() const { return text_; }

    /// Whether the object at a path, such as "emitters[0]" or "" for the outermost, has this key.
    [[nodiscard]] bool has(std::string_view path, std::string_view key) const;
    /// Sets a member of the object at `path` to a value in JSON; a member that is not there
    /// yet becomes the last one. Returns false, without effect, if there is no object at that path.
    bool set(std::string_view path, std::string_view key, std::string_view value);
    /// Gives a member another key and value; the same as set() if it is not there.
    bool replace(
        std::string_view path, std::string_view oldKey, std::string_view key,
        std::string_view value);

private:
    struct Range {
        std::size_t begin = 0;
        std::size_t end = 0;
    };
    /// A member with its key's range, quotation marks included.
    struct Member {
        Range key;
        Range value;
    };

    [[nodiscard]] std::size_t skipSpace(std::size_t at) const;
    [[nodiscard]] std::size_t skipText(std::size_t at) const;
    [[nodiscard]] std::size_t skipValue(std::size_t at) const;
    /// Calls `visit` with each member of the object or element of the array at `begin` until it
    /// returns true.
    template <class Visit>
    void visitItems(std::size_t begin, Visit visit) const;
    [[nodiscard]] std::optional<Member> member(std::size_t object, std::string_view key) const;
    [[nodiscard]] std::optional<std::size_t> element(std::size_t array, std::size_t index) const;
    [[nodiscard]] std::optional<std::size_t> object(std::string_view path) const;
    void append(std::size_t object, std::string_view key, std::string_view value);

    std::string text_;
};

} // namespace Show

#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Show {

/// One message of Open Sound Control.
struct OscMessage {
    std::string path;
    std::vector<std::string_view> words; ///< of the path
    std::vector<float> numbers;
    std::vector<std::string> texts;

    OscMessage() = default;
    OscMessage(const OscMessage&) = delete; // `words` refer to `path`
    OscMessage& operator=(const OscMessage&) = delete;

    [[nodiscard]] bool isQuery() const { return numbers.empty() && texts.empty(); }

    /// Parses the bytes of a message. Returns an error message, or an empty text.
    std::string parse(std::span<const std::byte> bytes);
    /// The beginning of an error message: the path in ASCII.
    [[nodiscard]] std::string subject() const;
};

} // namespace Show

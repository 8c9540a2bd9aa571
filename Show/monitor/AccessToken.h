#pragma once

#include <string>
#include <string_view>

namespace Show {

/// A secret that a program shows its user in a URL, and that the user's browser sends with each
/// request. It stands in the fragment of the URL, which browsers send to no server.
class AccessToken {
public:
    /// A random one of 128 bits. Throws std::exception if the system gives no random numbers.
    AccessToken();

    /// 32 hexadecimal digits.
    [[nodiscard]] const std::string& text() const { return text_; }
    /// Whether the value of a header Authorization is "Bearer " and this token. Takes the same time
    /// for every wrong one of the right length.
    [[nodiscard]] bool isIn(const std::string* authorization) const;

private:
    std::string text_;
};

} // namespace Show

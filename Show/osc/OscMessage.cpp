#include <Show/osc/OscMessage.h>

#include <Show/osc/OscPath.h>

#include <algorithm>
#include <cmath>
#include <lo/lo.h>
#include <memory>
#include <type_traits>

namespace Show {

namespace {

constexpr std::size_t kMaxArguments = 64;
/// The largest magnitude; beyond it, computed values may become infinite.
constexpr double kMaxNumber = 1e9;

struct FreeMessage {
    void operator()(lo_message message) const { lo_message_free(message); }
};
using OwnMessage = std::unique_ptr<std::remove_pointer_t<lo_message>, FreeMessage>;

std::string ascii(std::string_view text) {
    constexpr std::size_t kMax = 80;
    std::string result(text.substr(0, kMax));
    std::replace_if(
        result.begin(), result.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
    return result + (text.size() > kMax ? "..." : "");
}

} // namespace

std::string OscMessage::subject() const {
    return ascii(path) + ": ";
}

std::string OscMessage::parse(std::span<const std::byte> bytes) {
    // The library modifies the bytes that it parses.
    std::vector<std::byte> copy(bytes.begin(), bytes.end());
    const auto pathEnd = std::find(copy.begin(), copy.end(), std::byte{0});
    path.assign(
        reinterpret_cast<const char*>(copy.data()),
        static_cast<std::size_t>(pathEnd - copy.begin()));
    if (path.empty() || path.front() != '/' || pathEnd == copy.end()) {
        return "not a message of Open Sound Control";
    }
    int fault = 0;
    const OwnMessage read(lo_message_deserialise(copy.data(), copy.size(), &fault));
    if (read == nullptr) {
        return subject() + "its arguments are malformed";
    }
    words = splitPath(path);
    const bool clamps = words.front() == "adm";
    const char* types = lo_message_get_types(read.get());
    lo_arg** arguments = lo_message_get_argv(read.get());
    const auto count = static_cast<std::size_t>(lo_message_get_argc(read.get()));
    if (count > kMaxArguments) {
        return subject() + "has " + std::to_string(count) + " arguments";
    }
    for (std::size_t i = 0; i < count; ++i) {
        const auto type = static_cast<lo_type>(types[i]);
        if (type == LO_TRUE || type == LO_FALSE) {
            numbers.push_back(type == LO_TRUE ? 1.0F : 0.0F);
        } else if (lo_is_numerical_type(type) != 0) {
            auto number = static_cast<double>(lo_hires_val(type, arguments[i]));
            if (clamps && !std::isnan(number)) {
                number = std::clamp(number, -kMaxNumber, kMaxNumber);
            }
            if (!(std::abs(number) <= kMaxNumber)) {
                return subject() + "expected numbers from -1e9 to 1e9, found another value";
            }
            numbers.push_back(static_cast<float>(number));
        } else if (type == LO_NIL || type == LO_INFINITUM) {
            continue; // without a value, as some send with a command
        } else if (type == LO_STRING || type == LO_SYMBOL) {
            // A text starts at the argument itself, which is no valid address of a whole lo_arg.
            texts.emplace_back(reinterpret_cast<const char*>(arguments[i]));
        } else {
            return subject() + "expected numbers, found an argument of type '" +
                   ascii(std::string_view(types + i, 1)) + "'";
        }
    }
    return {};
}

} // namespace Show

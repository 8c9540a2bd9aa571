#include <Show/osc/OscAnswer.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <endian.h>
#include <lo/lo.h>
#include <string_view>
#include <utility>

namespace Show {

namespace {

constexpr std::string_view kBundleNow("#bundle\0\0\0\0\0\0\0\0\1", 16);

std::string encode(const OscAnswer& answer) {
    lo_message message = lo_message_new();
    const OscValues& values = answer.values;
    if (values.type == 's') {
        lo_message_add_string(message, values.text.c_str());
    }
    for (std::size_t i = 0; i < values.count; ++i) {
        if (values.type == 'i') {
            lo_message_add_int32(message, static_cast<std::int32_t>(values.numbers[i]));
        } else {
            lo_message_add_float(message, values.numbers[i]);
        }
    }
    std::string bytes(lo_message_length(message, answer.path.c_str()), '\0');
    lo_message_serialise(message, answer.path.c_str(), bytes.data(), nullptr);
    lo_message_free(message);
    return bytes;
}

} // namespace

OscValues OscValues::floats(std::initializer_list<float> numbers) {
    OscValues values;
    values.count = numbers.size();
    std::copy(numbers.begin(), numbers.end(), values.numbers.begin());
    return values;
}

OscValues OscValues::whole(int number) {
    OscValues values = floats({static_cast<float>(number)});
    values.type = 'i';
    return values;
}

OscValues OscValues::ofText(std::string text) {
    OscValues values;
    values.type = 's';
    values.text = std::move(text);
    return values;
}

bool operator==(const OscValues& a, const OscValues& b) noexcept {
    using Bits = std::array<std::uint32_t, std::tuple_size_v<decltype(a.numbers)>>; // for NaN
    return a.type == b.type && a.count == b.count && a.text == b.text &&
           std::bit_cast<Bits>(a.numbers) == std::bit_cast<Bits>(b.numbers);
}

void encode(
    std::span<const OscAnswer> answers,
    const std::function<void(std::span<const std::byte>)>& send) {
    if (answers.size() == 1) {
        const std::string message = encode(answers.front());
        send(std::as_bytes(std::span(message)));
        return;
    }
    std::string bundle(kBundleNow);
    const auto flush = [&] {
        if (bundle.size() > kBundleNow.size()) {
            send(std::as_bytes(std::span(bundle)));
        }
        bundle.resize(kBundleNow.size());
    };
    for (const OscAnswer& answer : answers) {
        const std::string bytes = encode(answer);
        if (bundle.size() + sizeof(std::uint32_t) + bytes.size() > kMaxAnswerBytes) {
            flush();
        }
        const std::uint32_t size = htobe32(static_cast<std::uint32_t>(bytes.size()));
        bundle.append(reinterpret_cast<const char*>(&size), sizeof size);
        bundle += bytes;
    }
    flush();
}

} // namespace Show

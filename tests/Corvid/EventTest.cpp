// The wire format of events, and the decoder's treatment of everything else.
#include <Corvid/Event.h>
#include <Corvid/EventType.h>
#include <Corvid/Sender.h>

#include <gtest/gtest.h>
#include <memory>
#include <tuple>

namespace Corvid {

namespace {

using Bytes = std::vector<std::byte>;

/// One field of each kind, with a block of `big` bytes.
class EveryField : public Event {
public:
    std::tuple<std::string, float, unsigned int, unsigned long, short, bool> fields;
    std::string block;
    std::string& text = std::get<0>(fields);
    unsigned long& big = std::get<3>(fields);

    void addFields() override {
        Event::addFields();
        std::apply([this](auto&... field) { addEach(field...); }, fields);
        addData(block.data(), static_cast<long>(block.size()));
    }
    void getFields() override {
        Event::getFields();
        std::apply([this](auto&... field) { getEach(field...); }, fields);
        block.resize(big);
        getData(block.data(), static_cast<long>(big));
    }
    [[nodiscard]] const EventType* type() const override { return &kind; }
    static Event* create() { return new EveryField; }
    static const EventType kind;
};
const EventType EveryField::kind("EveryField", -2, &EveryField::create);
constexpr std::size_t kEmptyBytes = 46; // of an EveryField without text and block

Bytes encoded(Event& event) {
    Bytes frame;
    EXPECT_TRUE(event.encode(frame));
    return frame;
}

/// Counts the frames sent to it.
class Line : public Sender {
public:
    bool sendFrame(const std::byte* /*frame*/, std::size_t /*size*/) override { return ++sent > 0; }
    void refuseEvent(const std::string& reason) override { refused = reason; }
    std::string refused;
    int sent = 0;
};

} // namespace

TEST(Event, IsWrittenByteForByteAsDocumented) {
    EveryField event;
    event.protocolTag = 3378;
    event.fields = {"h\xc3\xa9", 1.5F, 0x01020304, 0x1112131415161718, -2, true};
    event.block = "xyz";
    const Bytes frame = encoded(event);
    using namespace std::string_literals;
    EXPECT_EQ(
        std::string(reinterpret_cast<const char*>(frame.data()), frame.size()),
        "\x30\0\0\0\xfe\xff\x32\x0d"
        "\1\3\0\0\0h\xc3\xa9"
        "\2\0\0\xc0\x3f\3\4\3\2\1"
        "\4\x18\x17\x16\x15\x14\x13\x12\x11"
        "\5\xfe\xff\6\1"
        "\7\3\0\0\0\0\0\0\0xyz"s);
}

TEST(Event, LeavesANumberToTheFirstTypeThatHasIt) {
    {
        const EventType second("Second", EveryField::kind.typeId(), nullptr);
        EXPECT_EQ(EventType::find(second.typeId()), &EveryField::kind);
    }
    EXPECT_EQ(EventType::find(EveryField::kind.typeId()), &EveryField::kind);
}

TEST(Event, RefusesEveryDamagedFrameWithItsReason) {
    // The size of the frame, the place and the value of the byte that is set.
    const std::tuple<std::size_t, std::size_t, int, const char*> rows[] = {
        {kEmptyBytes, 0, 42, ""}, // contradicts the length
        {7, 0, 3, "a frame of 7 bytes"},
        {46, 0, 41, "a frame with a wrong length field"},
        {47, 0, 43, "EveryField with 1 bytes too many"},
        {46, 4, 0xfd, "an event of the unknown type -3"},
        {46, 12, 0x7f, "EveryField with other fields than expected"}, // the length of the text
        {46, 36, 2, "EveryField with other fields than expected"},    // neither true nor false
        {46, 45, 0xff, "EveryField with other fields than expected"}, // the length of the block
    };
    EveryField event;
    std::string fault;
    for (const auto& [size, at, value, reason] : rows) {
        Bytes frame = encoded(event);
        frame.resize(size);
        frame[at] = static_cast<std::byte>(value);
        fault.clear();
        const std::unique_ptr<Event> decoded(Event::decode(frame, &fault));
        EXPECT_EQ(fault, reason);
        EXPECT_EQ(decoded == nullptr, !fault.empty());
    }
    event.big = ~0UL; // no string can be that long
    EXPECT_EQ(Event::decode(encoded(event), &fault), nullptr);
    EXPECT_EQ(fault.find("EveryField: "), 0U) << fault;
}

TEST(Event, IsNotSentWhenItIsLargerThanAFrame) {
    constexpr std::size_t kMax = Event::kMaxFrameBytes;
    const struct {
        std::size_t text;
        std::size_t block;
    } rows[] = {{kMax - kEmptyBytes, 0}, {kMax, 0}, {0, kMax}, {kMax / 2, kMax / 2}};
    Line line;
    for (const auto& row : rows) {
        const bool fits = &row == rows; // only the first one does
        EveryField event;
        event.text.resize(row.text);
        event.block.resize(row.block);
        Bytes frame(3);
        EXPECT_EQ(event.encode(frame), fits);
        EXPECT_EQ(frame.size(), fits ? kMax : 0);
        EXPECT_EQ(event.send(&line), fits);
        EXPECT_EQ(line.refused, fits ? "" : "EveryField is larger than 64 MiB and was not sent");
    }
    EXPECT_EQ(line.sent, 1);
}

} // namespace Corvid

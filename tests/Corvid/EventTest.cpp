// What events look like on the wire, and what the decoder makes of everything else.
#include <Corvid/Event.h>
#include <Corvid/EventType.h>
#include <Corvid/Receiver.h>
#include <Corvid/Sender.h>

#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <new>

namespace Corvid {

namespace {

using Bytes = std::vector<std::byte>;

std::string hex(const Bytes& bytes) {
    std::string text;
    for (const std::byte byte : bytes) {
        constexpr const char* kDigits = "0123456789abcdef";
        text += kDigits[std::to_integer<unsigned>(byte) >> 4U];
        text += kDigits[std::to_integer<unsigned>(byte) & 15U];
    }
    return text;
}

/// One field of each kind.
class EveryField : public Event {
public:
    std::string text;
    float single = 0;
    unsigned int number = 0;
    unsigned long big = 0;
    short small = 0;
    bool flag = false;
    std::string block;
    std::function<void()> whileReading;
    std::function<void(EveryField&)> whileWriting;

    void addFields() override {
        Event::addFields();
        addField(text);
        addField(single);
        addField(number);
        addField(big);
        addField(small);
        addField(flag);
        addData(block.data(), static_cast<long>(block.size()));
        if (whileWriting) {
            whileWriting(*this);
        }
    }
    void getFields() override {
        Event::getFields();
        getField(text);
        getField(single);
        getField(number);
        getField(big);
        getField(small);
        getField(flag);
        block.assign(blockSize, '\0');
        getData(block.data(), static_cast<long>(blockSize));
        if (whileReading) {
            whileReading();
        }
    }
    [[nodiscard]] const EventType* type() const override { return &kind; }
    using Event::addData;
    using Event::addField;

    static Event* create() {
        auto* event = new EveryField;
        event->whileReading = onRead;
        return event;
    }
    static inline std::size_t blockSize = 0; // what getFields() expects
    static inline std::function<void()> onRead;
    static const EventType kind;
};
const EventType EveryField::kind("EveryField", -2, &EveryField::create);

std::unique_ptr<EveryField> decoded(const Bytes& frame, std::string* fault = nullptr) {
    return std::unique_ptr<EveryField>(dynamic_cast<EveryField*>(Event::decode(frame, fault)));
}

Bytes encoded(Event& event) {
    Bytes frame;
    EXPECT_TRUE(event.encode(frame));
    return frame;
}

void setLength(Bytes& frame) {
    const auto length = static_cast<std::uint32_t>(frame.size() - 4);
    std::memcpy(frame.data(), &length, 4);
}

class Script : public Receiver {
public:
    explicit Script(Bytes next) : frame(std::move(next)) {}
    bool receiveFrame(std::span<const std::byte>& next) override {
        next = frame;
        return !frame.empty();
    }
    void refuseFrame(const std::string& reason) override { refused = reason; }
    Bytes frame;
    std::string refused;
};

class Wire : public Sender {
public:
    bool sendFrame(const std::byte* frame, std::size_t size) override {
        if (before) {
            before();
        }
        frames.emplace_back(frame, frame + size);
        return open;
    }
    std::function<void()> before;
    std::vector<Bytes> frames;
    bool open = true;
};

} // namespace

TEST(Event, IsWrittenByteForByteAsDocumented) {
    EveryField event;
    event.protocolTag = 3378;
    event.text = "h\xc3\xa9";
    event.single = 1.5F;
    event.number = 0x01020304;
    event.big = 0x1112131415161718;
    event.small = -2;
    event.flag = true;
    event.block = "xyz";
    EXPECT_EQ(
        hex(encoded(event)), "30000000"
                             "feff"
                             "320d"
                             "010300000068c3a9"
                             "020000c03f"
                             "0304030201"
                             "041817161514131211"
                             "05feff"
                             "0601"
                             "07030000000000000078797a");
}

TEST(Event, RefusesEveryDamagedFrameWithItsReason) {
    EveryField event;
    event.text = "text";
    event.block = "block";
    EveryField::blockSize = event.block.size();
    const Bytes good = encoded(event);
    ASSERT_NE(decoded(good), nullptr);
    const auto put = [&good](std::size_t at, unsigned char value) {
        Bytes frame = good;
        frame[at] = static_cast<std::byte>(value);
        return frame;
    };
    const std::size_t flagAt = good.size() - event.block.size() - 9 - 1;
    const std::size_t blockLengthAt = good.size() - event.block.size() - 8;
    Bytes longer = good;
    longer.push_back({});
    Bytes longerThanSaid = longer;
    setLength(longer);
    const struct {
        const char* fault;
        Bytes frame;
        const char* reason;
    } rows[] = {
        {"nothing at all", {}, "a frame of 0 bytes"},
        {"no header", Bytes(good.begin(), good.begin() + 7), "a frame of 7 bytes"},
        {"length too small", put(0, 1), "a frame whose length field does not fit it"},
        {"more than said", longerThanSaid, "a frame whose length field does not fit it"},
        {"left over", longer, "EveryField with 1 bytes too many"},
        {"unknown type", put(4, 0xfd), "an event of the unknown type -3"},
        {"bool 2", put(flagAt, 2), "EveryField with other fields than expected"},
        {"text longer than all", put(12, 0x7f), "EveryField with other fields than expected"},
        {"block shorter", put(blockLengthAt, 4), "EveryField with other fields than expected"},
        {"block huge", put(blockLengthAt + 7, 0xff), "EveryField with other fields than expected"},
    };
    for (const auto& row : rows) {
        std::string fault;
        EXPECT_EQ(decoded(row.frame, &fault), nullptr) << row.fault;
        EXPECT_EQ(fault, row.reason) << row.fault;
    }
}

TEST(Event, IsRefusedWhenItsClassThrows) {
    EveryField event;
    EveryField::blockSize = 0;
    const Bytes frame = encoded(event);
    EveryField::onRead = [] { throw std::bad_alloc(); };
    std::string fault;
    EXPECT_EQ(decoded(frame, &fault), nullptr);
    EXPECT_EQ(fault, "EveryField: std::bad_alloc");
    EveryField::onRead = {};
    EXPECT_NE(decoded(frame), nullptr);
}

TEST(Event, IsNotSentWhenItIsLargerThanAFrame) {
    const std::string tooMuch(Event::kMaxFrameBytes, 'x');
    Wire wire;
    const struct {
        const char* what;
        std::function<void(EveryField&)> add;
    } rows[] = {
        {"block", [&](EveryField& e) { e.addData(tooMuch.data(), long{Event::kMaxFrameBytes}); }},
        {"text", [&](EveryField& e) { e.addField(tooMuch); }},
        {"negative length", [](EveryField& e) { e.addData("x", -1); }},
        {"many fields",
         [&](EveryField& e) {
             for (int i = 0; i < 64; ++i) {
                 e.addData(tooMuch.data(), 1L << 20U);
             }
             e.addField(true); // what follows stays out too
         }},
    };
    for (const auto& row : rows) {
        EveryField event;
        event.whileWriting = row.add;
        Bytes frame(3);
        EXPECT_FALSE(event.send(&wire)) << row.what;
        EXPECT_FALSE(event.encode(frame)) << row.what;
        EXPECT_TRUE(frame.empty()) << row.what;
        event.whileWriting = {};
        EXPECT_TRUE(event.send(&wire)) << row.what; // and the next one goes
    }
    EXPECT_EQ(wire.frames.size(), std::size(rows));

    EveryField largest;
    largest.block.resize(Event::kMaxFrameBytes - encoded(largest).size());
    EXPECT_EQ(encoded(largest).size(), Event::kMaxFrameBytes);
    EveryField::blockSize = largest.block.size();
    EXPECT_NE(decoded(encoded(largest)), nullptr);
}

TEST(Event, SurvivesASenderThatSendsAnotherMeanwhile) {
    Wire wire;
    EveryField outer;
    outer.text = "outer";
    EveryField inner;
    inner.text = "another text";
    bool nested = false;
    wire.before = [&] {
        if (!nested) {
            nested = true;
            inner.send(&wire);
        }
    };
    ASSERT_TRUE(outer.send(&wire));
    EXPECT_EQ(wire.frames, (std::vector<Bytes>{encoded(inner), encoded(outer)}));
    wire.open = false;
    EXPECT_FALSE(outer.send(&wire));
    EXPECT_FALSE(outer.send(nullptr));
}

TEST(Event, ReceivingTellsTheReceiverWhatItRefuses) {
    EveryField event;
    EveryField::blockSize = 0;
    Event* result = &event;
    Script lost({});
    EXPECT_FALSE(Event::receive(&lost, result));
    EXPECT_EQ(result, nullptr);
    EXPECT_EQ(lost.refused, "") << "a lost connection sent nothing wrong";
    EXPECT_FALSE(Event::receive(nullptr, result));

    Script bad(Bytes(9));
    EXPECT_FALSE(Event::receive(&bad, result));
    EXPECT_EQ(result, nullptr);
    EXPECT_NE(bad.refused, "");

    Script good(encoded(event));
    ASSERT_TRUE(Event::receive(&good, result));
    EXPECT_EQ(good.refused, "");
    delete result;
}

TEST(EventType, KeepsTheFirstOwnerOfANumber) {
    {
        const EventType second("second", -2, nullptr);
        EXPECT_EQ(EventType::find(-2), &EveryField::kind);
    }
    EXPECT_EQ(EventType::find(-2), &EveryField::kind);
    for (const short number : {short{-32768}, short{32767}}) {
        EXPECT_EQ(EventType::find(number), nullptr);
        const EventType own("own", number, nullptr);
        EXPECT_EQ(EventType::find(number), &own);
        Bytes frame = {std::byte{4}, {}, {}, {}, {}, {}, {}, {}};
        std::memcpy(frame.data() + 4, &number, 2);
        EXPECT_EQ(Event::decode(frame), nullptr) << "it makes no event";
    }
    EXPECT_EQ(EventType::find(32767), nullptr);
}

} // namespace Corvid

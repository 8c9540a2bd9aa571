#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

#include <orvel_export.h>

namespace Corvid {

class EventType;
class Receiver;
class Sender;

/// A typed message. An event class writes its fields in addFields() and reads the same sequence in
/// getFields(). Each field carries its type, so a receiver that expects another sequence fails
/// cleanly. The byte layout is in docs/protocol.md.
///
/// Confined to one thread at a time. Encoding allocates nothing once the thread has sent an event
/// of that size.
class ORVEL_EXPORT Event {
public:
    /// Maximum size of a frame in bytes, its length field included.
    static constexpr std::uint32_t kMaxFrameBytes = 64U << 20U;
    /// Minimum size: length, type and protocolTag.
    static constexpr std::uint32_t kMinFrameBytes = 8;
    /// Limit of texts in one list from a peer.
    static constexpr unsigned kMaxTexts = 65535;

    Event() = default;
    // Copies the header field; the state of an encoding or decoding in progress is not copied.
    Event(const Event& other) noexcept : protocolTag(other.protocolTag) {}
    // NOLINTNEXTLINE(bugprone-unhandled-self-assignment): the pointers are not copied
    Event& operator=(const Event& other) noexcept {
        protocolTag = other.protocolTag;
        return *this;
    }

    /// Writes the header field. Overrides call their base's first, then add their own fields.
    virtual void addFields() {
        if (static_cast<std::size_t>(outputEnd_ - output_) < sizeof(protocolTag) &&
            !grow(sizeof(protocolTag))) {
            return;
        }
        std::memcpy(output_, &protocolTag, sizeof(protocolTag));
        output_ += sizeof(protocolTag);
    }
    /// Reads the fields of addFields() in the same order. A field that cannot be read keeps its
    /// value, and the event is invalid. It is also invalid if getFields() throws.
    virtual void getFields();
    virtual ~Event() = default;
    [[nodiscard]] virtual const EventType* type() const = 0;

    /// Encodes the event and passes it to the sender, without waiting for the network. Returns
    /// false if there is no sender, it is closed, or the event exceeds a frame.
    bool send(Sender* sender);

    /// Decodes the next frame of a receiver to a new event, owned by the caller. Returns false, and
    /// null, if the connection is lost or the frame is malformed; for the latter it calls
    /// Receiver::refuseFrame().
    static bool receive(Receiver* receiver, Event*& event);

    /// Encodes into `frame`, replacing its contents. Returns false, with an empty frame, if the
    /// event is too large.
    bool encode(std::vector<std::byte>& frame);
    /// Decodes a complete frame to a new event, owned by the caller. Returns null if it is
    /// malformed: of an unknown type, with other fields than its class reads, or with bytes left
    /// over. `fault`, if not null, then receives the reason.
    [[nodiscard]] static Event*
    decode(std::span<const std::byte> frame, std::string* fault = nullptr);
    /// The type of the event in a complete frame; null if it is malformed or of an unknown type.
    /// `fault`, if not null, then receives the reason.
    [[nodiscard]] static const EventType*
    typeOf(std::span<const std::byte> frame, std::string* fault = nullptr);
    /// Decodes a frame, of which typeOf() is this event's type, into this event: for events that
    /// are not to be allocated. Returns false if it is malformed, as decode() does.
    bool decodeFrom(std::span<const std::byte> frame, std::string* fault = nullptr);

    /// The size of the frame of an event whose fields all have a fixed size.
    template <class... Values>
    requires(std::is_arithmetic_v<Values>&&...) static constexpr std::size_t kFixedFrameBytes =
        kMinFrameBytes + ((1 + sizeof(Values)) + ...);
    /// Writes such a frame: the same bytes as encode(), without a virtual call.
    template <class... Values>
    [[gnu::always_inline]] static void
    writeFixedFrame(std::byte* to, short typeId, short tag, Values... values) {
        constexpr std::size_t kLength = kFixedFrameBytes<Values...> - sizeof(std::uint32_t);
        const auto put = [&to](auto value) __attribute__((always_inline)) {
            std::memcpy(to, &value, sizeof value);
            to += sizeof value;
        };
        put(static_cast<std::uint32_t>(kLength));
        put(typeId);
        put(tag);
        ((put(typeOf(values)), put(values)), ...);
    }

    /// An application-defined header field, sent with the event.
    short protocolTag = 0;

protected:
    void addField(const std::string& value);
    void addField(const char* value) { addField(std::string(value)); } // else it would be a bool
    void addField(float value) { addEach(value); }
    void addField(unsigned int value) { addEach(value); }
    void addField(unsigned long value) { addEach(value); }
    void addField(short value) { addEach(value); }
    void addField(bool value) { addEach(value); }
    /// A count (unsigned int), then that many texts.
    void addField(const std::vector<std::string>& texts);
    /// A size (unsigned long), then, unless that is 0, a raw block.
    void addField(const std::vector<unsigned char>& bytes);
    /// Adds several fields. Faster for those of fixed size.
    template <class... Values>
    void addEach(const Values&... values) {
        if constexpr ((kIsFixed<Values> && ...)) {
            addFixed(values...);
        } else {
            (addField(values), ...);
        }
    }
    /// Adds a raw block; its length is limited only by the frame.
    void addData(const void* data, long length);

    /// Reads the header field, as getFields() does, but inline.
    void getHeader() {
        if (readFailed_ || input_.size() < sizeof(protocolTag)) {
            readFailed_ = true;
            return;
        }
        std::memcpy(&protocolTag, input_.data(), sizeof(protocolTag));
        input_ = input_.subspan(sizeof(protocolTag));
    }
    // Each reads one field of its type. On failure `value` is unchanged.
    bool getField(std::string& value);
    bool getField(float& value) { return getEach(value); }
    bool getField(unsigned int& value) { return getEach(value); }
    bool getField(unsigned long& value) { return getEach(value); }
    bool getField(short& value) { return getEach(value); }
    bool getField(bool& value) { return getEach(value); }
    /// Allocates no more than the frame holds, and at most kMaxTexts texts.
    bool getField(std::vector<std::string>& texts);
    bool getField(std::vector<unsigned char>& bytes);
    /// Reads several fields; false if one could not be read.
    template <class... Values>
    bool getEach(Values&... values) {
        if constexpr ((kIsFixed<Values> && ...)) {
            return getFixed(values...);
        } else {
            return (getField(values) && ...);
        }
    }
    /// Reads a raw block of exactly this length.
    bool getData(void* data, long length);

    /// Unread bytes of the frame; check it before allocating for a count.
    [[nodiscard]] std::size_t bytesLeft() const noexcept { return input_.size(); }
    /// True after a field could not be read; all further reads fail too.
    [[nodiscard]] bool readFailed() const noexcept { return readFailed_; }
    /// Call it in getFields() for invalid values.
    void failRead() noexcept { readFailed_ = true; }

private:
    // The type byte before each value.
    enum class FieldType : unsigned char {
        String = 1,
        Float = 2,
        UnsignedInt = 3,
        UnsignedLong = 4,
        Short = 5,
        Bool = 6,
        Data = 7,
    };

    static constexpr FieldType typeOf(float /*value*/) { return FieldType::Float; }
    static constexpr FieldType typeOf(unsigned int /*value*/) { return FieldType::UnsignedInt; }
    static constexpr FieldType typeOf(unsigned long /*value*/) { return FieldType::UnsignedLong; }
    static constexpr FieldType typeOf(short /*value*/) { return FieldType::Short; }
    static constexpr FieldType typeOf(bool /*value*/) { return FieldType::Bool; }
    template <class Value>
    static constexpr bool kIsFixed = std::is_arithmetic_v<Value>;

    // Inline, because encoding is the host's cost of each change.
    template <class... Values>
    void addFixed(Values... values) {
        constexpr std::size_t kBytes = ((1 + sizeof(Values)) + ...);
        if (static_cast<std::size_t>(outputEnd_ - output_) < kBytes && !grow(kBytes)) {
            return;
        }
        std::byte* to = output_; // a local copy: bytes may alias a member
        const auto put = [&to](auto value) {
            *to = static_cast<std::byte>(typeOf(value));
            std::memcpy(to + 1, &value, sizeof value);
            to += 1 + sizeof value;
        };
        (put(values), ...);
        output_ = to;
    }
    template <class... Values>
    bool getFixed(Values&... values) {
        constexpr std::size_t kBytes = ((1 + sizeof(Values)) + ...);
        if (readFailed_ || input_.size() < kBytes) {
            readFailed_ = true;
            return false;
        }
        const std::byte* from = input_.data();
        const auto get = [&from]<class Value>(Value& value) {
            if (*from != static_cast<std::byte>(typeOf(value))) {
                return false;
            }
            if constexpr (std::is_same_v<Value, bool>) {
                if (from[1] > std::byte{1}) {
                    return false;
                }
                value = from[1] == std::byte{1};
            } else {
                std::memcpy(&value, from + 1, sizeof value);
            }
            from += 1 + sizeof value;
            return true;
        };
        readFailed_ = !(get(values) && ...);
        input_ = input_.subspan(kBytes);
        return !readFailed_;
    }
    template <class Length>
    void addBlock(FieldType type, const void* data, Length length);
    template <class Length>
    bool getLength(FieldType type, Length& length);
    bool take(void* to, std::size_t size);

    std::span<const std::byte>
    encodeInto(std::span<std::byte> small, std::vector<std::byte>& large);
    bool grow(std::size_t more);

    // While encoding: the frame, written up to output_, and the buffer for a frame that outgrows
    // the first one.
    std::byte* begin_ = nullptr;
    std::vector<std::byte>* large_ = nullptr;
    std::byte* output_ = nullptr;
    std::byte* outputEnd_ = nullptr;
    // While decoding: the unread bytes.
    std::span<const std::byte> input_;
    bool readFailed_ = false;
};

} // namespace Corvid

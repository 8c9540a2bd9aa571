#pragma once

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

/// A typed message. A class of events writes its fields in addFields() and reads the same sequence
/// in getFields(); each field carries its type, so a receiver that reads another sequence than the
/// sender wrote fails cleanly. The byte layout is in docs/protocol.md.
///
/// Confined to one thread at a time. Encoding allocates nothing once the thread has sent an event
/// of that size.
class ORVEL_EXPORT Event {
public:
    /// The most bytes of one frame, its length field included.
    static constexpr std::uint32_t kMaxFrameBytes = 64U << 20U;
    /// The least: length, type and protocolTag.
    static constexpr std::uint32_t kMinFrameBytes = 8;
    /// The most texts of one list that are taken from a peer.
    static constexpr unsigned kMaxTexts = 65535;

    Event() = default;
    // Copies take the header field; an encoding or decoding under way stays with its own event.
    Event(const Event& other) noexcept : protocolTag(other.protocolTag) {}
    // NOLINTNEXTLINE(bugprone-unhandled-self-assignment): the pointers stay, so it does no harm
    Event& operator=(const Event& other) noexcept {
        protocolTag = other.protocolTag;
        return *this;
    }

    /// Writes the header field. Derived classes call their base's first, then add their own.
    virtual void addFields() {
        if (static_cast<std::size_t>(outputEnd_ - output_) < sizeof(protocolTag) &&
            !grow(sizeof(protocolTag))) {
            return;
        }
        std::memcpy(output_, &protocolTag, sizeof(protocolTag));
        output_ += sizeof(protocolTag);
    }
    /// Reads what addFields() wrote, in the same order. A field that cannot be read keeps its
    /// value, and the event is refused. So is one whose getFields() throws.
    virtual void getFields();
    virtual ~Event() = default;
    [[nodiscard]] virtual const EventType* type() const = 0;

    /// Encodes the event and hands it to the sender, without waiting for the network; false if
    /// there is no sender, it is closed, or the event is larger than a frame may be.
    bool send(Sender* sender);

    /// Takes the next frame of a receiver and makes the event that it holds, owned by the caller.
    /// False, and null, when the connection is lost or the frame is malformed; the receiver is told
    /// of the latter, see Receiver::refuseFrame().
    static bool receive(Receiver* receiver, Event*& event);

    /// Encodes into `frame`, replacing its contents; false, and empty, if it would be too large.
    bool encode(std::vector<std::byte>& frame);
    /// Makes the event that a whole frame holds, owned by the caller; null if it is malformed: of
    /// an unknown type, with other fields than its class reads, or with bytes left over. `fault`,
    /// if not null, then gets the reason.
    [[nodiscard]] static Event*
    decode(std::span<const std::byte> frame, std::string* fault = nullptr);

    /// A header field of the application's own that reaches the receiver with the event.
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
    /// One field after the other. Those of fixed size cost less together.
    template <class... Values>
    void addEach(const Values&... values) {
        if constexpr ((kIsFixed<Values> && ...)) {
            addFixed(values...);
        } else {
            (addField(values), ...);
        }
    }
    /// A raw block; only the frame's limit bounds its length.
    void addData(const void* data, long length);

    // Each reads one field of its type, or fails: `value` then keeps what it had.
    bool getField(std::string& value);
    bool getField(float& value) { return getEach(value); }
    bool getField(unsigned int& value) { return getEach(value); }
    bool getField(unsigned long& value) { return getEach(value); }
    bool getField(short& value) { return getEach(value); }
    bool getField(bool& value) { return getEach(value); }
    /// Takes no memory for texts or bytes that the frame does not hold, nor for more than
    /// kMaxTexts.
    bool getField(std::vector<std::string>& texts);
    bool getField(std::vector<unsigned char>& bytes);
    /// One field after the other; false if one could not be read.
    template <class... Values>
    bool getEach(Values&... values) {
        if constexpr ((kIsFixed<Values> && ...)) {
            return getFixed(values...);
        } else {
            return (getField(values) && ...);
        }
    }
    /// Reads a raw block of exactly that length.
    bool getData(void* data, long length);

    /// Bytes of the frame that are not read yet; to be asked before allocating for a count.
    [[nodiscard]] std::size_t bytesLeft() const noexcept { return input_.size(); }
    /// True once a field could not be read; everything after it fails too.
    [[nodiscard]] bool readFailed() const noexcept { return readFailed_; }
    /// For a getFields() that finds values which cannot be.
    void failRead() noexcept { readFailed_ = true; }

private:
    // What stands before each field's value on the wire.
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

    // Inline, because encoding is what a host's frame loop pays for each change.
    template <class... Values>
    void addFixed(Values... values) {
        constexpr std::size_t kBytes = ((1 + sizeof(Values)) + ...);
        if (static_cast<std::size_t>(outputEnd_ - output_) < kBytes && !grow(kBytes)) {
            return;
        }
        std::byte* to = output_; // bytes may alias a member, which would be loaded again for each
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

    // During encoding: the frame, of which everything before output_ is written, and where it goes
    // when it outgrows the first buffer.
    std::byte* begin_ = nullptr;
    std::vector<std::byte>* large_ = nullptr;
    std::byte* output_ = nullptr;
    std::byte* outputEnd_ = nullptr;
    // During decoding: what is not read yet.
    std::span<const std::byte> input_;
    bool readFailed_ = false;
};

} // namespace Corvid

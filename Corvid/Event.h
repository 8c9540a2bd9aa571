#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
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

    Event() = default;
    Event(const Event& other) noexcept : protocolTag(other.protocolTag) {}
    Event& operator=(const Event& other) noexcept {
        protocolTag = other.protocolTag;
        return *this;
    }

    /// Writes the fields after those of the base class; derived classes call their base's first.
    virtual void addFields();
    /// Reads what addFields() wrote. Fields that could not be read keep their values, and
    /// readFailed() tells.
    virtual void getFields();
    virtual ~Event() = default;
    [[nodiscard]] virtual const EventType* type() const = 0;

    /// Encodes the event and hands it to the sender; false if that is closed or the event is
    /// larger than a frame may be.
    bool send(Sender* sender);

    /// Takes the next frame of a receiver and makes the event that it holds, owned by the caller.
    /// False, and null, when the connection is lost or the frame is malformed: an unknown type,
    /// other fields than the class reads, or bytes left over.
    static bool receive(Receiver* receiver, Event*& event);

    /// Encodes into `frame`, replacing its contents; false if it would be too large.
    bool encode(std::vector<std::byte>& frame);
    /// Makes the event that a whole frame holds, or null if it is malformed. Owned by the caller.
    [[nodiscard]] static Event* decode(std::span<const std::byte> frame);

    /// A header field of the application's own that reaches the receiver with the event.
    short protocolTag = 0;

protected:
    void addField(const std::string& value);
    void addField(float value);
    void addField(unsigned int value);
    void addField(unsigned long value);
    void addField(short value);
    void addField(bool value);
    /// A raw block; its length is not limited but by the frame's.
    void addData(const void* data, long length);

    // Each reads one field of its type, or fails: `value` then keeps what it had.
    bool getField(std::string& value);
    bool getField(float& value);
    bool getField(unsigned int& value);
    bool getField(unsigned long& value);
    bool getField(short& value);
    bool getField(bool& value);
    /// Reads a raw block of exactly that length.
    bool getData(void* data, long length);

    /// Bytes of the frame that are not read yet; to be asked before allocating for a count.
    [[nodiscard]] std::size_t bytesLeft() const noexcept { return input_.size(); }
    /// True once a field could not be read; everything after it fails too.
    [[nodiscard]] bool readFailed() const noexcept { return readFailed_; }
    /// For a getFields() that finds values which cannot be.
    void failRead() noexcept { readFailed_ = true; }

private:
    std::vector<std::byte>* output_ = nullptr; // only during encode()
    std::span<const std::byte> input_;         // only during decode()
    bool readFailed_ = false;
};

} // namespace Corvid

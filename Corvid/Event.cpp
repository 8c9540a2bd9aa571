#include <Corvid/Event.h>

#include <Corvid/EventType.h>
#include <Corvid/Receiver.h>
#include <Corvid/Sender.h>

#include <algorithm>
#include <array>
#include <bit>
#include <exception>
#include <memory>
#include <utility>

namespace Corvid {

// Values are copied between memory and the wire unchanged.
static_assert(std::endian::native == std::endian::little, "the wire is little-endian");
static_assert(sizeof(short) == 2 && sizeof(unsigned int) == 4 && sizeof(unsigned long) == 8);
static_assert(sizeof(float) == 4);

namespace {

constexpr std::size_t kLengthBytes = 4;
constexpr std::size_t kTypeBytes = 2;
constexpr std::size_t kSmallBytes = 256; // most events fit there, on the stack
// A thread's buffer that has grown beyond this for a large event is released.
constexpr std::size_t kMaxKeptBytes = 1U << 20U;

/// The buffer for larger events, kept at its full size between them. Moved out while in use, so
/// that a sender may send another event itself.
std::vector<std::byte>& threadBuffer() {
    thread_local std::vector<std::byte> buffer;
    return buffer;
}

void giveBack(std::vector<std::byte>& buffer) {
    if (!buffer.empty() && buffer.size() <= kMaxKeptBytes) {
        threadBuffer().swap(buffer);
    }
}

void report(std::string* fault, std::string text) {
    if (fault != nullptr) {
        *fault = std::move(text);
    }
}

} // namespace

void Event::getFields() {
    getHeader();
}

bool Event::send(Sender* sender) {
    if (sender == nullptr) {
        return false;
    }
    std::array<std::byte, kSmallBytes> small;
    std::vector<std::byte> large;
    const std::span<const std::byte> frame = encodeInto(small, large);
    if (frame.empty()) {
        sender->refuseEvent(
            type()->name() + " is larger than " + std::to_string(kMaxFrameBytes >> 20U) +
            " MiB and was not sent");
    }
    const bool sent = !frame.empty() && sender->sendFrame(frame.data(), frame.size());
    giveBack(large);
    return sent;
}

bool Event::receive(Receiver* receiver, Event*& event) {
    event = nullptr;
    std::span<const std::byte> frame;
    if (receiver == nullptr || !receiver->receiveFrame(frame)) {
        return false;
    }
    std::string fault;
    event = decode(frame, &fault);
    if (event == nullptr) {
        receiver->refuseFrame(fault);
    }
    return event != nullptr;
}

bool Event::encode(std::vector<std::byte>& frame) {
    std::array<std::byte, kSmallBytes> small;
    std::vector<std::byte> large;
    const std::span<const std::byte> encoded = encodeInto(small, large);
    frame.assign(encoded.begin(), encoded.end());
    giveBack(large);
    return !frame.empty();
}

/// Returns the frame, in one of the two buffers; empty if it would be too large.
std::span<const std::byte>
Event::encodeInto(std::span<std::byte> small, std::vector<std::byte>& large) {
    begin_ = small.data();
    output_ = begin_ + kLengthBytes + kTypeBytes;
    outputEnd_ = begin_ + small.size();
    large_ = &large;
    const short typeId = type()->typeId();
    std::memcpy(begin_ + kLengthBytes, &typeId, kTypeBytes);
    addFields();
    std::span<const std::byte> frame;
    if (begin_ != nullptr) {
        frame = {begin_, output_};
        const auto length = static_cast<std::uint32_t>(frame.size() - kLengthBytes);
        std::memcpy(begin_, &length, kLengthBytes);
    }
    begin_ = nullptr;
    output_ = nullptr;
    outputEnd_ = nullptr;
    large_ = nullptr;
    return frame;
}

/// Makes room for `more` bytes. Returns false if the frame would be too large, and for the rest of
/// the encoding.
bool Event::grow(std::size_t more) {
    if (begin_ == nullptr) {
        return false;
    }
    const auto used = static_cast<std::size_t>(output_ - begin_);
    if (more > kMaxFrameBytes - used) {
        begin_ = nullptr;
        output_ = nullptr;
        outputEnd_ = nullptr;
        return false;
    }
    const bool wasSmall = large_->empty();
    if (wasSmall) {
        large_->swap(threadBuffer());
    }
    if (large_->size() < used + more) {
        large_->resize(std::min<std::size_t>(
            kMaxFrameBytes, std::max(used + more, large_->size() + large_->size() / 2)));
    }
    if (wasSmall) {
        std::memcpy(large_->data(), begin_, used);
    }
    begin_ = large_->data();
    output_ = begin_ + used;
    outputEnd_ = begin_ + large_->size();
    return true;
}

const EventType* Event::typeOf(std::span<const std::byte> frame, std::string* fault) {
    std::uint32_t length = 0;
    short typeId = 0;
    if (frame.size() < kMinFrameBytes || frame.size() > kMaxFrameBytes) {
        report(fault, "a frame of " + std::to_string(frame.size()) + " bytes");
        return nullptr;
    }
    std::memcpy(&length, frame.data(), kLengthBytes);
    std::memcpy(&typeId, frame.data() + kLengthBytes, kTypeBytes);
    if (length != frame.size() - kLengthBytes) {
        report(fault, "a frame with a wrong length field");
        return nullptr;
    }
    const EventType* type = EventType::find(typeId);
    if (type == nullptr) {
        report(fault, "an event of the unknown type " + std::to_string(typeId));
    }
    return type;
}

bool Event::decodeFrom(std::span<const std::byte> frame, std::string* fault) {
    try {
        input_ = frame.subspan(kLengthBytes + kTypeBytes);
        readFailed_ = false;
        getFields();
        const std::size_t left = std::exchange(input_, {}).size();
        if (readFailed_) {
            report(fault, type()->name() + " with other fields than expected");
            return false;
        }
        if (left != 0) {
            report(fault, type()->name() + " with " + std::to_string(left) + " bytes too many");
            return false;
        }
        return true;
    } catch (const std::exception& exception) {
        report(fault, type()->name() + ": " + exception.what());
        return false;
    }
}

Event* Event::decode(std::span<const std::byte> frame, std::string* fault) {
    const EventType* type = typeOf(frame, fault);
    if (type == nullptr) {
        return nullptr;
    }
    try {
        std::unique_ptr<Event> event(type->create());
        if (event == nullptr) {
            report(fault, type->name() + ": the event could not be created");
            return nullptr;
        }
        return event->decodeFrom(frame, fault) ? event.release() : nullptr;
    } catch (const std::exception& exception) { // no memory for it
        report(fault, type->name() + ": " + exception.what());
        return nullptr;
    }
}

template <class Length>
void Event::addBlock(FieldType type, const void* data, Length length) {
    const std::size_t bytes = 1 + sizeof(length) + static_cast<std::size_t>(length);
    if (static_cast<std::size_t>(outputEnd_ - output_) < bytes && !grow(bytes)) {
        return;
    }
    *output_ = static_cast<std::byte>(type);
    std::memcpy(output_ + 1, &length, sizeof(length));
    if (length != 0) {
        std::memcpy(output_ + 1 + sizeof(length), data, static_cast<std::size_t>(length));
    }
    output_ += bytes;
}

void Event::addField(const std::string& value) {
    if (value.size() > kMaxFrameBytes) {
        grow(value.size()); // ends the encoding; the length does not fit its field
        return;
    }
    addBlock(FieldType::String, value.data(), static_cast<std::uint32_t>(value.size()));
}

void Event::addField(const std::vector<std::string>& texts) {
    addField(static_cast<unsigned int>(texts.size()));
    for (const std::string& text : texts) {
        addField(text);
    }
}

void Event::addField(const std::vector<unsigned char>& bytes) {
    addField(static_cast<unsigned long>(bytes.size()));
    if (!bytes.empty()) {
        addData(bytes.data(), static_cast<long>(bytes.size()));
    }
}

void Event::addData(const void* data, long length) {
    if (length < 0 || length > static_cast<long>(kMaxFrameBytes)) {
        grow(kMaxFrameBytes + std::size_t{1}); // ends the encoding
        return;
    }
    addBlock(FieldType::Data, data, static_cast<std::uint64_t>(length));
}

bool Event::take(void* to, std::size_t size) {
    if (readFailed_ || input_.size() < size) {
        readFailed_ = true;
        return false;
    }
    if (size != 0) {
        std::memcpy(to, input_.data(), size);
    }
    input_ = input_.subspan(size);
    return true;
}

/// Reads the type and length of a variable-length field.
template <class Length>
bool Event::getLength(FieldType type, Length& length) {
    unsigned char found = 0;
    return take(&found, 1) && found == static_cast<unsigned char>(type) &&
           take(&length, sizeof length);
}

bool Event::getField(std::string& value) {
    std::uint32_t length = 0;
    if (!getLength(FieldType::String, length) || length > input_.size()) {
        readFailed_ = true;
        return false;
    }
    value.assign(reinterpret_cast<const char*>(input_.data()), length);
    input_ = input_.subspan(length);
    return true;
}

bool Event::getField(std::vector<std::string>& texts) {
    constexpr std::size_t kMinTextBytes = 5; // an empty one
    unsigned int count = 0;
    if (!getField(count) || count > kMaxTexts || count > bytesLeft() / kMinTextBytes) {
        readFailed_ = true;
        return false;
    }
    texts.resize(count);
    for (std::string& text : texts) {
        getField(text);
    }
    return !readFailed_;
}

bool Event::getField(std::vector<unsigned char>& bytes) {
    unsigned long size = 0;
    bytes = {}; // frees the old bytes before allocating
    if (!getField(size) || size > bytesLeft()) {
        readFailed_ = true;
        return false;
    }
    bytes.resize(size);
    return size == 0 || getData(bytes.data(), static_cast<long>(size));
}

bool Event::getData(void* data, long length) {
    std::uint64_t found = 0;
    if (!getLength(FieldType::Data, found) || length < 0 ||
        found != static_cast<std::uint64_t>(length)) {
        readFailed_ = true;
        return false;
    }
    return take(data, static_cast<std::size_t>(length));
}

} // namespace Corvid

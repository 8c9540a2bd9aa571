#pragma once

#include <string>

#include <orvel_export.h>

namespace Corvid {

class Event;

/// A kind of event: its name, its number on the wire and its factory function. A static object of
/// this class registers the kind for its lifetime.
///
/// Immutable; construct and destroy it while no other thread sends or receives.
class ORVEL_EXPORT EventType {
public:
    /// Creates an empty event on the heap, owned by the caller, or returns null on failure.
    using CreateFunction = Event* (*)();

    /// Registers the kind. If the number is taken, it stays with its first owner.
    EventType(const char* name, short typeId, CreateFunction createFunction);
    EventType(const EventType&) = delete;
    EventType& operator=(const EventType&) = delete;
    ~EventType();

    [[nodiscard]] const std::string& name() const noexcept { return name_; }
    [[nodiscard]] short typeId() const noexcept { return typeId_; }
    [[nodiscard]] Event* create() const { return create_ == nullptr ? nullptr : create_(); }

    /// The kind with that number, or null.
    [[nodiscard]] static const EventType* find(short typeId) noexcept;

private:
    std::string name_;
    short typeId_;
    CreateFunction create_;
};

} // namespace Corvid

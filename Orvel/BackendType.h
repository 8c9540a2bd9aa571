#pragma once

#include <string>

#include <orvel_export.h>

namespace Orvel {

class Backend;
class World;

/// A kind of back end: its name and how one is made. A static object of this class registers the
/// kind for as long as it lives; applications add kinds of their own that way.
/// Immutable; made and destroyed while no other thread uses the registry.
class ORVEL_EXPORT BackendType {
public:
    /// Builds a back end on the heap, owned by the caller, or gives null.
    using CreateFunction = Backend* (*)(World& world, const char* params);

    /// Registers the kind; a name that is taken is refused with a log line.
    BackendType(const std::string& name, CreateFunction createFunction);
    /// Exists only to report misuse: logs, and makes a record without name that is not registered.
    BackendType(const BackendType& other);
    BackendType& operator=(const BackendType&) = delete;
    /// Removes whatever kind is registered under this name.
    virtual ~BackendType();

    /// Null when the create function gives null or there is none.
    [[nodiscard]] Backend* createBackend(World& world, const char* params) const;
    [[nodiscard]] const std::string& name() const noexcept { return name_; }

private:
    std::string name_;
    CreateFunction createFunction_ = nullptr;
};

} // namespace Orvel

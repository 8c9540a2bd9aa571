#pragma once

#include <Config/Param.h>

#include <span>
#include <string>

#include <orvel_export.h>

namespace Orvel {

class Backend;
class World;

/// The parameter that every kind takes.
inline constexpr Config::Param kLabelsParam{
    "labels", Config::Param::Type::List, "",
    "labels of the back end; it serves emitters that share one"};

/// A kind of back end: its name and its factory function. A static object of this class registers
/// the kind for its lifetime; applications add kinds of their own in this way. Immutable; construct
/// and destroy it while no other thread uses the registry.
class ORVEL_EXPORT BackendType {
public:
    /// Creates a back end on the heap, owned by the caller, or returns null.
    using CreateFunction = Backend* (*)(World& world, const char* params);

    /// Registers the kind. If the name is taken, it is not registered and a line is logged.
    /// `description` is a phrase for people. `params` are the parameters that the kind takes
    /// besides "labels"; both must outlive the record.
    BackendType(
        const std::string& name, CreateFunction createFunction, const char* description = "",
        std::span<const Config::Param> params = {});
    /// Only reports misuse: logs, and creates an unnamed, unregistered record.
    BackendType(const BackendType& other);
    BackendType& operator=(const BackendType&) = delete;
    /// Removes the kind registered under this name.
    virtual ~BackendType();

    /// Returns null if the create function does or there is none.
    [[nodiscard]] Backend* createBackend(World& world, const char* params) const;
    [[nodiscard]] const std::string& name() const noexcept { return name_; }
    [[nodiscard]] const char* description() const noexcept { return description_; }
    [[nodiscard]] std::span<const Config::Param> params() const noexcept { return params_; }

private:
    std::string name_;
    CreateFunction createFunction_ = nullptr;
    const char* description_ = "";
    std::span<const Config::Param> params_;
};

} // namespace Orvel

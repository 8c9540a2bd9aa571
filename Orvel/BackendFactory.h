#pragma once

#include <map>
#include <string>
#include <vector>

#include <orvel_export.h>

namespace Orvel {

class Backend;
class BackendType;
class World;

/// The process-wide registry of back-end kinds, by name. `World::addBackend` is how hosts use it.
///
/// Kinds register while static objects are built and leave when they are destroyed. There is no
/// lock: registering must not overlap with another use.
class ORVEL_EXPORT BackendFactory {
public:
    BackendFactory() = default;
    virtual ~BackendFactory() = default;

    /// A new back end of the kind `name`, where "default" stands for "openal"; owned by the caller.
    /// Null and one log line when there is no such kind or it makes none.
    virtual Backend* createBackend(World& world, const std::string& name, const char* params);

    /// Registers a kind that must outlive its registration. Null is ignored; of two kinds with one
    /// name the first stays and a warning is logged.
    static void addBackendType(BackendType* type);
    /// Removes the kind registered under the name of `type`, whichever object it is.
    static void removeBackendType(BackendType* type);

    /// Writes the names of all kinds to standard output.
    static void printTypes();
    /// The names of all kinds, sorted.
    [[nodiscard]] static std::vector<std::string> names();

    /// The registry.
    static BackendFactory _the;

private:
    // Made by the first registration and deleted with the last, so that static objects may register
    // before or after this class's own statics are built.
    static std::map<std::string, BackendType*>* _backendTypeMap;
};

} // namespace Orvel

#pragma once

#include <map>
#include <string>
#include <vector>

#include <orvel_export.h>

namespace Orvel {

class Backend;
class BackendType;
class World;

/// The process-wide registry of back-end kinds, by name. Hosts use it through `World::addBackend`.
///
/// Kinds register while static objects are constructed and are removed when those are destroyed.
/// There is no lock: registration must not overlap with another use.
class ORVEL_EXPORT BackendFactory {
public:
    BackendFactory() = default;
    virtual ~BackendFactory() = default;

    /// Creates a back end of the kind `name`, where "default" means "openal"; owned by the caller.
    /// Returns null and writes one log line if there is no such kind or its function returns null.
    virtual Backend* createBackend(World& world, const std::string& name, const char* params);

    /// Registers a kind, which must outlive its registration. Null is ignored. If the name is
    /// taken, the existing kind stays and a warning is logged.
    static void addBackendType(BackendType* type);
    /// Removes the kind registered under the name of `type`, even if it is another object.
    static void removeBackendType(BackendType* type);

    /// Writes the names of all kinds to standard output.
    static void printTypes();
    /// The names of all kinds, sorted.
    [[nodiscard]] static std::vector<std::string> names();
    /// The record of a kind, where "default" means "openal"; null if there is no such kind.
    [[nodiscard]] static const BackendType* type(const std::string& name);

    /// The registry.
    static BackendFactory _the;

private:
    // Created by the first registration and deleted with the last, so that static objects may
    // register before or after this class's own statics are constructed.
    static std::map<std::string, BackendType*>* _backendTypeMap;
};

} // namespace Orvel

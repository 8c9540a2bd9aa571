#pragma once

#include <string>

namespace Show {

/// A back end that shows the objects of ADM-OSC. Confined to its world's thread.
class ObjectNames {
public:
    ObjectNames() = default;
    ObjectNames(const ObjectNames&) = delete;
    ObjectNames& operator=(const ObjectNames&) = delete;
    virtual ~ObjectNames() = default;

    /// `name`: empty if it has none. `unit`: the object's scene units per normalised unit.
    virtual void setObject(int emitter, std::string name, float unit) = 0;
    virtual void removeObject(int emitter) = 0;
};

} // namespace Show

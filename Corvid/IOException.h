#pragma once

#include <stdexcept>

#include <orvel_export.h>

namespace Corvid {

/// A network operation that failed; what() names the operation, its target and the reason.
class ORVEL_EXPORT IOException : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace Corvid

#pragma once

#include <stdexcept>

#include <orvel_export.h>

namespace Corvid {

/// A network operation that failed; what() says which, on what, and why.
class ORVEL_EXPORT IOException : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace Corvid

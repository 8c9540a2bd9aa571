#pragma once

#include <functional>
#include <string>

namespace Show {

/// Receives one sentence for the user about a problem or a change while a scene runs. Called on the
/// thread that uses the object.
using Report = std::function<void(const std::string& message)>;

} // namespace Show

#pragma once

#include <functional>
#include <string>

namespace Show {

/// Takes one sentence for the user, about something that goes wrong or that changes while a scene
/// runs. Called on the thread that uses the object it was given to.
using Report = std::function<void(const std::string& message)>;

} // namespace Show

#pragma once

#include <Orvel/orvel.h>

#include <exception>
#include <new>
#include <stdexcept>
#include <string>

/// How a function of the interfaces in C turns exceptions into results and the last error.
namespace Orvel::detail {

/// An invalid call; its text becomes the last error.
class Refusal : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

inline void remember(const char* function, const char* reason) noexcept {
    try {
        orvel_set_last_error((std::string(function) + ": " + reason).c_str());
    } catch (...) {
        orvel_set_last_error(nullptr); // no memory for the text
    }
}

/// Runs the body of a function of the interface: its result, or, with the error remembered,
/// `failure` if it throws.
template <class Result, class Body>
Result guarded(const char* function, Result failure, Body body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        remember(function, "out of memory");
    } catch (const std::exception& fault) {
        remember(function, fault.what());
    } catch (...) {
        remember(function, "unknown exception");
    }
    return failure;
}

/// The same for functions that only succeed or fail.
template <class Body>
bool done(const char* function, Body body) noexcept {
    return guarded(function, false, [&] {
        body();
        return true;
    });
}

template <class Pointer>
Pointer need(Pointer pointer, const char* what) {
    if (pointer == nullptr) {
        throw Refusal(std::string(what) + " is null; did its creation succeed?");
    }
    return pointer;
}

} // namespace Orvel::detail

#pragma once

#include <Corvid/Keys.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <sys/stat.h>

namespace Corvid::detail {

/// The keys of a client or server, read again when their file has changed. While the file has never
/// been readable there are none, so that no one can connect. Confined.
class Keyring {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds kInterval{500};

    explicit Keyring(std::string path) : path_(std::move(path)) {}

    /// The result of look().
    struct Change {
        bool taken = false;  ///< there are new keys
        std::string problem; ///< why the changed file could not be taken; the keys stay
    };
    /// Reads the file if it has changed.
    Change look();
    /// The same, at most once per interval.
    Change look(Clock::time_point now);
    [[nodiscard]] Clock::time_point next() const { return next_; }

    [[nodiscard]] const Keys& keys() const { return keys_; }
    /// The key of a client: the first; null if there is none.
    [[nodiscard]] const Keys::Key* own() const {
        return keys_.all().empty() ? nullptr : &keys_.all().front();
    }
    /// Whether a key is still valid.
    [[nodiscard]] bool has(const Keys::Key& key) const {
        const Keys::Key* current = keys_.find(key.id);
        return current != nullptr && *current == key;
    }

private:
    const std::string path_;
    Keys keys_;
    bool looked_ = false;
    struct stat seen_ = {};
    Clock::time_point next_;
};

} // namespace Corvid::detail

#include <Corvid/detail/net/Keyring.h>

#include <utility>

namespace Corvid::detail {

Keyring::Change Keyring::look() {
    struct stat now = {};
    if (::stat(path_.c_str(), &now) != 0) {
        now = {};
    }
    const auto same = [](const timespec& a, const timespec& b) {
        return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
    };
    // A change of the owner or the mode counts, so that a refused file can be mended.
    const bool isSame = now.st_ino == seen_.st_ino && now.st_dev == seen_.st_dev &&
                        now.st_size == seen_.st_size && same(now.st_mtim, seen_.st_mtim) &&
                        same(now.st_ctim, seen_.st_ctim);
    if (std::exchange(looked_, true) && isSame) {
        return {};
    }
    seen_ = now;
    Keys keys;
    if (std::string problem = keys.load(path_); !problem.empty()) {
        return {false, std::move(problem)};
    }
    keys_ = std::move(keys);
    return {true, {}};
}

Keyring::Change Keyring::look(Clock::time_point now) {
    if (now < next_) {
        return {};
    }
    next_ = now + kInterval;
    return look();
}

} // namespace Corvid::detail

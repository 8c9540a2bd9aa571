#include <Corvid/Keys.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <openssl/rand.h>
#include <span>
#include <sstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Corvid {

namespace {

constexpr std::string_view kKeysHeader = "orvel-keys 1";

/// A descriptor, closed by the destructor.
class KeyDescriptor {
public:
    explicit KeyDescriptor(int descriptor) : descriptor_(descriptor) {}
    KeyDescriptor(const KeyDescriptor&) = delete;
    KeyDescriptor& operator=(const KeyDescriptor&) = delete;
    ~KeyDescriptor() {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
    }
    [[nodiscard]] int get() const { return descriptor_; }

private:
    int descriptor_;
};

/// While it exists, other programs that change key files of this folder wait. The folder is locked,
/// because a change replaces the file.
class FolderLock {
public:
    explicit FolderLock(const std::string& path)
        : folder_(::open(
              std::filesystem::absolute(path).parent_path().c_str(),
              O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        if (folder_.get() >= 0) {
            ::flock(folder_.get(), LOCK_EX);
        }
    }

private:
    const KeyDescriptor folder_;
};

std::string systemProblem(const std::string& path) {
    return path + ": " + std::generic_category().message(errno);
}

std::string hexOf(std::span<const std::byte> bytes) {
    constexpr const char* kDigits = "0123456789abcdef";
    std::string text;
    for (const std::byte byte : bytes) {
        text += kDigits[std::to_integer<unsigned>(byte) >> 4U];
        text += kDigits[std::to_integer<unsigned>(byte) & 15U];
    }
    return text;
}

bool readHex(std::string_view text, std::span<std::byte> bytes) {
    if (text.size() != 2 * bytes.size()) {
        return false;
    }
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        unsigned value = 0;
        const char* end = text.data() + 2 * i + 2;
        if (std::from_chars(end - 2, end, value, 16).ptr != end) {
            return false;
        }
        bytes[i] = static_cast<std::byte>(value);
    }
    return true;
}

bool isKeyName(std::string_view name) {
    constexpr std::string_view kAllowed =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.";
    return !name.empty() && name.size() <= Keys::kMaxNameBytes &&
           name.find_first_not_of(kAllowed) == std::string_view::npos;
}

bool fillRandom(std::span<std::byte> bytes) {
    return ::RAND_bytes(
               reinterpret_cast<unsigned char*>(bytes.data()), static_cast<int>(bytes.size())) == 1;
}

/// Why others could read the file; empty if they cannot.
std::string whyReadableByOthers(const struct stat& file, const std::string& path) {
    const uid_t user = ::geteuid();
    // Root's group may: files of a service's credentials are made so.
    const bool byGroup = (file.st_mode & S_IRWXG) != 0 && file.st_gid != 0;
    if ((file.st_mode & S_IRWXO) != 0 || byGroup) {
        return path + ": other users can read it; make it private: chmod 600 " + path;
    }
    if (user != 0 && file.st_uid != 0 && file.st_uid != user) {
        return path + ": it belongs to another user, who can read it";
    }
    return {};
}

} // namespace

const char* Keys::nameOf(Right right) {
    return right == Right::Drive ? "drive" : "watch";
}

const Keys::Key* Keys::find(std::string_view id) const {
    const auto key = std::find_if(
        keys_.begin(), keys_.end(), [id](const Key& candidate) { return candidate.id == id; });
    return key == keys_.end() ? nullptr : &*key;
}

const Keys::Key* Keys::named(std::string_view name) const {
    const auto key = std::find_if(keys_.begin(), keys_.end(), [name](const Key& candidate) {
        return candidate.name == name;
    });
    return key == keys_.end() ? nullptr : &*key;
}

std::string Keys::grant(const std::string& name, Right right) {
    if (!isKeyName(name)) {
        return "a name has 1 to 32 letters, digits, \"-\", \"_\" and \".\"; found \"" + name + "\"";
    }
    if (named(name) != nullptr) {
        return "there is a key with the name " + name + "; revoke it first, or choose another name";
    }
    if (keys_.size() >= kMaxKeys) {
        return "a file holds at most 256 keys";
    }
    Key key;
    std::array<std::byte, kIdBytes / 2> id;
    if (!fillRandom(id) || !fillRandom(key.secret)) {
        return "the system has no random numbers";
    }
    key.id = hexOf(id);
    key.name = name;
    key.right = right;
    keys_.push_back(std::move(key));
    return {};
}

bool Keys::revoke(std::string_view name) {
    return std::erase_if(keys_, [name](const Key& key) { return key.name == name; }) != 0;
}

std::string Keys::makeFile(const std::string& path, const std::string& name) {
    Keys keys;
    const std::string problem = keys.grant(name, Right::Drive);
    return problem.empty() ? keys.save(path, false) : problem;
}

std::string Keys::grantIn(
    const std::string& path, const std::string& name, Right right, const std::string& output,
    Keys& one) {
    const FolderLock lock(path);
    Keys all;
    std::string problem = all.load(path);
    if (problem.empty()) {
        problem = all.grant(name, right);
    }
    if (!problem.empty()) {
        return problem;
    }
    one.keys_ = {all.keys_.back()};
    // The copy first: a key that nobody has would only be in the way.
    if (!output.empty()) {
        problem = one.save(output, false);
    }
    if (problem.empty()) {
        problem = all.save(path, true);
        if (!problem.empty() && !output.empty()) {
            ::unlink(output.c_str());
        }
    }
    return problem;
}

std::string Keys::revokeIn(const std::string& path, const std::string& name) {
    const FolderLock lock(path);
    Keys all;
    if (std::string problem = all.load(path); !problem.empty()) {
        return problem;
    }
    if (!all.revoke(name)) {
        return path + ": there is no key with the name " + name;
    }
    return all.save(path, true);
}

std::string Keys::text() const {
    std::string text = "# Keys of Orvel: secret. See docs/security.md.\n";
    text.append(kKeysHeader) += '\n';
    for (const Key& key : keys_) {
        text += "key " + key.id + ' ' + nameOf(key.right) + ' ' + key.name + ' ' +
                hexOf(key.secret) + '\n';
    }
    return text;
}

std::string Keys::parse(std::string_view text) {
    if (text.size() > kMaxFileBytes) {
        return "it is larger than 64 KiB, so it is no key file";
    }
    Keys found;
    bool hasHeader = false;
    std::istringstream lines{std::string(text)};
    std::string line;
    for (int number = 1; std::getline(lines, line); ++number) {
        const std::string where = "line " + std::to_string(number) + ": ";
        if (line.empty() || line.front() == '#') {
            continue;
        }
        if (!hasHeader) {
            if (line != kKeysHeader) {
                return where +
                       "expected \"orvel-keys 1\"; it is no key file, or of a later version";
            }
            hasHeader = true;
            continue;
        }
        std::istringstream words(line);
        std::string word;
        std::string right;
        std::string secret;
        std::string rest;
        Key key;
        words >> word >> key.id >> right >> key.name >> secret;
        std::array<std::byte, kIdBytes / 2> id;
        const bool isRight = right == nameOf(Right::Drive) || right == nameOf(Right::Watch);
        if (word != "key" || !readHex(key.id, id) || !isRight || !isKeyName(key.name) ||
            !readHex(secret, key.secret) || words >> rest) {
            return where + "expected: key ID drive|watch NAME SECRET";
        }
        key.id = hexOf(id);
        key.right = right == nameOf(Right::Drive) ? Right::Drive : Right::Watch;
        if (found.find(key.id) != nullptr || found.named(key.name) != nullptr) {
            return where + "there is an earlier key with this id or name";
        }
        if (found.keys_.size() == kMaxKeys) {
            return where + "a file holds at most 256 keys";
        }
        found.keys_.push_back(std::move(key));
    }
    if (!hasHeader) {
        return "it is empty; make a key file with: orvel key new FILE";
    }
    *this = std::move(found);
    return {};
}

std::string Keys::load(const std::string& path) {
    const KeyDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status = {};
    if (file.get() < 0 || ::fstat(file.get(), &status) != 0) {
        return systemProblem(path);
    }
    if (!S_ISREG(status.st_mode)) {
        return path + ": it is not a file";
    }
    if (std::string problem = whyReadableByOthers(status, path); !problem.empty()) {
        return problem;
    }
    std::string text(kMaxFileBytes + 1, '\0'); // one more detects larger files
    std::size_t size = 0;
    while (size < text.size()) {
        const ssize_t got = ::read(file.get(), text.data() + size, text.size() - size);
        if (got < 0) {
            return systemProblem(path);
        }
        if (got == 0) {
            break;
        }
        size += static_cast<std::size_t>(got);
    }
    text.resize(size);
    const std::string problem = parse(text);
    return problem.empty() ? "" : path + ": " + problem;
}

std::string Keys::save(const std::string& path, bool replace) const {
    std::string name = path + ".XXXXXX";
    const KeyDescriptor file(::mkostemp(name.data(), O_CLOEXEC)); // with mode 0600
    if (file.get() < 0) {
        return systemProblem(path);
    }
    const auto fail = [&name, &path] {
        std::string problem = systemProblem(path);
        ::unlink(name.c_str());
        return problem;
    };
    struct stat former = {};
    if (replace && ::stat(path.c_str(), &former) == 0 && ::geteuid() == 0 &&
        ::fchown(file.get(), former.st_uid, former.st_gid) != 0) {
        return fail();
    }
    const std::string content = text();
    for (std::size_t done = 0; done < content.size();) {
        const ssize_t put = ::write(file.get(), content.data() + done, content.size() - done);
        if (put < 0) {
            return fail();
        }
        done += static_cast<std::size_t>(put);
    }
    if (::fsync(file.get()) != 0) {
        return fail();
    }
    if (replace ? ::rename(name.c_str(), path.c_str()) != 0
                : ::link(name.c_str(), path.c_str()) != 0) {
        return fail();
    }
    if (!replace) {
        ::unlink(name.c_str());
    }
    return {};
}

} // namespace Corvid

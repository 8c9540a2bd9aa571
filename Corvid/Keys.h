#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <orvel_export.h>

namespace Corvid {

/// The keys of a key file: who may connect to a server, under which name and with which right. A
/// client uses the first key of its file. docs/security.md describes the file.
///
/// A value; not synchronised.
class ORVEL_EXPORT Keys {
public:
    enum class Right {
        Drive, ///< changes the scene
        Watch  ///< is informed who drives, and changes nothing
    };
    static constexpr std::size_t kSecretBytes = 32;

    /// One key: a secret that both sides know, its name and its right.
    struct ORVEL_EXPORT Key {
        std::string id;   ///< 16 hexadecimal digits, visible on the network
        std::string name; ///< for people: log, monitor
        Right right = Right::Drive;
        std::array<std::byte, kSecretBytes> secret = {};

        friend bool operator==(const Key&, const Key&) = default;
    };

    static constexpr std::size_t kIdBytes = 16;
    static constexpr std::size_t kMaxNameBytes = 32;
    static constexpr std::size_t kMaxKeys = 256;
    static constexpr std::size_t kMaxFileBytes = std::size_t{64} << 10U;

    /// Reads a key file. Returns a problem, and keeps the keys, if it cannot be read, is damaged,
    /// or may be read by users other than its owner and root; otherwise an empty text.
    [[nodiscard]] std::string load(const std::string& path);
    /// The same from the content of a file, or a problem with its line.
    [[nodiscard]] std::string parse(std::string_view text);
    /// Creates a key file, or replaces it at once and entirely; only its owner may read it. Returns
    /// a problem, or an empty text. `replace`: whether it may exist.
    [[nodiscard]] std::string save(const std::string& path, bool replace) const;
    [[nodiscard]] std::string text() const; ///< the content of a file

    /// Adds a new random key. Returns a problem if the name is taken or invalid (1 to kMaxNameBytes
    /// letters, digits, '-', '_' and '.'), or if there are too many keys; otherwise an empty text.
    [[nodiscard]] std::string grant(const std::string& name, Right right);
    /// Removes a key by name. Returns false if there is none.
    bool revoke(std::string_view name);

    // Changes of a key file. Concurrent changes wait for each other. They return a problem, or an
    // empty text.

    /// Makes a file, which must not exist, with a first key that may drive.
    [[nodiscard]] static std::string makeFile(const std::string& path, const std::string& name);
    /// Adds a key. `one`: set to this key alone, as its machine needs it; written to the file
    /// `output`, which must not exist, unless that is empty.
    [[nodiscard]] static std::string grantIn(
        const std::string& path, const std::string& name, Right right, const std::string& output,
        Keys& one);
    /// Removes a key.
    [[nodiscard]] static std::string revokeIn(const std::string& path, const std::string& name);

    [[nodiscard]] const std::vector<Key>& all() const { return keys_; }
    /// The key with an id or a name; null if there is none. Valid until a change.
    [[nodiscard]] const Key* find(std::string_view id) const;
    [[nodiscard]] const Key* named(std::string_view name) const;

    [[nodiscard]] static const char* nameOf(Right right); ///< "drive" or "watch"

private:
    std::vector<Key> keys_;
};

} // namespace Corvid

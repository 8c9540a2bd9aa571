#pragma once

#include <Corvid/InetAddress.h>
#include <Vessa/Mutex.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <orvel_export.h>

namespace Corvid {

/// Settings of discovery: a multicast group, its port, the TTL and the interfaces. A change after
/// opening takes effect at the next search or receive of the owning object.
///
/// Synchronised.
class ORVEL_EXPORT Multicast {
public:
    static constexpr const char* kDefaultAddress = "239.255.77.90"; ///< administratively scoped
    static constexpr std::uint16_t kDefaultPort = 33780;
    static constexpr int kDefaultTtl = 1; ///< this network only
    static constexpr int kMaxTtl = 255;

    /// An interface in use by an open client or server.
    struct UsedInterface {
        std::string name;    ///< empty if no interface has the requested address
        InetAddress address; ///< invalid if no interface has the requested name
        std::string error;   ///< why it cannot be used; empty if it can
    };

    Multicast();
    Multicast(const Multicast& other);
    Multicast& operator=(const Multicast& other);

    /// Sets the group. If the address is not a valid multicast address, returns false and keeps the
    /// former one; the owning object reports a diagnostic.
    bool setAddress(const InetAddress& address);
    /// The reference is only for the thread that calls setAddress(); other threads use settings().
    [[nodiscard]] const InetAddress& address() const;
    void setPort(std::uint16_t port);
    [[nodiscard]] std::uint16_t port() const;
    /// 0 (this machine) to 255; other values are clamped, with a diagnostic. With 1 or less,
    /// datagrams from outside an interface's networks are ignored.
    void setTtl(int ttl);
    [[nodiscard]] int ttl() const;

    /// The interfaces to use, by address, by name ("eth0"), or both; if empty the process-wide
    /// default, and if that is empty too every usable one, loopback included.
    void setInterfaces(std::vector<InetAddress> addresses, std::vector<std::string> names = {});
    [[nodiscard]] std::vector<InetAddress> interfaces() const;
    static void
    setDefaultInterfaces(std::vector<InetAddress> addresses, std::vector<std::string> names = {});
    [[nodiscard]] static std::vector<InetAddress> defaultInterfaces();
    /// Parses an IPv4 address or the name of an interface and appends it to the matching list.
    /// Returns false, without appending, if it is neither. Does not check that the interface
    /// exists.
    static bool readInterface(
        const std::string& text, std::vector<InetAddress>& addresses,
        std::vector<std::string>& names);

    /// A consistent copy of all settings, with the default interfaces resolved.
    struct Settings {
        InetAddress address;
        std::uint16_t port = kDefaultPort;
        int ttl = kDefaultTtl;
        std::vector<InetAddress> interfaces;
        std::vector<std::string> interfaceNames;

        /// Whether only some interfaces may be used.
        [[nodiscard]] bool restricted() const {
            return !interfaces.empty() || !interfaceNames.empty();
        }
    };
    [[nodiscard]] Settings settings() const;
    /// Incremented by each change, also of the process-wide default, so that users can detect it.
    [[nodiscard]] std::uint64_t revision() const;

private:
    friend class MultiClient;
    friend class MultiServer;
    void report(const std::string& text) const;

    std::function<void(const std::string&)> report_; // set once, by the owner; not copied
    mutable Vessa::Mutex mutex_;
    Settings settings_ ORVEL_GUARDED_BY(mutex_);
    std::atomic<std::uint64_t> revision_ = 1;
};

} // namespace Corvid

#pragma once

#include <Corvid/InetAddress.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include <orvel_export.h>

namespace Corvid {

/// Where servers and clients look for each other: a multicast group, its port, how far datagrams
/// travel, and on which interfaces. A change after opening takes effect at the next search or
/// receive of the object that holds it.
///
/// Synchronised.
class ORVEL_EXPORT Multicast {
public:
    static constexpr const char* kDefaultAddress = "239.255.77.90"; ///< administratively scoped
    static constexpr std::uint16_t kDefaultPort = 33780;
    static constexpr int kDefaultTtl = 1; ///< this network only
    static constexpr int kMaxTtl = 255;

    /// An interface as an open client or server uses it.
    struct UsedInterface {
        std::string name;    ///< empty if no interface has the address that was asked for
        InetAddress address; ///< invalid if no interface has the name that was asked for
        std::string error;   ///< why it cannot be used; empty if it is
    };

    Multicast();
    Multicast(const Multicast& other);
    Multicast& operator=(const Multicast& other);

    /// Sets the group; false, and it stays, if the address is not a valid multicast address. The
    /// object that holds this makes a diagnostic of it.
    bool setAddress(const InetAddress& address);
    /// The reference is for the thread that calls setAddress(); others use settings().
    [[nodiscard]] const InetAddress& address() const;
    void setPort(std::uint16_t port);
    [[nodiscard]] std::uint16_t port() const;
    /// 0 (this machine) to 255; values outside are clamped, with a diagnostic likewise. With 1 or
    /// less, what comes from outside an interface's networks is ignored.
    void setTtl(int ttl);
    [[nodiscard]] int ttl() const;

    /// The interfaces, by their addresses, by their names ("eth0"), or some so and some so; none
    /// means the process-wide default, and if that is none too every usable one, loopback included.
    void setInterfaces(std::vector<InetAddress> addresses, std::vector<std::string> names = {});
    [[nodiscard]] std::vector<InetAddress> interfaces() const;
    static void
    setDefaultInterfaces(std::vector<InetAddress> addresses, std::vector<std::string> names = {});
    [[nodiscard]] static std::vector<InetAddress> defaultInterfaces();
    /// Appends what a text means, an IPv4 address or the name of an interface, to one of the two
    /// lists. False, and nothing is appended, if it can be neither. Nobody is asked whether there
    /// is such an interface.
    static bool readInterface(
        const std::string& text, std::vector<InetAddress>& addresses,
        std::vector<std::string>& names);

    /// All settings at one moment, the default interfaces resolved.
    struct Settings {
        InetAddress address;
        std::uint16_t port = kDefaultPort;
        int ttl = kDefaultTtl;
        std::vector<InetAddress> interfaces;
        std::vector<std::string> interfaceNames;

        /// Whether only some interfaces are to be used.
        [[nodiscard]] bool restricted() const {
            return !interfaces.empty() || !interfaceNames.empty();
        }
    };
    [[nodiscard]] Settings settings() const;
    /// Grows with each change, of the process-wide default too, so that users see that there was
    /// one.
    [[nodiscard]] std::uint64_t revision() const;

private:
    friend class MultiClient;
    friend class MultiServer;
    void report(const std::string& text) const;

    std::function<void(const std::string&)> report_; // set once, by the holder; not copied
    mutable std::mutex mutex_;
    Settings settings_; // guarded by mutex_
    std::atomic<std::uint64_t> revision_ = 1;
};

} // namespace Corvid

#pragma once

#include <Corvid/InetAddress.h>

#include <atomic>
#include <cstdint>
#include <mutex>
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

    Multicast();
    Multicast(const Multicast& other);
    Multicast& operator=(const Multicast& other);

    /// Sets the group; false, and it stays, if the address is not a valid multicast address.
    bool setAddress(const InetAddress& address);
    /// The reference is for the thread that calls setAddress(); others use settings().
    [[nodiscard]] const InetAddress& address() const;
    void setPort(std::uint16_t port);
    [[nodiscard]] std::uint16_t port() const;
    /// 0 (this machine) to 255; values outside are clamped.
    void setTtl(int ttl);
    [[nodiscard]] int ttl() const;

    /// The interfaces, by their addresses; empty means the process-wide default, and if that is
    /// empty too every usable one, loopback included.
    void setInterfaces(std::vector<InetAddress> interfaces);
    [[nodiscard]] std::vector<InetAddress> interfaces() const;
    static void setDefaultInterfaces(std::vector<InetAddress> interfaces);
    [[nodiscard]] static std::vector<InetAddress> defaultInterfaces();

    /// All settings at one moment, the default interfaces resolved.
    struct Settings {
        InetAddress address;
        std::uint16_t port = kDefaultPort;
        int ttl = kDefaultTtl;
        std::vector<InetAddress> interfaces;
    };
    [[nodiscard]] Settings settings() const;
    /// Grows with each change, of the process-wide default too, so that users see that there was
    /// one.
    [[nodiscard]] std::uint64_t revision() const;

private:
    mutable std::mutex mutex_;
    Settings settings_; // guarded by mutex_
    std::atomic<std::uint64_t> revision_ = 1;
};

} // namespace Corvid

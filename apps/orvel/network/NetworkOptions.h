#pragma once

#include "network/Announcement.h"
#include <Corvid/InetAddress.h>
#include <Corvid/Multicast.h>

#include <CLI/App.hpp>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace Corvid {
class MultiClient;
class MultiServer;
} // namespace Corvid

namespace Orvel {
class ClientBackend;
class World;
} // namespace Orvel

namespace OrvelTool {

/// The options of discovery. Invalid values are refused while the command line is parsed.
class NetworkOptions {
public:
    /// Declares --group, --port, --ttl and --interface.
    void declare(CLI::App& app);
    /// Declares --max-per-address and, for clients, --max-servers.
    void declareLimits(CLI::App& app, bool client);
    /// Declares only --interface.
    void declareInterface(CLI::App& app);

    /// Declares --key.
    void declareKey(CLI::App& app, bool server);
    /// Declares --open and --no-announce.
    void declareOpen(CLI::App& app, const std::string& description);
    /// Takes the default of --key, and reports a key file that cannot be used. Call it before the
    /// functions below; false: give up.
    [[nodiscard]] bool checkKey();
    /// The key file; empty without one.
    [[nodiscard]] const std::string& key() const noexcept { return key_; }
    /// Whether everybody may reach what has no keys.
    [[nodiscard]] bool isOpen() const noexcept { return open_; }
    /// Announces a service at the interfaces given, or at an address, if everybody may reach it.
    void announce(
        Announcement& announcement, const std::string& type, std::uint16_t port,
        const std::vector<std::string>& texts) const;
    void announce(
        Announcement& announcement, const std::string& type, const std::string& address,
        std::uint16_t port, const std::vector<std::string>& texts = {}) const;
    /// Whether the options of interfaces leave out this machine itself.
    [[nodiscard]] bool excludesThisMachine() const;

    /// Validates a port number, 1 to 65535.
    static CLI::Validator portValidator();

    [[nodiscard]] bool interfacesGiven() const noexcept { return !interfaces_.empty(); }

    /// Restricts this process to the interfaces given, and reports those that this machine does not
    /// have. Call it before anything is opened.
    void restrictInterfaces() const;
    /// The interfaces that are up, restricted to those given: address and name.
    [[nodiscard]] std::vector<std::pair<Corvid::InetAddress, std::string>> chosenInterfaces() const;
    /// Applies group, port and TTL as far as they were given.
    void apply(Corvid::Multicast& multicast) const;
    /// Applies the limits on peers.
    void limit(Corvid::MultiServer& server) const;
    void limit(Corvid::MultiClient& client) const;
    /// Applies the limits to all client back ends of a world.
    void limitClients(const Orvel::World& world) const;

private:
    std::string group_;
    unsigned port_ = Corvid::Multicast::kDefaultPort;
    std::string key_;
    bool open_ = false;
    bool silent_ = false;
    CLI::Option* keyOption_ = nullptr; // owned by the command
    int ttl_ = Corvid::Multicast::kDefaultTtl;
    std::vector<std::string> interfaces_;
    std::size_t maxPerAddress_ = 16;
    std::size_t maxServers_ = 64;
};

/// The client back ends of a world.
std::vector<Orvel::ClientBackend*> clientsOf(const Orvel::World& world);

/// Whether only programs on this machine reach that address.
bool isThisMachine(const Corvid::InetAddress& address);

/// Validates "HOST:PORT" as an option's value. Returns an error message, or an empty text.
std::string checkHostAndPort(const std::string& text);
/// Splits "HOST:PORT".
std::pair<std::string, std::uint16_t> hostAndPort(const std::string& text);

} // namespace OrvelTool

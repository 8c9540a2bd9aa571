#pragma once

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
class World;
}

namespace OrvelTool {

/// The options that say where servers and clients look for each other. Wrong values are refused
/// while the command line is parsed.
class NetworkOptions {
public:
    /// --group, --port, --ttl and --interface.
    void declare(CLI::App& app);
    /// --max-per-address, and for clients --max-servers.
    void declareLimits(CLI::App& app, bool client);
    /// --interface alone.
    void declareInterface(CLI::App& app);

    /// Accepts a port, from 1 to 65535.
    static CLI::Validator portValidator();

    [[nodiscard]] bool interfacesGiven() const noexcept { return !interfaces_.empty(); }

    /// Restricts this process to the interfaces, and tells which of them this machine does not
    /// have. Before anything is opened.
    void restrictInterfaces() const;
    /// The interfaces that are up, or of these the ones that were given: address and name.
    [[nodiscard]] std::vector<std::pair<Corvid::InetAddress, std::string>> chosenInterfaces() const;
    /// Sets group, port and TTL where they were given.
    void apply(Corvid::Multicast& multicast) const;
    /// Sets the limits on what one address may take.
    void limit(Corvid::MultiServer& server) const;
    void limit(Corvid::MultiClient& client) const;
    /// The same for all client back ends of a world.
    void limitClients(const Orvel::World& world) const;

private:
    std::string group_;
    unsigned port_ = Corvid::Multicast::kDefaultPort;
    int ttl_ = Corvid::Multicast::kDefaultTtl;
    std::vector<std::string> interfaces_;
    std::size_t maxPerAddress_ = 16;
    std::size_t maxServers_ = 64;
};

/// Accepts "HOST:PORT" while a command line is parsed; else the result says what was expected.
std::string checkHostAndPort(const std::string& text);
/// The two halves of such a text.
std::pair<std::string, std::uint16_t> hostAndPort(const std::string& text);

} // namespace OrvelTool

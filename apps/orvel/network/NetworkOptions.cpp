#include "network/NetworkOptions.h"

#include "process/Output.h"

#include <Corvid/InetAddress.h>
#include <Corvid/Keys.h>
#include <Corvid/MultiClient.h>
#include <Corvid/MultiServer.h>
#include <Orvel/ClientBackend.h>
#include <Orvel/World.h>

#include <algorithm>
#include <arpa/inet.h>
#include <cstdlib>
#include <fstream>
#include <ifaddrs.h>
#include <memory>
#include <net/if.h>
#include <netinet/in.h>
#include <utility>

namespace OrvelTool {

namespace {

using Corvid::InetAddress;

std::string checkGroup(const std::string& text) {
    return InetAddress::getByAddress(text).isMulticast()
               ? ""
               : "expected an address from 224.0.0.0 to 239.255.255.255, found \"" + text + "\"";
}

std::string checkInterface(const std::string& text) {
    std::vector<InetAddress> addresses;
    std::vector<std::string> names;
    return Corvid::Multicast::readInterface(text, addresses, names)
               ? ""
               : "expected the name or the IPv4 address of one of this machine's interfaces, found "
                 "\"" +
                     text + "\"";
}

bool isNumber(const std::string& text, int lowest, int highest) {
    int number = 0;
    return CLI::detail::lexical_cast(text, number) && number >= lowest && number <= highest;
}

std::string checkPort(const std::string& text) {
    return isNumber(text, 1, 65535) ? "" : "expected 1 to 65535, found \"" + text + "\"";
}

std::string checkTtl(const std::string& text) {
    return isNumber(text, 0, 255) ? "" : "expected 0 to 255, found \"" + text + "\"";
}

/// Address and name of an interface.
using Interface = std::pair<InetAddress, std::string>;

bool isCalled(const Interface& interface, const std::string& text) {
    return interface.first == InetAddress::getByAddress(text) || interface.second == text;
}

/// This machine's interfaces that are up.
std::vector<Interface> ownInterfaces() {
    std::vector<Interface> result;
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        return result;
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, &freeifaddrs);
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_INET &&
            (entry->ifa_flags & IFF_UP) != 0) {
            const auto* address = reinterpret_cast<const sockaddr_in*>(entry->ifa_addr);
            result.emplace_back(
                InetAddress::fromBits(ntohl(address->sin_addr.s_addr)), entry->ifa_name);
        }
    }
    return result;
}

} // namespace

void NetworkOptions::declare(CLI::App& app) {
    app.add_option(
           "--group", group_,
           "The multicast group of the search (default: " +
               std::string(Corvid::Multicast::kDefaultAddress) + ")")
        ->type_name("ADDR")
        ->check(CLI::Validator(checkGroup, "", "group"));
    app.add_option("--port", port_, "The group's UDP port")
        ->type_name("N")
        ->check(portValidator())
        ->capture_default_str();
    app.add_option("--ttl", ttl_, "TTL of the search; 0: this machine, 1: this network")
        ->type_name("N")
        ->check(CLI::Validator(checkTtl, "", "ttl"))
        ->capture_default_str();
    declareInterface(app);
}

void NetworkOptions::declareLimits(CLI::App& app, bool client) {
    const auto range = CLI::Range(std::size_t{1}, Corvid::MultiCommunicator::kMaxConnections);
    app.add_option(
           "--max-per-address", maxPerAddress_,
           client ? "Limit of servers found at one address"
                  : "Limit of connected clients per address")
        ->type_name("N")
        ->check(range)
        ->capture_default_str();
    if (client) {
        app.add_option("--max-servers", maxServers_, "Limit of servers found in total")
            ->type_name("N")
            ->check(range)
            ->capture_default_str();
    }
}

void NetworkOptions::limit(Corvid::MultiServer& server) const {
    server.setMaxPerAddress(maxPerAddress_);
}

void NetworkOptions::limit(Corvid::MultiClient& client) const {
    client.setMaxPerAddress(maxPerAddress_);
    client.setMaxFoundServers(maxServers_);
}

void NetworkOptions::limitClients(const Orvel::World& world) const {
    for (const Orvel::ClientBackend* client : clientsOf(world)) {
        limit(client->multiClient());
    }
}

void NetworkOptions::declareKey(CLI::App& app, bool server) {
    keyOption_ =
        app.add_option(
               "--key", key_,
               server ? "Let in only clients with a key of this file, which \"orvel key\" makes "
                        "(default: the file that ORVEL_KEY names; without one, this "
                        "machine only)"
                      : "Use only servers that have the first key of this file, over "
                        "sealed connections (default: the file that ORVEL_KEY names; "
                        "without one, only servers without keys)")
            ->type_name("FILE");
}

void NetworkOptions::declareOpen(CLI::App& app, const std::string& description) {
    app.add_flag("--open", open_, description);
    app.add_flag(
        "--no-announce", silent_,
        "With --open: do not announce this on the network (DNS-SD, by the Avahi daemon)");
}

void NetworkOptions::announce(
    Announcement& announcement, const std::string& type, std::uint16_t port,
    const std::vector<std::string>& texts) const {
    if (!interfacesGiven()) {
        announce(announcement, type, "0.0.0.0", port, texts);
    }
    for (const auto& [address, name] : chosenInterfaces()) {
        if (interfacesGiven()) {
            announce(announcement, type, address.text(), port, texts);
        }
    }
}

void NetworkOptions::announce(
    Announcement& announcement, const std::string& type, const std::string& address,
    std::uint16_t port, const std::vector<std::string>& texts) const {
    if (open_ && key_.empty() && !silent_) {
        announcement.add({type, address, port, texts});
    }
}

bool NetworkOptions::excludesThisMachine() const {
    const auto chosen = chosenInterfaces();
    return interfacesGiven() && std::none_of(chosen.begin(), chosen.end(), [](const auto& one) {
               return isThisMachine(one.first);
           });
}

bool NetworkOptions::checkKey() {
    const char* usual = std::getenv("ORVEL_KEY"); // NOLINT(concurrency-mt-unsafe)
    if (keyOption_->count() == 0 && !open_ && usual != nullptr) {
        key_ = usual;
    }
    if (std::ifstream file(key_); keyOption_->count() == 0 && file && (file >> std::ws).eof()) {
        key_.clear(); // a service without a key: the file is empty or blank
    }
    if (key_.empty()) {
        return true;
    }
    Corvid::Keys keys;
    std::string problem = keys.load(key_);
    if (problem.empty() && keys.all().empty()) {
        problem = key_ + ": it has no keys; add one: orvel key grant " + key_ + " NAME";
    }
    if (!problem.empty()) {
        report(problem);
    }
    return problem.empty();
}

CLI::Validator NetworkOptions::portValidator() {
    return {checkPort, "", "port"};
}

void NetworkOptions::declareInterface(CLI::App& app) {
    app.add_option(
           "--interface", interfaces_,
           "Use only the interface with this name or address; may be given several times (default: "
           "all)")
        ->type_name("NAME|ADDR")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->check(CLI::Validator(checkInterface, "", "interface"));
}

void NetworkOptions::restrictInterfaces() const {
    const auto own = ownInterfaces();
    std::vector<InetAddress> addresses;
    std::vector<std::string> names;
    for (const std::string& text : interfaces_) {
        Corvid::Multicast::readInterface(text, addresses, names);
        const auto isIt = [&](const auto& interface) { return isCalled(interface, text); };
        if (std::none_of(own.begin(), own.end(), isIt)) {
            std::string known;
            for (const auto& [other, name] : own) {
                known += (known.empty() ? "" : ", ") + other.text() + " (" + name + ")";
            }
            report(
                "--interface " + text +
                ": no interface that is up has this name or address; it will be used once it comes "
                "up. Available: " +
                (known.empty() ? "none" : known));
        }
    }
    Corvid::Multicast::setDefaultInterfaces(std::move(addresses), std::move(names));
}

std::vector<std::pair<InetAddress, std::string>> NetworkOptions::chosenInterfaces() const {
    auto interfaces = ownInterfaces();
    std::erase_if(interfaces, [this](const auto& interface) {
        return interfacesGiven() &&
               std::none_of(interfaces_.begin(), interfaces_.end(), [&](const std::string& text) {
                   return isCalled(interface, text);
               });
    });
    return interfaces;
}

void NetworkOptions::apply(Corvid::Multicast& multicast) const {
    if (!group_.empty()) {
        multicast.setAddress(InetAddress::getByAddress(group_));
    }
    multicast.setPort(static_cast<std::uint16_t>(port_));
    multicast.setTtl(ttl_);
}

bool isThisMachine(const Corvid::InetAddress& address) {
    constexpr std::uint32_t kLoopback = 127;
    return address.isValid() && address.bits() >> 24U == kLoopback;
}

std::string checkHostAndPort(const std::string& text) {
    const auto colon = text.rfind(':');
    const bool good = colon != std::string::npos && colon != 0 && text.find(':') == colon &&
                      checkPort(text.substr(colon + 1)).empty();
    return good ? "" : "expected HOST:PORT, such as studio:40123, found \"" + text + "\"";
}

std::pair<std::string, std::uint16_t> hostAndPort(const std::string& text) {
    const auto colon = text.rfind(':');
    return {text.substr(0, colon), static_cast<std::uint16_t>(std::stoi(text.substr(colon + 1)))};
}

std::vector<Orvel::ClientBackend*> clientsOf(const Orvel::World& world) {
    std::vector<Orvel::ClientBackend*> clients;
    for (Orvel::Backend* backend : world.backends()) {
        // The one kind whose connections the tool configures; a state would not do.
        if (auto* client = dynamic_cast<Orvel::ClientBackend*>(backend)) {
            clients.push_back(client);
        }
    }
    return clients;
}

} // namespace OrvelTool

#pragma once

#include "support/RawSocket.h"

#include <Corvid/MultiClient.h>
#include <Corvid/MultiServer.h>

#include <algorithm>
#include <arpa/inet.h>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <span>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

/// Sends a frame with a number; `size` is its total size.
inline bool sendNumber(Corvid::Sender& sender, std::uint32_t number, std::uint32_t size = 12) {
    std::vector<std::byte> frame(size);
    const std::uint32_t length = size - 4;
    std::memcpy(frame.data(), &length, sizeof length);
    std::memcpy(frame.data() + 8, &number, sizeof number);
    return sender.sendFrame(frame.data(), frame.size());
}

/// A multi-client or multi-server that records its events. Polled by the test's thread.
template <class Base>
class Noting : public Base {
public:
    Noting() : Base(2) {
        this->setDiagnostic([this](auto, const std::string& line) { lines.push_back(line); });
    }
    ~Noting() override { this->close(); }

    bool addCommunicator(Corvid::Communicator* communicator) override {
        newest = communicator;
        return Base::addCommunicator(communicator) && (!onAdd || onAdd(communicator));
    }
    void take(Corvid::Communicator* communicator) {
        std::span<const std::byte> frame;
        if (communicator->receiveFrame(frame)) {
            std::uint32_t number = 0;
            std::memcpy(&number, frame.data() + 8, sizeof number);
            numbers.push_back(number);
            if (onFrame) {
                onFrame(communicator, frame);
            }
        } else {
            ++lost;
            EXPECT_TRUE(this->removeCommunicator(communicator));
            delete communicator;
        }
    }
    void poll() {
        int count = 0;
        while (this->communicatorsAvail(count) && count > 0) {
            Corvid::Communicator* communicator = nullptr;
            ASSERT_TRUE(this->receiveCommunicator(communicator));
            take(communicator);
        }
    }
    std::size_t connections() const { return this->counters().connections.size(); }
    bool hasLine(const std::string& part) const {
        return std::ranges::any_of(
            lines, [&](const auto& line) { return line.find(part) != std::string::npos; });
    }

    std::function<bool(Corvid::Communicator*)> onAdd;
    std::function<void(Corvid::Communicator*, std::span<const std::byte>)> onFrame;
    Corvid::Communicator* newest = nullptr;
    std::vector<std::uint32_t> numbers;
    std::vector<std::string> lines;
    int lost = 0;
};
using Client = Noting<Corvid::MultiClient>;
using Server = Noting<Corvid::MultiServer>;

/// Polls all until the condition holds. Returns false after a deadline.
template <class... Peers>
bool until(const std::function<bool()>& condition, Peers&... peers) {
    return Orvel::Test::until(condition, [&] { (peers.poll(), ...); });
}

/// The greeting of a client with this version and instance.
inline std::string greeting(char version = 2, std::uint16_t instance = 'i') {
    std::string bytes = "ORVELNET" + std::string{version} + std::string(11, '\0') + "\x05" + '\0';
    std::memcpy(&bytes[12], &instance, sizeof instance);
    return bytes;
}

/// A UDP socket that sends to the group on the loopback interface, from this address.
inline int groupSocket(std::uint32_t address, std::uint16_t port) {
    const int descriptor = ::socket(AF_INET, SOCK_DGRAM, 0);
    const sockaddr_in own = Orvel::Test::loopback(port, address);
    const ip_mreq group = {
        {::inet_addr(Corvid::Multicast::kDefaultAddress)}, Orvel::Test::loopback(0).sin_addr};
    const int yes = 1;
    ::setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    ::setsockopt(descriptor, IPPROTO_IP, IP_MULTICAST_IF, &group.imr_interface, 4);
    ::setsockopt(descriptor, IPPROTO_IP, IP_ADD_MEMBERSHIP, &group, sizeof group);
    EXPECT_EQ(::bind(descriptor, reinterpret_cast<const sockaddr*>(&own), sizeof own), 0);
    return descriptor;
}

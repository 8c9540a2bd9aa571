#pragma once

#include <Corvid/Loop.h>
#include <Corvid/MultiServer.h>
#include <Corvid/Multicast.h>
#include <Corvid/Socket.h>
#include <Corvid/detail/net/Discovery.h>
#include <Corvid/detail/net/Hub.h>
#include <Vessa/Mutex.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Corvid::detail {

/// Accepts clients and answers their searches. Confined to the loop thread after listen() unless
/// stated otherwise.
class Listener : public Hub::Role {
public:
    using Clock = Loop::Clock;

    Listener(Hub& hub, const Multicast& multicast);

    /// Returns the reason if it cannot listen; otherwise empty.
    std::string listen(const std::string& host, std::uint16_t port, bool announce);
    [[nodiscard]] std::uint16_t port() const { return port_; }
    /// Call it before the loop first runs.
    void setAdmission(MultiServer::Admission admission) { admission_ = std::move(admission); }
    void setKeys(const std::shared_ptr<Keyring>& ring) override;
    /// See MultiServer::measureClock().
    void measure(
        const std::shared_ptr<Connection>& client, const Communicator::ClockOffer& offer,
        std::function<void(std::uint32_t number)> ask);
    /// Synchronised.
    [[nodiscard]] std::vector<Multicast::UsedInterface> interfaces() const ORVEL_EXCLUDES(mutex_);

    Clock::time_point serve(Clock::time_point now) override;
    bool accept(Connection& connection) override;
    void lost(Connection& connection) override;
    void stop() override;
    [[nodiscard]] std::uint64_t datagramsIgnored() const override { return discovery_.ignored(); }

private:
    void acceptClients();
    /// Whether the settings allow a connection; otherwise sends a refusal.
    bool admit(Socket& socket, const Multicast::Settings& settings);
    void refresh(Clock::time_point now) ORVEL_EXCLUDES(mutex_);
    void answer(const Discovery::Arrival& query);
    Clock::time_point askForClocks(Clock::time_point now);
    void takeClock(const Discovery::ClockArrival& arrival);
    [[nodiscard]] DiscoveryDatagram
    datagram(DiscoveryDatagram::Kind kind, std::uint32_t nonce) const;

    Hub& hub_;
    const Multicast& multicast_;
    Socket socket_;
    Loop::Watch watch_;
    Clock::time_point acceptAgain_ = Clock::time_point::max(); // while nothing can be accepted
    Clock::time_point refreshAgain_ = Clock::time_point::max();
    Discovery discovery_;
    MultiServer::Admission admission_;                // empty: all
    std::vector<std::weak_ptr<Connection>> measured_; // clients with a probe
    std::atomic<std::uint16_t> port_ = 0;
    const Clock::time_point begin_ = Clock::now();
    bool announce_ = false;
    bool reportedFull_ = false;
    mutable Vessa::Mutex mutex_;
    std::vector<Multicast::UsedInterface> interfaces_ ORVEL_GUARDED_BY(mutex_);
};

} // namespace Corvid::detail

#pragma once

#include <Corvid/MultiServer.h>
#include <Corvid/Multicast.h>
#include <Corvid/detail/net/Discovery.h>
#include <Corvid/detail/net/Hub.h>

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace Corvid::detail {

/// Accepts clients and answers those that search. Confined to the loop thread after listen().
class Listener : public Hub::Role {
public:
    Listener(Hub& hub, const Multicast& multicast);

    /// Nothing if it listens now, else why not.
    std::string listen(const std::string& host, std::uint16_t port, bool announce);
    [[nodiscard]] std::uint16_t port() const { return port_; }
    /// Before the first turn.
    void setAdmission(MultiServer::Admission admission) { admission_ = std::move(admission); }
    /// Synchronised.
    [[nodiscard]] std::vector<Multicast::UsedInterface> interfaces() const;

    void turn() override;
    bool accept(Connection& connection) override;
    void lost(Connection& connection) override;
    void stop() override;
    [[nodiscard]] std::uint64_t datagramsIgnored() const override { return discovery_.ignored(); }

private:
    void waitForClients();
    void acceptClients();
    /// Whether the settings allow a connection; one that they do not is told so.
    bool admit(boost::asio::ip::tcp::socket& socket, const Multicast::Settings& settings);
    void waitToRefresh();
    void refresh();
    void answer(const Discovery::Arrival& query);
    [[nodiscard]] DiscoveryDatagram
    datagram(DiscoveryDatagram::Kind kind, std::uint32_t nonce) const;

    Hub& hub_;
    const Multicast& multicast_;
    boost::asio::ip::tcp::acceptor acceptor_;
    boost::asio::steady_timer refreshTimer_;
    boost::asio::steady_timer acceptTimer_;
    Discovery discovery_;
    MultiServer::Admission admission_; // empty: all
    std::atomic<std::uint16_t> port_ = 0;
    const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
    bool announce_ = false;
    bool toldFull_ = false;
    mutable std::mutex mutex_; // guards the rest
    std::vector<Multicast::UsedInterface> interfaces_;
};

} // namespace Corvid::detail

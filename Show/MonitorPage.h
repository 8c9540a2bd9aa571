#pragma once

#include <Orvel/World.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <orvel_show_export.h>

namespace Show {

/// Shows a world to browsers and programs over HTTP, as it moves: a page, JSON and metrics
/// (docs/monitor.md). It is a back end of the kind "monitor" in that world, and everything happens
/// inside World::update(), in short pieces. There is no password: anyone who can reach the port can
/// see the page.
///
/// The world must outlive it. Deleting the world's back ends closes the page too. Confined to the
/// world's thread. Throws only std::bad_alloc.
class ORVEL_SHOW_EXPORT MonitorPage {
public:
    static constexpr std::uint16_t kDefaultPort = 33790;

    /// Where to listen.
    struct Settings {
        std::string address = "127.0.0.1"; ///< an address or name of this machine; 0.0.0.0: all
        /// 0: a free port; empty: kDefaultPort, or a free port if that is in use.
        std::optional<std::uint16_t> port;
        /// Host names that browsers may use besides this machine's.
        std::vector<std::string> hostNames;
    };

    /// Registers the kind "monitor", for World::addBackend() and for lists of kinds.
    static void registerKind();

    /// Opens the page. Check isOpen() afterwards. It shows the names of sounds that are set later.
    explicit MonitorPage(Orvel::World& world);
    MonitorPage(Orvel::World& world, const Settings& settings);
    MonitorPage(const MonitorPage&) = delete;
    MonitorPage& operator=(const MonitorPage&) = delete;
    ~MonitorPage();

    /// Whether it is open. If not, error() reports it, and the log has the reason.
    [[nodiscard]] bool isOpen() const;
    [[nodiscard]] std::string error() const;
    /// Its URL, such as "http://127.0.0.1:33790/"; empty if it is not open.
    [[nodiscard]] std::string url() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace Show

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
/// inside World::update(), in short pieces. There is no password: whoever reaches it can look.
///
/// The world must outlive it. Deleting the world's back ends ends the page too. Confined to the
/// world's thread. Nothing is thrown but std::bad_alloc.
class ORVEL_SHOW_EXPORT MonitorPage {
public:
    /// Where to listen.
    struct Settings {
        std::string address = "127.0.0.1"; ///< an address or name of this machine; 0.0.0.0: all
        /// 0: a free one; none: 33790, or a free one if that is taken.
        std::optional<std::uint16_t> port;
        /// Host names by which browsers may call it besides this machine's.
        std::vector<std::string> hostNames;
    };

    /// Makes the kind "monitor" known, for World::addBackend() and for lists of kinds.
    static void registerKind();

    /// Opens the page. Look at isOpen() next. Names of sounds show if it is there before they are
    /// given to their sources.
    explicit MonitorPage(Orvel::World& world);
    MonitorPage(Orvel::World& world, const Settings& settings);
    MonitorPage(const MonitorPage&) = delete;
    MonitorPage& operator=(const MonitorPage&) = delete;
    ~MonitorPage();

    /// Whether it can be reached. If not, error() says so, and a line of the log why.
    [[nodiscard]] bool isOpen() const;
    [[nodiscard]] std::string error() const;
    /// Where a browser finds it, such as "http://127.0.0.1:33790/"; empty if it is not open.
    [[nodiscard]] std::string url() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace Show

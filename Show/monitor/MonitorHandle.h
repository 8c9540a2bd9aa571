#pragma once

#include <Orvel/World.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Show {

class MonitorBackend;

/// Opens a monitor in a world and closes it, unless the world's owner has deleted it with the other
/// back ends. The world must outlive it. Confined to the world's thread.
class MonitorHandle {
public:
    /// As MonitorPage::Settings.
    MonitorHandle(
        Orvel::World& world, std::string address, std::optional<std::uint16_t> port,
        const std::vector<std::string>& hostNames);
    MonitorHandle(const MonitorHandle&) = delete;
    MonitorHandle& operator=(const MonitorHandle&) = delete;
    ~MonitorHandle();

    /// Null if it is deleted, or if its address cannot be one.
    [[nodiscard]] MonitorBackend* backend() const;
    [[nodiscard]] bool isOpen() const;
    /// Why `name`, such as "monitor", is not open; empty if it is.
    [[nodiscard]] std::string error(const char* name) const;
    /// Empty if it is not open.
    [[nodiscard]] std::string url() const;

private:
    Orvel::World& world_;
    const std::string address_;
    MonitorBackend* const backend_;
};

} // namespace Show

#pragma once

#include <Corvid/ProtocolHTTP.h>
#include <Orvel/SilentBackend.h>

#include <cstdint>
#include <memory>

#include <orvel_export.h>

namespace Corvid {
class PolledWebServer;
}

namespace Orvel {

/// Shows in a browser who runs the process, where, and how much its world holds: the kind "web". It
/// renders nothing.
///
/// It serves clients of this machine, at a port that the system chooses and that a log line tells.
/// Pages are made inside update(), on the thread that updates the world. When no port can be had,
/// that is logged, and the back end does nothing. Confined to its world's thread.
class ORVEL_EXPORT WebBackend : public SilentBackend {
public:
    WebBackend(World& world, const char* params);
    /// A copy has no web server; its update() must not be called.
    WebBackend(const WebBackend& other);
    WebBackend& operator=(const WebBackend&) = delete;
    ~WebBackend() override;

    /// Serves what requests are pending, without waiting. Always true.
    bool update() override;
    BackendType* type() override;

    /// The page "/index.html".
    void createIndexPage(
        const Corvid::ProtocolHTTP::Request& request, Corvid::ProtocolHTTP::Reply& reply);

    /// The server, owned by the back end, for pages of the host's own; null in a copy.
    [[nodiscard]] Corvid::PolledWebServer* webServer() const noexcept { return webServer_.get(); }

    static Backend* createMethod(World& world, const char* params);
    static BackendType _type;

private:
    static const char _stylePage[739];

    std::unique_ptr<Corvid::PolledWebServer> webServer_;
    [[maybe_unused]] std::int32_t unused_ = 0; // part of the class's layout; nothing needs it
};

} // namespace Orvel

#pragma once

#include <Corvid/ProtocolHTTP.h>
#include <Orvel/Backend.h>
#include <Orvel/BackendType.h>

#include <cstdint>
#include <memory>

#include <orvel_export.h>

namespace Corvid {
class PolledWebServer;
}

namespace Orvel {

/// Serves a status page to browsers: the process's user, host and system, and the number of parts
/// in its world. The kind "web". Renders nothing.
///
/// It serves clients of this machine, at a port that is chosen by the system and logged. Pages are
/// made inside update(), on the thread that updates the world. If no port is available, that is
/// logged, and the back end does nothing. Confined to its world's thread.
class ORVEL_EXPORT WebBackend : public Backend {
public:
    WebBackend(World& world, const char* params);
    /// A copy has no web server; do not call update() on it.
    WebBackend(const WebBackend& other);
    WebBackend& operator=(const WebBackend&) = delete;
    ~WebBackend() override;

    /// Serves pending requests, without waiting. Always true.
    bool update() override;
    BackendType* type() override;
    /// The page and its server.
    [[nodiscard]] BackendState state() const override;

    // The page is made from the world when it is requested.
    void resetBackend() override {}
    void setEnabled() override {}
    void setListenerTransform() override {}
    void createSource(Source& /*source*/) override {}
    void destroySource(Source& /*source*/) override {}
    void setSourceData(Source& /*source*/) override {}
    void setSourceParam(Source& /*source*/) override {}
    void setSourceState(Source& /*source*/) override {}
    void createEmitter(Emitter& /*emitter*/) override {}
    void destroyEmitter(Emitter& /*emitter*/) override {}
    void setEmitterTransform(Emitter& /*emitter*/) override {}
    void setEmitterHull(Emitter& /*emitter*/) override {}
    void setEmitterParam(Emitter& /*emitter*/) override {}
    void setEmitterConnection(Emitter& /*emitter*/) override {}
    void setEmitterState(Emitter& /*emitter*/) override {}

    /// The page "/index.html".
    void createIndexPage(
        const Corvid::ProtocolHTTP::Request& request, Corvid::ProtocolHTTP::Reply& reply);

    /// The server, owned by the back end, for the host's own pages; null in a copy.
    [[nodiscard]] Corvid::PolledWebServer* webServer() const noexcept { return webServer_.get(); }

    static Backend* createMethod(World& world, const char* params);
    static BackendType _type;

private:
    static const char _stylePage[739];

    std::unique_ptr<Corvid::PolledWebServer> webServer_;
    [[maybe_unused]] std::int32_t unused_ = 0; // part of the class's layout; unused
};

} // namespace Orvel

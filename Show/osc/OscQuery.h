#pragma once

#include <Show/osc/OscScene.h>

#include <Corvid/Loop.h>
#include <Corvid/PolledWebServer.h>

#include <memory>
#include <string>

namespace Show {

/// Describes the paths of a scene as JSON over HTTP, after the OSCQuery proposal: the tree below a
/// path, one attribute of it (`?VALUE`), or the host (`?HOST_INFO`). The scene must outlive it.
/// Confined to the world's thread.
class OscQuery {
public:
    /// `oscPort`: where the scene receives messages, at the same address.
    OscQuery(OscScene& scene, std::string address, unsigned short oscPort);
    OscQuery(const OscQuery&) = delete;
    OscQuery& operator=(const OscQuery&) = delete;

    /// Returns an error message, or an empty text.
    std::string open(unsigned short port, std::shared_ptr<Corvid::Loop> loop);
    [[nodiscard]] unsigned short port() const { return server_.port(); }
    /// When serve() is due.
    [[nodiscard]] Corvid::Loop::Clock::time_point next() const { return server_.nextUpdate(); }
    /// Answers requests, without waiting.
    void serve() { server_.update(); }

private:
    class Page;

    Corvid::PolledWebServer server_;
    const std::string address_;
};

} // namespace Show

#pragma once

#include "network/EventTap.h"
#include "player/Session.h"
#include "player/Stage.h"

#include <chrono>
#include <string>

namespace OrvelTool {

/// The server of `orvel serve`: clients drive it, and what they play are the sources of a scene
/// file; Session has the rules.
///
/// The scene and the messages must outlive it. Confined to one thread at a time, on which it is
/// polled.
class SoundServer : public StageOn<Orvel::Server> {
public:
    /// Listens at that TCP port; 0 lets the system choose.
    SoundServer(const LoadedScene& bank, LibraryMessages& messages, unsigned short port);

    /// Fetches what sources name by URL, once and for all. False, with a message for each, if
    /// something cannot be had.
    bool fetch() { return session_.fetch(); }
    /// Creates the sources; back ends are best added before.
    void fill() { session_.fill(); }
    /// Has everything that arrives told; null ends that. The tap must outlive its use.
    void setTap(EventTap* tap) { tap_ = tap; }
    /// Applies what has arrived, for about `atMost`, however much there is.
    void serve(std::chrono::steady_clock::duration atMost);
    /// Applies an event as if a client of that name had sent it; false if it makes no sense.
    bool apply(Orvel::CommandEvent& event, const std::string& client);
    /// Destroys the emitters that a client has made which is gone now, by its "address:port".
    void forget(const std::string& client);
    /// The sources that clients want and that are not here, since the last call, in one sentence;
    /// empty if there are none.
    std::string takeMissing();

    /// As a client wants it: everything goes, and the sources come again.
    void resetWorld() override;

protected:
    bool interceptEvent(Corvid::Event& event, Corvid::Communicator& from) override;

private:
    std::string path_; // of the scene
    Session session_;
    EventTap* tap_ = nullptr; // not owned
    std::chrono::steady_clock::time_point sliceEnd_;
    unsigned events_ = 0;
};

} // namespace OrvelTool

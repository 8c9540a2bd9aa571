#pragma once

#include "player/Stage.h"
#include "scene/SceneSources.h"

#include <Corvid/URLImpl.h>

#include <chrono>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace OrvelTool {

/// The server of `orvel serve`: clients drive it, and what they play are the sources of a scene
/// file, by id. They are there from the start, and again after each reset; one that comes in the
/// scene's timeline, or that a client has destroyed, comes when a client wants it. What a client
/// has made goes with it.
///
/// The scene and the messages must outlive it. Confined to one thread at a time, on which it is
/// polled.
class SoundServer : public StageOn<Orvel::Server> {
public:
    /// Listens at that TCP port; 0 lets the system choose.
    SoundServer(const LoadedScene& bank, LibraryMessages& messages, unsigned short port);

    /// Fetches what sources name by URL, once and for all. False, with a message for each, if
    /// something cannot be had.
    bool fetch();
    /// Creates the sources; back ends are best added before.
    void fill();
    /// Applies what has arrived, for about `atMost`, however much there is.
    void serve(std::chrono::steady_clock::duration atMost);
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
    /// Makes a source if the bank has it; false if there is none.
    bool provide(int id);
    void give(Orvel::Source& source, const Sound& sound) const;

    const LoadedScene& bank_;
    std::map<int, const SourceSpec*> specs_; // by id, the timeline's included
    std::map<std::string, std::unique_ptr<Corvid::URLImpl::File>> files_; // by URL
    std::map<int, std::string> makers_; // the clients that have made the emitters, by id
    std::set<int> missing_;
    std::vector<int> newMissing_;
    std::chrono::steady_clock::time_point sliceEnd_;
    unsigned events_ = 0;
};

} // namespace OrvelTool

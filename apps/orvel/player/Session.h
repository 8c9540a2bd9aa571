#pragma once

#include "scene/LoadedScene.h"
#include "scene/SceneSources.h"

#include <Corvid/URLImpl.h>
#include <Orvel/CommandEvent.h>

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace OrvelTool {

/// What the clients of a sound server may do with its world: they play the sources of a scene file,
/// by id. Those are there from the start, and again after each reset; one that comes in the scene's
/// timeline, or that a client has destroyed, comes when a client wants it. What a client has made
/// goes with it.
///
/// The world and the scene must outlive it. Confined to the world's thread.
class Session {
public:
    Session(Orvel::World& world, const LoadedScene& bank);

    /// Fetches what sources name by URL, once and for all. False, with a message for each, if
    /// something cannot be had; a source of that stays silent.
    bool fetch();
    /// Creates the sources that are there from the start.
    void fill();
    /// To be called when the world is emptied: nobody has made anything.
    void forgetAll() { makers_.clear(); }

    /// Sees each event before it is applied to the world; true if it is dealt with. `client` gives
    /// a name by which forget() knows who has sent it.
    bool intercept(const Corvid::Event& event, const std::function<std::string()>& client);
    /// Destroys the emitters that a client has made, and enables the world if it has disabled it.
    void forget(const std::string& client);
    /// The ids of the sources that clients want and that are not here, since the last call, as a
    /// list for people; empty if there are none.
    std::string takeMissing();

private:
    /// Makes a source if the bank has it; false if there is none.
    bool provide(int id);
    void give(Orvel::Source& source, const Sound& sound) const;

    Orvel::World& world_;
    const LoadedScene& bank_;
    std::map<int, const SourceSpec*> specs_; // by id, the timeline's included
    std::map<std::string, std::unique_ptr<Corvid::URLImpl::File>> files_; // by URL
    std::map<int, std::string> makers_; // the clients that have made the emitters, by id
    std::string disabledBy_;            // the client that has disabled the world; empty if none
    std::set<int> missing_;
    std::vector<int> newMissing_;
};

} // namespace OrvelTool

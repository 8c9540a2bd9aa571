#pragma once

#include <Show/scene/LoadedScene.h>
#include <Show/scene/SceneSources.h>

#include <Corvid/URLImpl.h>
#include <Orvel/CommandEvent.h>

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Show {

/// The rules by which the clients of a sound server change its world. They play the sources of a
/// scene file, by id. Those are there from the start; one that comes in the scene's timeline comes
/// when a client wants it. A reset, or destroying a source, puts sources back to how they were at
/// first, without making them again: their sounds may be long. Emitters go with the client that has
/// made them, and with the next client's reset, but for those of this process's own input, which
/// clients cannot change.
///
/// The world and the scene must outlive it. Confined to the world's thread.
class Session {
public:
    /// The name, instead of a client's, of what this process itself takes for the scene.
    static constexpr const char* kLocalInput = "OSC";
    /// The most labels of one emitter, and the most bytes of all of them together.
    static constexpr std::size_t kMaxLabels = 64;
    static constexpr std::size_t kMaxLabelBytes = 4096;
    /// Ids of emitters are 16-bit numbers on the wire, so this bounds how many a client can make.
    static constexpr int kMinEmitterId = 1;
    /// Refusals that are reported, each emitter's once.
    static constexpr std::size_t kMaxReportedRefusals = 100;

    Session(Orvel::World& world, const LoadedScene& bank);

    /// Fetches what sources name by URL, once and for all. Gives a problem for each that cannot be
    /// fetched; a source of that stays silent.
    std::vector<Problem> fetch();
    /// Creates the sources that are there from the start.
    void fill();
    /// To be called when the world is emptied: nobody has made anything.
    void forgetAll();

    /// Sees each event before it is applied to the world; true if it is dealt with. `client` gives
    /// a name by which forget() knows who has sent it. `local`: it is kLocalInput.
    bool intercept(
        const Orvel::CommandEvent& event, const std::function<std::string()>& client, bool local);
    /// Undoes what stays of a client that has gone: its emitters, and that it has disabled the
    /// world.
    void forget(const std::string& client);
    /// The ids of the sources that clients want and that are not here, since the last call, as a
    /// list for people; empty if there are none.
    std::string takeMissing();
    /// Which emitters of clients were refused and why, since the last call, a sentence each.
    std::vector<std::string> takeRefusals() { return std::exchange(newRefusals_, {}); }

private:
    /// Makes a source if the bank has it; false if there is none.
    bool provide(int id);
    void give(Orvel::Source& source, const Sound& sound) const;
    void reset(const std::string& client);
    /// Puts a source back to how it was at first, unless local input uses it.
    void restore(Orvel::Source& source);
    void restoreEnabled();
    /// Whether an emitter may be created; if not, why not.
    [[nodiscard]] const char* whyRefused(const Orvel::CommandEvent& event) const;
    void refuse(int id, const char* reason);
    /// Whether an id is not a client's to change.
    [[nodiscard]] bool isRefused(int id) const;

    Orvel::World& world_;
    const LoadedScene& bank_;
    std::map<int, const SourceSpec*> specs_; // by id, the timeline's included
    std::map<std::string, std::unique_ptr<Corvid::URLImpl::File>> files_; // by URL
    std::map<int, std::string> makers_; // the clients that have made the emitters, by id
    std::set<int> local_;               // emitters of local input
    std::set<int> refused_;             // emitters that clients wanted since the last reset
    bool fresh_ = true;                 // no client has done anything since the last reset
    std::string disabledBy_;            // the client that has disabled the world; empty if none
    std::set<int> missing_;
    std::vector<int> newMissing_;
    std::set<std::pair<int, const char*>> reported_;
    std::vector<std::string> newRefusals_;
};

} // namespace Show

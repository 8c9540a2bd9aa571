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

/// The rules by which clients of a sound server change its world. They play the sources of a scene
/// file, by id. Those exist from the start; a source of the scene's timeline is created when a
/// client creates it. A reset, or destroying a source, restores the initial state of sources
/// without recreating them, because loading their sounds may take long. Emitters are removed with
/// their client, and at the next client's reset, except those of the local input, which clients
/// cannot change.
///
/// The world and the scene must outlive it. Confined to the world's thread.
class Session {
public:
    /// The name of the local input, in place of a client's name.
    static constexpr const char* kLocalInput = "OSC";
    /// Limits on the labels of one emitter, and on their total bytes.
    static constexpr std::size_t kMaxLabels = 64;
    static constexpr std::size_t kMaxLabelBytes = 4096;
    /// Emitter ids are 16-bit numbers on the wire, so this bounds how many a client can create.
    static constexpr int kMinEmitterId = 1;
    /// Limit of reported refusals, one per emitter.
    static constexpr std::size_t kMaxReportedRefusals = 100;

    Session(
        Orvel::World& world, const LoadedScene& bank, LongFiles longFiles = LongFiles::AsNeeded);
    /// For a world with sounds from elsewhere: calls `give` where a source gets its sound.
    Session(Orvel::World& world, const LoadedScene& bank, GiveSound give);

    /// Fetches the sources with a URL, once. Returns a problem for each that cannot be fetched;
    /// such a source stays silent.
    std::vector<Problem> fetch();
    /// Creates the sources that exist from the start.
    void fill();
    /// Call it when the world is cleared.
    void forgetAll();

    /// Receives each event before it is applied to the world; returns true if it must not be
    /// applied. `client` returns the name for forget(). `local`: it is kLocalInput.
    bool intercept(
        const Orvel::CommandEvent& event, const std::function<std::string()>& client, bool local);
    /// Removes the traces of a lost client: its emitters, and its disabling of the world.
    void forget(const std::string& client);
    /// Whether an emitter is of the local input.
    [[nodiscard]] bool isLocal(int emitter) const { return local_.contains(emitter); }
    /// A client continues the scene of another: an emitter is its own from now on.
    void adopt(int emitter, const std::string& client) { makers_[emitter] = client; }
    /// Removes the emitters of clients, and restores the sources, that are not among these.
    void keepOnly(const std::set<int>& emitters, const std::set<int>& sources);
    /// The ids of sources that clients asked for and that are missing, since the last call, as a
    /// list for people; empty if there are none.
    std::string takeMissing();
    /// The refused emitters of clients with the reason, since the last call, one sentence each.
    std::vector<std::string> takeRefusals() { return std::exchange(newRefusals_, {}); }

private:
    /// Creates a source from the bank. Returns false if it has none.
    bool provide(int id);
    void give(Orvel::Source& source, const Sound& sound) const;
    void reset(const std::string& client);
    /// Restores the initial state of a source, unless local input uses it.
    void restore(Orvel::Source& source);
    void restoreEnabled();
    /// The reason why an emitter may not be created, or null.
    [[nodiscard]] const char* whyRefused(const Orvel::CommandEvent& event) const;
    void refuse(int id, const char* reason);
    /// Whether clients may not change the emitter with this id.
    [[nodiscard]] bool isRefused(int id) const;

    Orvel::World& world_;
    const LoadedScene& bank_;
    LongFiles longFiles_;
    GiveSound give_;                         // empty: the bank's sounds
    std::map<int, const SourceSpec*> specs_; // by id, including the timeline's
    std::map<std::string, std::unique_ptr<Corvid::URLImpl::File>> files_; // by URL
    std::map<int, std::string> makers_; // creating client of each emitter, by id
    std::set<int> local_;               // emitters of local input
    std::set<int> refused_;             // refused emitters since the last reset
    bool fresh_ = true;                 // no client event since the last reset
    std::string disabledBy_;            // client that disabled the world; empty if none
    std::set<int> missing_;
    std::vector<int> newMissing_;
    std::set<std::pair<int, const char*>> reported_;
    std::vector<std::string> newRefusals_;
};

} // namespace Show

#include <Show/osc/CuePaths.h>

#include <Show/Playback.h>

#include <cmath>
#include <utility>

namespace Show {

namespace {

constexpr const char* kEnded = "the playback has ended";

} // namespace

CuePaths::CuePaths(const std::shared_ptr<Transport>& transport)
    : transport_(transport), playbackPaths_(playbackPaths()), cuePaths_(cuePaths()) {}

void CuePaths::cue(const std::string& name) const {
    if (const auto transport = transport_.lock()) {
        transport->cue(name);
    }
}

template <class Run>
OscEntry<Orvel::World>
CuePaths::commandEntry(const std::string& name, const char* meaning, Run run) {
    return {
        .name = name,
        .meaning = meaning,
        .counts = {0, 1},
        .take = [this, run](Orvel::World& /*world*/, OscNumbers n) -> OscExpected {
            const auto transport = transport_.lock();
            return transport == nullptr ? kEnded : isRelease(n) ? nullptr : run(*transport);
        }};
}

OscFamily<Orvel::World> CuePaths::playbackPaths() {
    using World = Orvel::World;
    return {
        "/orvel/",
        {
            commandEntry(
                "go", "Play the next cue",
                [](Transport& transport) -> OscExpected {
                    return transport.go() ? nullptr : "there is no further cue";
                }),
            commandEntry(
                "pause", "Pause the timeline and the sounds",
                [](Transport& transport) -> OscExpected {
                    transport.pause(true);
                    return nullptr;
                }),
            commandEntry(
                "play", "Go on after a pause",
                [](Transport& transport) -> OscExpected {
                    transport.pause(false);
                    return nullptr;
                }),
            {.name = "seek",
             .meaning = "Go to a time, in seconds",
             .ranges = kOscFromZero,
             .counts = {1},
             .take = [this](World& /*world*/, OscNumbers n) -> OscExpected {
                 const auto transport = transport_.lock();
                 if (transport == nullptr || n[0] < 0.0F) {
                     return transport == nullptr ? kEnded : "expected a time of at least 0";
                 }
                 transport->seek(static_cast<double>(n[0]));
                 return nullptr;
             }},
            {.name = "state",
             .meaning = "waiting, playing, paused or over",
             .counts = {},
             .read =
                 [this](World& /*world*/) {
                     const auto transport = transport_.lock();
                     return OscValues::ofText(
                         nameOf(transport == nullptr ? PlayState::Over : transport->state()));
                 },
             .sent = true,
             .echoed = true},
            {.name = "time",
             .meaning = "The time in the scene, in seconds",
             .counts = {},
             .read =
                 [this](World& /*world*/) {
                     const auto transport = transport_.lock();
                     // In tenths, so that subscribers get ten a second.
                     const double tenths =
                         transport == nullptr ? 0.0 : std::floor(transport->position() * 10.0);
                     return OscValues::floats({static_cast<float>(tenths / 10.0)});
                 },
             .sent = true,
             .echoed = true},
            // The last, as the cues are below it.
            {.name = "cue",
             .meaning = "The present cue; play a cue",
             .counts = {},
             .read =
                 [this](World& /*world*/) {
                     const auto transport = transport_.lock();
                     const Cue* cue = transport == nullptr ? nullptr : transport->current();
                     return OscValues::ofText(cue == nullptr ? "" : cue->name);
                 },
             .sent = true,
             .write = [this](World& /*world*/, const std::string& name) -> OscExpected {
                 const auto transport = transport_.lock();
                 return transport == nullptr   ? kEnded
                        : transport->cue(name) ? nullptr
                                               : "there is no such cue";
             },
             .echoed = true},
        }};
}

OscFamily<Orvel::World> CuePaths::cuePaths() {
    OscFamily<Orvel::World> family{"/orvel/cue/", {}};
    for (const Cue& cue : transport_.lock()->cues()) {
        family.entries.push_back(commandEntry(
            cue.name, "Play this cue", [name = cue.name](Transport& transport) -> OscExpected {
                transport.cue(name);
                return nullptr;
            }));
    }
    return family;
}

} // namespace Show

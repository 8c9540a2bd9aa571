#pragma once

#include <Orvel/Backend.h>
#include <Orvel/BackendType.h>
#include <Orvel/Emitter.h>
#include <Orvel/OwningWorld.h>
#include <Orvel/Source.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace Orvel::Test {

/// A world that leaves nothing behind.
using TidyWorld = OwningWorld<>;

/// Records its calls: the operation and the id of the part, as "setEmitterState 3". Owned by its
/// world; not a registered kind.
class RecordingBackend : public Backend {
public:
    explicit RecordingBackend(World& world, const char* params = "") : Backend(world, params) {}

    /// Called after each operation has been recorded.
    std::function<void(const std::string& call)> onCall;

    /// The operations since the last take() or the construction.
    std::vector<std::string> take() { return std::exchange(calls_, {}); }

    void resetBackend() override { note("resetBackend"); }
    void setEnabled() override { note("setEnabled"); }
    void setListenerTransform() override { note("setListenerTransform"); }
    void createSource(Source& source) override { note("createSource", source); }
    void destroySource(Source& source) override { note("destroySource", source); }
    void setSourceData(Source& source) override { note("setSourceData", source); }
    void setSourceParam(Source& source) override { note("setSourceParam", source); }
    void setSourceState(Source& source) override { note("setSourceState", source); }
    void createEmitter(Emitter& emitter) override { note("createEmitter", emitter); }
    void destroyEmitter(Emitter& emitter) override { note("destroyEmitter", emitter); }
    void setEmitterTransform(Emitter& emitter) override { note("setEmitterTransform", emitter); }
    void setEmitterHull(Emitter& emitter) override { note("setEmitterHull", emitter); }
    void setEmitterParam(Emitter& emitter) override { note("setEmitterParam", emitter); }
    void setEmitterConnection(Emitter& emitter) override { note("setEmitterConnection", emitter); }
    void setEmitterState(Emitter& emitter) override { note("setEmitterState", emitter); }
    bool update() override {
        note("update");
        return false;
    }
    BackendType* type() override { return nullptr; }

private:
    void note(const char* operation, const WorldPart& part) {
        note(operation + (' ' + std::to_string(part.id())));
    }
    void note(std::string call) {
        calls_.push_back(std::move(call));
        if (onCall) {
            onCall(std::string(calls_.back()));
        }
    }

    std::vector<std::string> calls_;
};

using Calls = std::vector<std::string>;

} // namespace Orvel::Test

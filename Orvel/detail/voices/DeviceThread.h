#pragma once

#include <Orvel/BackendState.h>
#include <Orvel/Diagnostic.h>
#include <Orvel/FrameClock.h>
#include <Orvel/detail/voices/VoiceEngine.h>
#include <Orvel/detail/voices/VoiceOutput.h>
#include <Orvel/detail/voices/Worker.h>
#include <Vessa/Mutex.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Orvel::detail {

/// The engine with all that its threads share. The holder of the mutex may use the engine.
struct SharedEngine {
    using Device = BackendState::Device;

    SceneChanges changes;
    Vessa::Mutex mutex;
    VoiceEngine engine ORVEL_GUARDED_BY(mutex){changes};
    Device device ORVEL_GUARDED_BY(mutex) = Device::Opening;
    std::string deviceName ORVEL_GUARDED_BY(mutex);
    FrameClock clock ORVEL_GUARDED_BY(mutex);
    std::int64_t period ORVEL_GUARDED_BY(mutex) = 0; ///< frames that the device mixes at a time
    std::vector<Diagnostic> diagnostics ORVEL_GUARDED_BY(mutex);
};

/// Runs an engine on a sound device, on a thread of its own: opens the device, has the engine work,
/// and notices when the device is lost. While there is none, the engine keeps the time of all
/// sounds and the thread tries to open one twice a second. Confined.
class DeviceThread {
public:
    struct Settings {
        VoiceOutput::Settings output;
        std::string reverb{}; ///< see VoicePool::Settings
        float wet = 1.0F;
    };

    /// Starts. Throws std::system_error if there is no thread left.
    DeviceThread(const std::shared_ptr<SharedEngine>& engine, const Settings& settings);

private:
    Worker worker_;
};

} // namespace Orvel::detail

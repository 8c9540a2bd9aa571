#include <Orvel/detail/voices/OpenALSettings.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <unistd.h>

namespace Orvel::detail {

namespace {

constexpr const char* kSettingsVariable = "ALSOFT_CONF";
/// The periods that the device queues, OpenAL Soft's minimum.
constexpr unsigned kQueuedPeriods = 2;
/// A change waits for the engine and for the next period, together for about a period, and is then
/// queued.
constexpr unsigned kPeriodsOfLatency = kQueuedPeriods + 1;
/// OpenAL Soft's limits.
constexpr unsigned kMinPeriod = 64;
constexpr unsigned kMaxPeriod = 8192;

/// A layout as the setting "channels" names it.
std::string channelsOf(const OutputLayout& layout) {
    std::string name = layout.isBinaural ? "stereo" : layout.name;
    if (const std::size_t point = name.find('.'); point != std::string::npos) {
        name = "surround" + name.erase(point, 1);
    }
    return name;
}

} // namespace

unsigned OpenALSettings::periodFor(unsigned latency, unsigned rate) {
    return std::clamp(latency * rate / (1000 * kPeriodsOfLatency), kMinPeriod, kMaxPeriod);
}

OpenALSettings::OpenALSettings(unsigned latency, unsigned rate, const OutputLayout* layout) {
    std::error_code error;
    path_ = (std::filesystem::temp_directory_path(error) / "orvel-XXXXXX").string();
    const int descriptor = mkstemp(path_.data());
    if (descriptor < 0) {
        path_.clear();
        return;
    }
    close(descriptor);
    std::ofstream settings(path_, std::ios::binary);
    // NOLINTBEGIN(concurrency-mt-unsafe): see the class
    if (const char* former = std::getenv(kSettingsVariable)) {
        former_ = former;
        std::ifstream users(former, std::ios::binary);
        settings << std::string(std::istreambuf_iterator<char>(users), {});
    }
    settings << "\n[general]\n";
    if (latency > 0) {
        settings << "period_size = " << periodFor(latency, rate) << "\nperiods = " << kQueuedPeriods
                 << '\n';
    }
    if (layout != nullptr) {
        settings << "channels = " << channelsOf(*layout) << '\n';
    }
    setenv(kSettingsVariable, path_.c_str(), 1);
    // NOLINTEND(concurrency-mt-unsafe)
}

OpenALSettings::~OpenALSettings() {
    if (path_.empty()) {
        return;
    }
    // NOLINTBEGIN(concurrency-mt-unsafe): see the class
    if (former_) {
        setenv(kSettingsVariable, former_->c_str(), 1);
    } else {
        unsetenv(kSettingsVariable);
    }
    // NOLINTEND(concurrency-mt-unsafe)
    std::error_code error;
    std::filesystem::remove(path_, error);
}

} // namespace Orvel::detail

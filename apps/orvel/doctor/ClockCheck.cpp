#include "doctor/ClockCheck.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <sys/timex.h>

namespace OrvelTool {

namespace {

/// A larger error of the system's clock, in seconds, is heard between loudspeakers.
constexpr double kMaxClockError = 0.001;

/// The running programs that set clocks, of those known.
std::set<std::string> runningTimekeepers() {
    // The system keeps the first 15 characters.
    static const std::set<std::string> kNames{"chronyd", "ntpd",    "openntpd",
                                              "ptp4l",   "phc2sys", "systemd-timesyn"};
    std::set<std::string> found;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
        std::ifstream file(entry.path() / "comm");
        std::string name;
        if (std::getline(file, name) && kNames.contains(name)) {
            found.insert(name);
        }
    }
    return found;
}

/// The output of a fixed command; empty if it fails.
std::string outputOf(const char* command) {
    struct Close {
        void operator()(std::FILE* pipe) const { ::pclose(pipe); }
    };
    const std::unique_ptr<std::FILE, Close> pipe(::popen(command, "r"));
    std::string text;
    std::array<char, 1024> part{};
    while (pipe != nullptr && std::fgets(part.data(), part.size(), pipe.get()) != nullptr) {
        text += part.data();
    }
    return text;
}

/// A field of a line with commas; empty if there is none.
std::string clockField(const std::string& line, int index) {
    std::istringstream fields(line);
    std::string field;
    for (int i = 0; i <= index; ++i) {
        if (!std::getline(fields, field, ',')) {
            return {};
        }
    }
    return field;
}

std::string microseconds(double seconds) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f µs", seconds * 1e6);
    return text.data();
}

/// Chrony's state; empty if it does not answer.
std::string chronyState(CheckResult& result) {
    constexpr int kServer = 1, kOffset = 4, kRootDelay = 10, kRootDispersion = 11;
    const std::string line = outputOf("timeout 2 chronyc -c -n tracking 2>/dev/null");
    const std::string offset = clockField(line, kOffset);
    if (offset.empty()) {
        return {};
    }
    const double seconds = std::strtod(offset.c_str(), nullptr);
    const double bound = std::strtod(clockField(line, kRootDelay).c_str(), nullptr) / 2.0 +
                         std::strtod(clockField(line, kRootDispersion).c_str(), nullptr);
    result.values.emplace_back("chronyOffsetMs", seconds * 1e3);
    result.values.emplace_back("chronyBoundMs", bound * 1e3);
    return "; chrony follows " + clockField(line, kServer) + ", " + microseconds(seconds) +
           " off, right to within " + microseconds(bound);
}

/// The state of linuxptp; empty if it does not answer.
std::string ptpState(CheckResult& result) {
    const std::string text = outputOf("timeout 2 pmc -u -b 0 'GET TIME_STATUS_NP' 2>/dev/null");
    const auto at = text.find("master_offset");
    if (at == std::string::npos) {
        return {};
    }
    const double seconds =
        std::strtod(text.c_str() + at + std::string_view("master_offset").size(), nullptr) * 1e-9;
    result.values.emplace_back("ptpOffsetMs", seconds * 1e3);
    std::istringstream lines(text);
    bool isPresent = false;
    for (std::string name, value; lines >> name;) {
        isPresent = isPresent || (name == "gmPresent" && lines >> value && value == "true");
    }
    return "; PTP follows " + std::string(isPresent ? "a grandmaster" : "no grandmaster") + ", " +
           microseconds(seconds) + " off";
}

} // namespace

CheckResult checkClock() {
    CheckResult result;
    result.check = "clock";
    timex state = {};
    const int found = ::adjtimex(&state); // only reads it
    const bool isKept = found >= 0 && found != TIME_ERROR && (state.status & STA_UNSYNC) == 0;
    const double error = static_cast<double>(state.maxerror) * 1e-6;
    const std::set<std::string> programs = runningTimekeepers();
    std::string names;
    for (const std::string& name : programs) {
        names += (names.empty() ? "" : ", ") + name;
    }
    result.text =
        isKept ? "the system's clock is synchronised" : "the system's clock is not synchronised";
    result.text += names.empty() ? "" : " (by " + names + ")";
    if (isKept) {
        result.text += ", to within " + microseconds(error);
        result.values.emplace_back("maxErrorMs", error * 1e3);
    }
    if (programs.contains("chronyd")) {
        result.text += chronyState(result);
    }
    if (programs.contains("ptp4l")) {
        result.text += ptpState(result);
    }
    if (!isKept || error > kMaxClockError) {
        result.advice = "only of importance with clock=system, which needs PTP or chrony within "
                        "1 ms; by default servers measure the player's clock themselves";
    }
    return result;
}

} // namespace OrvelTool

#pragma once

#include <Config/Param.h>
#include <Corvid/Multicast.h>
#include <Orvel/detail/Report.h>

#include <array>

namespace Orvel::detail {

using Config::Param;

/// The parameters of the library's kinds: the one place that names them, their ranges and their
/// defaults.
inline constexpr std::array kClientParams{
    Param{
        "transferData", Param::Type::Flag, "yes",
        "whether the creation of a source may carry its sound file along"},
    Param{
        "deferred", Param::Type::Flag, "no", "serve new servers and reports on the host's thread"},
    Param{"followEnabled", Param::Type::Flag, "no", "enable and disable servers with the world"},
    Param{"newestOnly", Param::Type::Flag, "no", "send a server that lags only the newest values"},
    Param{"key", Param::Type::Text, "", "key file, for servers with keys; empty: for open ones"},
    Param{
        "latency", Param::Type::Number, "0",
        "servers apply changes so many milliseconds after they happen, all at the same time; 0: on "
        "arrival",
        0, 10000},
    Param{
        "clock", Param::Type::Text, "measured",
        "with a latency: \"measured\", or \"system\" where PTP or NTP keeps the machines' clocks "
        "together"},
    Param{"servers", Param::Type::List, "", "HOST:PORT of servers that multicast does not reach"},
    Param{"only", Param::Type::List, "", "ids or names of the servers to drive; empty for all"},
    Param{"interfaces", Param::Type::List, "", "interfaces to search on; empty for all"},
    Param{
        "group", Param::Type::Text, Corvid::Multicast::kDefaultAddress,
        "multicast group of the search"},
    Param{"port", Param::Type::Number, "33780", "UDP port of the search", 1, 65535},
    Param{"ttl", Param::Type::Number, "1", "TTL of the search; 0 stays on this machine", 0, 255}};
inline constexpr std::array kPlayParams{
    Param{"command", Param::Type::Text, "", "start of the composed command line"}};
inline constexpr std::array kLoopbackParams{
    Param{"rate", Param::Type::Number, "44100", "sample rate in hertz", 8000, 192000},
    // OpenAL Soft's default; it provides fewer only because of its settings.
    Param{"sources", Param::Type::Number, "256", "emitters that can sound at once", 256, 65536}};

inline constexpr std::array kVoicesParams{
    Param{"voices", Param::Type::Number, "128", "emitters that are mixed at once", 1, 1024},
    Param{"device", Param::Type::Text, "", "name of the sound device; empty for the default one"},
    Param{
        "latency", Param::Type::Number, "0",
        "asks the device for this time in milliseconds from a change until it is heard; 0: the "
        "device's own",
        0, 1000},
    Param{"offline", Param::Type::Flag, "no", "frames are pulled by the program; no device"},
    Param{
        "rate", Param::Type::Number, "44100",
        "sample rate in hertz; without it, a device keeps its own", 8000, 192000},
    Param{
        "keepChannels", Param::Type::Flag, "yes",
        "sounds of several channels keep them and are not placed; no: mixed to one and placed"},
    Param{
        "streamFrom", Param::Type::Number, "10",
        "longer sounds are read while they play, in seconds", 1, 86400},
    Param{
        "output", Param::Type::Text, "",
        "stereo, headphones, mono, quad, 5.1, 6.1 or 7.1; empty for OpenAL's settings, offline for "
        "stereo"},
    Param{"hrtf", Param::Type::Text, "", "data set for headphones; empty for the usual one"},
    Param{
        "doppler", Param::Type::Real, "0", "factor on velocities in the Doppler effect; 0: none", 0,
        100},
    Param{"reverb", Param::Type::Text, "", "preset of the reverberation; empty for none"},
    Param{"wet", Param::Type::Real, "1", "linear gain of the reverberation", 0, 1},
    Param{
        "value", Param::Type::Text, "",
        "occlusion: an emitter's value from 0 to 1 closes a low-pass filter; empty: unused"}};

/// Reads a back end's parameters; unusable values are reported under `name`, the kind's, which must
/// outlive the reader.
inline Config::ParamReader
readParams(const Config::ParamBag& bag, std::span<const Param> table, const char* name) {
    return {bag, table, [name](const Param& param, const std::string& sentence) {
                ORVEL_REPORT(
                    Warning, about(Diagnostic::Code::Parameter, {}, param.name), "%s: %s\n", name,
                    sentence.c_str());
            }};
}

} // namespace Orvel::detail

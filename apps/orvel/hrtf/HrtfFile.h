#pragma once

#include <string>

namespace OrvelTool {

/// Converts a SOFA file with impulse responses of a head (AES69) to the format of OpenAL's data
/// sets, for one sample rate in Hz. Throws std::runtime_error with the reason if the file cannot be
/// read or has no such data.
///
/// The responses are taken at directions about 5 degrees apart, interpolated where the file has
/// none. Each one begins at its first arrival and has 128 samples; its delay is stored beside it,
/// in whole samples.
std::string convertSofa(const std::string& path, unsigned rate);

} // namespace OrvelTool

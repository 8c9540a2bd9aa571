#pragma once

#include <nlohmann/json_fwd.hpp>

#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace OrvelTool {

/// What one check has found, and what to do about it.
struct Finding {
    enum class Verdict { Ok, Warning, Problem };

    std::string check; ///< what was looked at, such as "multicast lo"
    Verdict verdict = Verdict::Ok;
    std::string text;                                   ///< what was found
    std::string advice;                                 ///< what to do; may be empty if all is well
    std::vector<std::pair<std::string, double>> values; ///< what was measured, with units in names
};

using Findings = std::vector<Finding>;

/// The worst verdict of all.
Finding::Verdict worst(const Findings& findings);
/// Writes a line per finding, and the advice below it.
void writeFindings(std::ostream& out, const Findings& findings);
/// The same as JSON, see docs/doctor.md.
nlohmann::ordered_json toJson(const Findings& findings);

} // namespace OrvelTool

#pragma once

#include <nlohmann/json_fwd.hpp>

#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace OrvelTool {

/// The result of one check, with a suggestion.
struct Finding {
    enum class Verdict { Ok, Warning, Problem };

    std::string check; ///< the subject, such as "multicast lo"
    Verdict verdict = Verdict::Ok;
    std::string text;   ///< the result, for people
    std::string advice; ///< suggested fix; may be empty if the verdict is Ok
    std::vector<std::pair<std::string, double>> values; ///< measurements; names include the unit
};

using Findings = std::vector<Finding>;

/// The worst verdict; Ok if there are no findings.
Finding::Verdict worst(const Findings& findings);
/// Writes one line per finding, with the advice below it.
void writeFindings(std::ostream& out, const Findings& findings);
/// The findings as JSON; see docs/doctor.md.
nlohmann::ordered_json toJson(const Findings& findings);

} // namespace OrvelTool

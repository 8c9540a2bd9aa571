#pragma once

#include <nlohmann/json_fwd.hpp>

#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace OrvelTool {

/// The result of one check, with a suggestion.
struct CheckResult {
    enum class Verdict { Ok, Warning, Problem };

    std::string check; ///< the subject, such as "multicast lo"
    Verdict verdict = Verdict::Ok;
    std::string text;   ///< the result, for people
    std::string advice; ///< suggested fix; may be empty if the verdict is Ok
    std::vector<std::pair<std::string, double>> values; ///< measurements; names include the unit
};

using CheckResults = std::vector<CheckResult>;

/// The worst verdict; Ok if there are no results.
CheckResult::Verdict worst(const CheckResults& results);
/// Writes one line per result, with the advice below it.
void writeResults(std::ostream& out, const CheckResults& results);
/// The results as JSON; see docs/doctor.md.
nlohmann::ordered_json toJson(const CheckResults& results);

} // namespace OrvelTool

#include "doctor/Finding.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iomanip>

namespace OrvelTool {

namespace {

const char* nameOf(Finding::Verdict verdict) {
    switch (verdict) {
    case Finding::Verdict::Ok:
        return "ok";
    case Finding::Verdict::Warning:
        return "warning";
    case Finding::Verdict::Problem:
        break;
    }
    return "problem";
}

} // namespace

Finding::Verdict worst(const Findings& findings) {
    auto result = Finding::Verdict::Ok;
    for (const Finding& finding : findings) {
        result = std::max(result, finding.verdict);
    }
    return result;
}

void writeFindings(std::ostream& out, const Findings& findings) {
    std::size_t width = 0;
    for (const Finding& finding : findings) {
        width = std::max(width, finding.check.size());
    }
    constexpr int kVerdictWidth = 9;
    for (const Finding& finding : findings) {
        out << std::left << std::setw(kVerdictWidth) << nameOf(finding.verdict)
            << std::setw(static_cast<int>(width) + 2) << finding.check << finding.text << '\n';
        if (!finding.advice.empty()) {
            out << std::string(kVerdictWidth + width + 2, ' ') << "-> " << finding.advice << '\n';
        }
    }
}

nlohmann::ordered_json toJson(const Findings& findings) {
    using Json = nlohmann::ordered_json;
    Json json;
    json["verdict"] = nameOf(worst(findings));
    json["checks"] = Json::array();
    for (const Finding& finding : findings) {
        Json entry;
        entry["check"] = finding.check;
        entry["verdict"] = nameOf(finding.verdict);
        entry["text"] = finding.text;
        entry["advice"] = finding.advice.empty() ? Json(nullptr) : Json(finding.advice);
        entry["values"] = Json::object();
        for (const auto& [name, value] : finding.values) {
            entry["values"][name] = value;
        }
        json["checks"].push_back(std::move(entry));
    }
    return json;
}

} // namespace OrvelTool

#include "doctor/CheckResult.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iomanip>

namespace OrvelTool {

namespace {

const char* nameOf(CheckResult::Verdict verdict) {
    switch (verdict) {
    case CheckResult::Verdict::Ok:
        return "ok";
    case CheckResult::Verdict::Warning:
        return "warning";
    case CheckResult::Verdict::Problem:
        break;
    }
    return "problem";
}

} // namespace

CheckResult::Verdict worst(const CheckResults& results) {
    auto verdict = CheckResult::Verdict::Ok;
    for (const CheckResult& result : results) {
        verdict = std::max(verdict, result.verdict);
    }
    return verdict;
}

void writeResults(std::ostream& out, const CheckResults& results) {
    std::size_t width = 0;
    for (const CheckResult& result : results) {
        width = std::max(width, result.check.size());
    }
    constexpr int kVerdictWidth = 9;
    for (const CheckResult& result : results) {
        out << std::left << std::setw(kVerdictWidth) << nameOf(result.verdict)
            << std::setw(static_cast<int>(width) + 2) << result.check << result.text << '\n';
        if (!result.advice.empty()) {
            out << std::string(kVerdictWidth + width + 2, ' ') << "-> " << result.advice << '\n';
        }
    }
}

nlohmann::ordered_json toJson(const CheckResults& results) {
    using Json = nlohmann::ordered_json;
    Json json;
    json["verdict"] = nameOf(worst(results));
    json["checks"] = Json::array();
    for (const CheckResult& result : results) {
        Json entry;
        entry["check"] = result.check;
        entry["verdict"] = nameOf(result.verdict);
        entry["text"] = result.text;
        entry["advice"] = result.advice.empty() ? Json(nullptr) : Json(result.advice);
        entry["values"] = Json::object();
        for (const auto& [name, value] : result.values) {
            entry["values"][name] = value;
        }
        json["checks"].push_back(std::move(entry));
    }
    return json;
}

} // namespace OrvelTool

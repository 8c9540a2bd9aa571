#include "commands/BackendOption.h"

#include "commands/Command.h"
#include "commands/Kinds.h"
#include "process/HiddenStandardError.h"
#include <Show/detail/DidYouMean.h>

#include <Config/ParamLine.h>
#include <Orvel/Backend.h>
#include <Orvel/BackendState.h>
#include <Orvel/VoicesBackend.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <optional>
#include <span>
#include <utility>

namespace OrvelTool {

namespace {

/// How long a sound device may take to open.
constexpr std::chrono::seconds kDevicePatience{5};

/// Kinds that show a scene and play nothing.
bool isForLooking(const std::string& kind) {
    return kind == "monitor" || kind == "web";
}

/// Gives access to the names of the parameters.
class NamedParams : public Config::ParamLine {
public:
    /// The first parameter name that is not among `known`, or null.
    [[nodiscard]] bool contains(const std::string& name) const { return params_.contains(name); }
    [[nodiscard]] const std::string* findUnknown(std::span<const char* const> known) const {
        for (const auto& [name, value] : params_) {
            if (std::find(known.begin(), known.end(), name) == known.end()) {
                return &name;
            }
        }
        return nullptr;
    }
};

NamedParams parsed(const std::string& line) {
    NamedParams params;
    params.setParamLine(line.c_str());
    return params;
}

std::string joined(std::span<const char* const> words) {
    std::string text;
    for (const char* word : words) {
        text += (text.empty() ? "" : ", ") + std::string(word);
    }
    return text;
}

} // namespace

void BackendOption::declare(CLI::App& app, const std::string& description) {
    app.add_option("--backend", texts_, description)
        ->type_name("KIND[:PARAMS]")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app.add_flag(
        "--web", web_, "Serve a status page to browsers on this machine, and print its address");
}

bool BackendOption::read(
    std::vector<Choice>& choices, const std::map<std::string, std::string>& refused) const {
    for (const std::string& text : texts_) {
        Choice choice;
        if (!read(text, choice, refused)) {
            return false;
        }
        if (choice.kind == "voices" && parsed(choice.params).contains("offline")) {
            report(
                "--backend " + text +
                ": \"offline\" belongs to orvel render, which plays without a device; leave it "
                "out");
            return false;
        }
        choices.push_back(std::move(choice));
    }
    return true;
}

bool BackendOption::read(
    const std::string& text, Choice& choice, const std::map<std::string, std::string>& refused) {
    const auto colon = std::min(text.find(':'), text.size());
    choice = {text.substr(0, colon), text.substr(std::min(colon + 1, text.size()))};
    if (const auto found = refused.find(choice.kind); found != refused.end()) {
        report("--backend " + text + ": " + found->second);
        return false;
    }
    if (!isKind(choice.kind)) {
        std::string fault = "--backend " + text + ": unknown kind \"" + choice.kind + '"';
        const char* before = "; expected one of: ";
        for (const std::string& kind : kinds()) {
            if (!refused.contains(kind)) {
                fault.append(std::exchange(before, ", ")).append(kind);
            }
        }
        report(fault);
        return false;
    }
    NamedParams params;
    try {
        params.setParamLine(choice.params.c_str());
    } catch (const Config::ParamLine::Exception& fault) {
        report("--backend " + text + ": in the parameters: " + fault.what());
        return false;
    }
    const std::vector<const char*> known = parameterNames(choice.kind);
    if (const std::string* unknown = params.findUnknown(known)) {
        report(
            "--backend " + text + ": unknown parameter \"" + *unknown + "\" of the kind \"" +
            choice.kind + "\"; expected one of: " + joined(known) +
            Show::didYouMean(*unknown, known));
        return false;
    }
    return true;
}

bool opensDevice(const std::string& kind) {
    return kind == "default" || kind == "openal" || kind == "voices";
}

void setUsualParams(std::vector<BackendOption::Choice>& choices, const std::string& params) {
    for (BackendOption::Choice& choice : choices) {
        if (choice.kind == "voices") {
            // The last of equal keys counts, which is the user's.
            choice.params = params + ' ' + choice.params;
        }
    }
}

bool addWeb(Orvel::World& world, Diagnostics& diagnostics) {
    const std::size_t before = diagnostics.lost();
    world.addBackend("web", "");
    diagnostics.report();
    return diagnostics.lost() == before;
}

bool addBackends(
    Orvel::World& world, Diagnostics& diagnostics,
    const std::vector<BackendOption::Choice>& choices, const std::string& advice, bool verbose) {
    if (!verbose) {
        // A device that is lost is tried again and again, and OpenAL would report each attempt. No
        // thread of OpenAL runs yet. A level that the user has set remains.
        setenv("ALSOFT_LOGLEVEL", "0", 0); // NOLINT(concurrency-mt-unsafe)
    }
    bool heard = false;
    bool seen = false;
    bool deviceMissing = false;
    for (const BackendOption::Choice& choice : choices) {
        Orvel::Backend* backend = nullptr;
        {
            std::optional<HiddenStandardError> hidden;
            if (opensDevice(choice.kind) && !verbose) {
                hidden.emplace();
            }
            backend = world.addBackend(choice.kind.c_str(), choice.params.c_str());
            if (const auto* voices = dynamic_cast<Orvel::VoicesBackend*>(backend)) {
                voices->waitForDevice(kDevicePatience);
            }
        }
        const bool working = backend != nullptr && backend->state().working;
        if (backend != nullptr && !working && !isForLooking(choice.kind)) {
            // Replaced by our own message below.
            diagnostics.drop();
            deviceMissing = true;
        } else {
            diagnostics.report();
            (isForLooking(choice.kind) ? seen : heard) |= working;
        }
    }
    if (deviceMissing) {
        report("no sound device could be opened; " + advice);
    }
    return heard || (seen && !deviceMissing);
}

} // namespace OrvelTool

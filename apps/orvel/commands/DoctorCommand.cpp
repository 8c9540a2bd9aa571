#include "commands/DoctorCommand.h"

#include "doctor/CheckResult.h"
#include "doctor/ClockCheck.h"
#include "doctor/NetworkCheck.h"
#include "doctor/SoundCheck.h"

#include <nlohmann/json.hpp>

#include <iterator>

namespace OrvelTool {

DoctorCommand::DoctorCommand(CLI::App& parent) {
    declare(
        parent, "doctor",
        "Check this machine and its network before a show, and suggest a fix for each problem");
    app().add_flag("--json", json_, "Print JSON instead of a table");
    app()
        .add_option(
            "--check-port", ports_,
            "Check that this port is free, for --tcp-port and --osc of a server; may be given "
            "several times")
        ->type_name("N")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->check(NetworkOptions::portValidator());
    network_.declare(app());
    network_.declareKey(app(), false);
    app().footer("It opens each sound device briefly without playing anything, sends one datagram "
                 "to\nthe group on each interface, and searches for servers for a second.\nThe "
                 "exit code is 1 if there is a problem. Warnings do not count.");
}

int DoctorCommand::run() {
    if (!network_.checkKey()) {
        return kFailure;
    }
    network_.restrictInterfaces();
    CheckResults results = checkSound(verbose_);
    results.push_back(checkFormats());
    results.push_back(checkDescriptors());
    results.push_back(checkClock());
    for (CheckResults more :
         {checkPorts(network_, ports_), checkMulticast(network_), checkServers(network_)}) {
        results.insert(
            results.end(), std::make_move_iterator(more.begin()),
            std::make_move_iterator(more.end()));
    }
    if (json_) {
        using Json = nlohmann::ordered_json;
        standardOutput() << toJson(results).dump(2, ' ', true, Json::error_handler_t::replace)
                         << '\n';
    } else {
        writeResults(standardOutput(), results);
    }
    return worst(results) == CheckResult::Verdict::Problem ? kFailure : kSuccess;
}

} // namespace OrvelTool

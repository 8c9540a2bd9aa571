#include "commands/CheckCommand.h"
#include "commands/Command.h"
#include "commands/DoctorCommand.h"
#include "commands/KindsCommand.h"
#include "commands/MonitorOption.h"
#include "commands/PlayCommand.h"
#include "commands/PlotCommand.h"
#include "commands/RecordCommand.h"
#include "commands/RenderCommand.h"
#include "commands/ServeCommand.h"
#include "commands/ServersCommand.h"
#include "player/Kinds.h"
#include "process/OutputFile.h"
#include "process/VisibleText.h"

#include <Orvel/Version.h>

#include <algorithm>
#include <array>
#include <exception>
#include <iostream>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

using namespace OrvelTool;

namespace {

/// What the user did wrong, and where help is.
std::string explain(const CLI::App* app, const CLI::Error& fault) {
    std::string command = "orvel";
    std::string message = fault.what();
    if (app->get_subcommands().empty()) {
        const auto words = app->remaining();
        message = words.empty() ? "no command" : "unknown command \"" + words.front() + "\"";
        std::string separator = "; expected one of: ";
        for (const CLI::App* known : app->get_subcommands({})) {
            message += separator + known->get_name();
            separator = ", ";
        }
    } else {
        command += " " + app->get_subcommands().front()->get_name();
    }
    return "orvel: " + message + "\nTry \"" + command + " --help\".\n";
}

int run(int argc, char** argv) {
    CLI::App app{"Hear scenes of placed sounds: play them, or render them to files.", "orvel"};
    app.set_help_flag("-h,--help", "Show this text");
    app.set_version_flag("--version", std::string("orvel ") + Orvel::version(), "Show the version");
    app.failure_message(explain);
    app.require_subcommand(1);
    app.footer("\"orvel COMMAND --help\" tells more. "
               "Exit codes: 0 all went well, 1 failure, 2 wrong use.");
    const std::array<std::unique_ptr<Command>, 9> commands{
        std::make_unique<RenderCommand>(app),  std::make_unique<PlayCommand>(app),
        std::make_unique<ServeCommand>(app),   std::make_unique<RecordCommand>(app),
        std::make_unique<ServersCommand>(app), std::make_unique<PlotCommand>(app),
        std::make_unique<CheckCommand>(app),   std::make_unique<KindsCommand>(app),
        std::make_unique<DoctorCommand>(app)};
    try {
        std::vector<std::string> words(argv + 1, argv + argc);
        MonitorOption::separate(words);
        std::reverse(words.begin(), words.end()); // as the parser wants them
        app.parse(std::move(words));
    } catch (const CLI::ParseError& fault) {
        return app.exit(fault) == 0 ? kSuccess : kWrongUse;
    }
    registerKinds();
    for (const auto& command : commands) {
        if (command->chosen()) {
            return command->run();
        }
    }
    return kWrongUse;
}

} // namespace

int main(int argc, char** argv) {
    // Everything that the tool prints goes through here.
    const VisibleOutput out(std::cout);
    const VisibleOutput err(std::cerr);
    int code = kFailure;
    try {
        code = run(argc, argv);
    } catch (const OutputError& fault) {
        complain(fault.what());
    } catch (const std::bad_alloc&) {
        complain("out of memory");
    } catch (const std::exception& fault) {
        complain(fault.what());
    }
    std::cout.flush();
    if (!std::cout) {
        complain("cannot write to standard output");
        return kFailure;
    }
    return code;
}

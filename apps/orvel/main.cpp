#include "commands/CheckCommand.h"
#include "commands/Command.h"
#include "commands/DoctorCommand.h"
#include "commands/HrtfCommand.h"
#include "commands/KeyCommand.h"
#include "commands/Kinds.h"
#include "commands/KindsCommand.h"
#include "commands/MonitorOption.h"
#include "commands/PlayCommand.h"
#include "commands/PlotCommand.h"
#include "commands/RecordCommand.h"
#include "commands/RenderCommand.h"
#include "commands/ServeCommand.h"
#include "commands/ServersCommand.h"
#include <Show/detail/DidYouMean.h>
#include <Show/detail/OutputFile.h>
#include <Show/detail/VisibleText.h>

#include <Orvel/Version.h>

#include <algorithm>
#include <array>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

using namespace OrvelTool;

namespace {

std::vector<std::string> namesOf(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* command : app.get_subcommands({})) {
        names.push_back(command->get_name());
    }
    return names;
}

std::string list(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : ", ") + word;
    }
    return text;
}

/// A suggestion of the nearest known words, to append to a message.
std::string suggest(const std::string& word, const std::vector<std::string>& known) {
    std::vector<const char*> texts(known.size());
    std::transform(
        known.begin(), known.end(), texts.begin(), [](const auto& text) { return text.c_str(); });
    return Show::didYouMean(word, texts);
}

/// The first unrecognised word of a command that is an option; empty if there is none.
std::string unknownOption(const CLI::App& command) {
    for (const std::string& word : command.remaining()) {
        if (word.starts_with('-') && word != "-" && word != "--") {
            return word.substr(0, word.find('='));
        }
    }
    return {};
}

/// The message for an unknown option of a command.
std::string explainOption(const CLI::App& command, const std::string& option) {
    std::vector<std::string> names;
    for (const CLI::Option* known : command.get_options()) {
        for (const std::string& name : known->get_lnames()) {
            names.push_back("--" + name);
        }
    }
    return "unknown option \"" + option + "\"" + suggest(option, names);
}

/// The message for wrong usage, with a pointer to --help.
std::string explain(const CLI::App* app, const CLI::Error& fault) {
    std::string command = "orvel";
    std::string message = fault.what();
    const auto chosen = app->get_subcommands();
    const std::string option = unknownOption(chosen.empty() ? *app : *chosen.front());
    if (!option.empty()) {
        message = explainOption(chosen.empty() ? *app : *chosen.front(), option);
        command += chosen.empty() ? "" : " " + chosen.front()->get_name();
    } else if (!chosen.empty()) {
        command += " " + chosen.front()->get_name();
    } else if (const auto words = app->remaining(); words.empty()) {
        message = "no command; expected one of: " + list(namesOf(*app));
    } else {
        const std::string& word = words.front();
        const std::string suggestion = suggest(word, namesOf(*app));
        message = "unknown command \"" + word + "\"";
        if (word.ends_with(".json") || word.ends_with(".orvelrec")) {
            message += "; to hear that file: orvel play " + word;
        } else if (!suggestion.empty()) {
            message += suggestion;
        } else {
            message += "; expected one of: " + list(namesOf(*app));
        }
    }
    return "orvel: " + message + "\nTry \"" + command + " --help\".\n";
}

int run(int argc, char** argv) {
    CLI::App app{"Play spatial sound scenes, or render them to files.", "orvel"};
    app.set_help_flag("-h,--help", "Show this text");
    app.set_version_flag(
        "-V,--version", std::string("orvel ") + Orvel::version(), "Show the version");
    app.failure_message(explain);
    app.require_subcommand(1);
    app.footer(
        "Run \"orvel help COMMAND\" for details. Exit codes: 0 success, 1 failure, 2 wrong usage.");
    const std::array<std::unique_ptr<Command>, 11> commands{
        std::make_unique<RenderCommand>(app),  std::make_unique<PlayCommand>(app),
        std::make_unique<ServeCommand>(app),   std::make_unique<RecordCommand>(app),
        std::make_unique<ServersCommand>(app), std::make_unique<PlotCommand>(app),
        std::make_unique<CheckCommand>(app),   std::make_unique<KindsCommand>(app),
        std::make_unique<DoctorCommand>(app),  std::make_unique<KeyCommand>(app),
        std::make_unique<HrtfCommand>(app)};
    try {
        std::vector<std::string> words(argv + 1, argv + argc);
        if (!words.empty() && words.front() == "help") {
            words.erase(words.begin());
            words.resize(std::min<std::size_t>(words.size(), 1));
            const auto names = namesOf(app);
            if (words.empty() || std::count(names.begin(), names.end(), words.front()) != 0) {
                words.emplace_back("--help");
            }
        }
        MonitorOption::separate(words);
        std::reverse(words.begin(), words.end()); // the parser takes them in reverse order
        app.parse(std::move(words));
    } catch (const CLI::ParseError& fault) {
        return app.exit(fault, standardOutput(), standardError()) == 0 ? kSuccess : kWrongUse;
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
    int code = kFailure;
    try {
        code = run(argc, argv);
    } catch (const Show::OutputError& fault) {
        report(fault.what());
    } catch (const std::bad_alloc&) {
        report("out of memory");
    } catch (const std::exception& fault) {
        report(fault.what());
    }
    standardOutput().flush();
    if (!standardOutput()) {
        report("cannot write to standard output");
        return kFailure;
    }
    return code;
}

#include "commands/Command.h"

#include <Orvel/Version.h>

#include <cmath>
#include <sstream>

namespace OrvelTool {

namespace {

bool readSeconds(const std::string& text, double& value) {
    return CLI::detail::lexical_cast(text, value) && std::isfinite(value) &&
           value <= Show::ShowFile::kMaxSeconds;
}

std::string expected(const char* what, const std::string& text) {
    return std::string("expected seconds ") + what + ", at most " +
           std::to_string(std::lround(Show::ShowFile::kMaxSeconds)) + ", found \"" + text + "\"";
}

std::string checkSeconds(const std::string& text) {
    double value = 0.0;
    return readSeconds(text, value) && value > 0.0 ? "" : expected("above 0", text);
}

std::string checkFrom(const std::string& text) {
    double value = 0.0;
    return readSeconds(text, value) && value >= 0.0 ? "" : expected("from 0 on", text);
}

} // namespace

void Command::declare(CLI::App& parent, const std::string& name, const std::string& description) {
    app_ = parent.add_subcommand(name, description);
    app_->set_help_flag("-h,--help", "Show this text");
    app_->set_version_flag(
        "-V,--version", std::string("orvel ") + Orvel::version(), "Show the version");
    app_->add_flag(
        "-v,--verbose", verbose_, "Show everything that the library and its devices log");
}

void Command::declareScene(const std::string& description) {
    app_->add_option("SCENE", scenePath_, description)->required();
}

void Command::declareFetch() {
    app_->add_flag(
        "--fetch", fetch_,
        "Fetch the sounds that a capture names by URL. Only for captures that you trust: this "
        "machine then sends requests to other hosts");
}

void Command::declareFrom(const std::string& description) {
    app_->add_option("--from", from_, description)
        ->type_name("S")
        ->check(CLI::Validator(checkFrom, "", "from"));
}

Show::ShowFile Command::load() const {
    Show::ShowFile file = Show::ShowFile::load(scenePath_, fetch_);
    report(file.problems());
    if (file.unfetched() != 0) {
        report(
            "to fetch the sounds of " + scenePath_ +
            ", give --fetch; only for captures that you trust");
    }
    return file;
}

std::string Command::tooLate(double end) const {
    std::ostringstream text;
    text << scenePath_ << ": --from " << from_ << " is not before its end, at " << end << " s";
    return text.str();
}

void Command::declareSeconds(const std::string& description) {
    app_->add_option("--seconds", seconds_, description)
        ->type_name("S")
        ->check(CLI::Validator(checkSeconds, "", "seconds"));
}

} // namespace OrvelTool

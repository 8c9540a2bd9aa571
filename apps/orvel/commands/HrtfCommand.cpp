#include "commands/HrtfCommand.h"

#include "hrtf/HrtfFile.h"
#include <Show/detail/OutputFile.h>

#include <Orvel/VoicesBackend.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace OrvelTool {

namespace {

/// Where OpenAL looks for the user's data sets; empty if that is unknown.
std::filesystem::path hrtfFolder() {
    // No other thread runs.
    if (const char* data = std::getenv("XDG_DATA_HOME"); // NOLINT(concurrency-mt-unsafe)
        data != nullptr && *data != '\0') {
        return std::filesystem::path(data) / "openal/hrtf";
    }
    const char* home = std::getenv("HOME"); // NOLINT(concurrency-mt-unsafe)
    return home == nullptr || *home == '\0'
               ? std::filesystem::path()
               : std::filesystem::path(home) / ".local/share/openal/hrtf";
}

bool isHrtfName(const std::string& name) {
    return !name.empty() && name.front() != '-' && std::ranges::all_of(name, [](unsigned char c) {
        return std::isalnum(c) != 0 || c == '-' || c == '_';
    });
}

} // namespace

HrtfCommand::HrtfCommand(CLI::App& parent) {
    declare(parent, "hrtf", "List the data sets for headphones, or install one from a SOFA file");
    app().add_option("FILE.sofa", sofa_, "The impulse responses of a head (AES69) to install");
    app().add_option("NAME", name_, "Its name (default: that of the file)");
    app().footer("A data set is chosen with --backend \"voices:output=headphones hrtf=NAME\".\n"
                 "A SOFA file is converted for 44100 and 48000 Hz, into the folder "
                 "~/.local/share/openal/hrtf.");
}

int HrtfCommand::run() {
    if (!sofa_.empty()) {
        return install();
    }
    // OpenAL probes the sound drivers, which may start a sound server.
    setenv("ALSOFT_DRIVERS", "null", 1); // NOLINT(concurrency-mt-unsafe)
    for (const std::string& name : Orvel::VoicesBackend::hrtfNames()) {
        standardOutput() << name << '\n';
    }
    return kSuccess;
}

int HrtfCommand::install() const {
    const std::string name = name_.empty() ? std::filesystem::path(sofa_).stem().string() : name_;
    if (!isHrtfName(name)) {
        report(
            "expected a name of letters, digits, - and _, found \"" + name +
            "\"; give one: orvel hrtf " + sofa_ + " NAME");
        return kWrongUse;
    }
    const std::filesystem::path folder = hrtfFolder();
    if (folder.empty()) {
        report("set HOME or XDG_DATA_HOME: the data set is installed below");
        return kFailure;
    }
    try {
        for (const unsigned rate : {44100U, 48000U}) {
            const std::string data = convertSofa(sofa_, rate);
            std::filesystem::create_directories(folder);
            const std::filesystem::path path =
                folder / (name + '-' + std::to_string(rate) + ".mhr");
            Show::OutputFile file(path.string());
            file.write(data);
            file.keep();
            standardOutput() << path.string() << '\n';
        }
    } catch (const std::filesystem::filesystem_error& fault) {
        report("cannot create " + folder.string() + ": " + fault.code().message());
        return kFailure;
    } catch (const Show::OutputError&) {
        throw;
    } catch (const std::runtime_error& fault) {
        report(fault.what());
        return kFailure;
    }
    standardOutput() << "use it with --backend \"voices:output=headphones hrtf=" << name << "\"\n";
    return kSuccess;
}

} // namespace OrvelTool

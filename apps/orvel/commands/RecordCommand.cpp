#include "commands/RecordCommand.h"

namespace OrvelTool {

RecordCommand::RecordCommand(CLI::App& parent) {
    declare(
        parent, "record",
        "Be a sound server that records the session: what clients do, with its time");
    app()
        .add_option(
            "OUT.orvelrec", capturePath_, "The file to record to; there must be none of that name")
        ->required();
    app()
        .add_option(
            "--max-size", maxCaptureBytes_,
            "End the recording before the file is larger: bytes, or with a unit, such as 500M or "
            "2G (default: no limit; it always ends before the disk is full)")
        ->type_name("SIZE")
        ->transform(CLI::AsSizeValue(false));
    declareOptions("(default: none, the session is only recorded)");
    app().footer("Hear it again: orvel play OUT.orvelrec, or orvel render OUT.orvelrec OUT.wav\n"
                 "The file names the sounds and does not hold them. It can be played at any moment,"
                 "\nalso when the recording was interrupted.");
}

} // namespace OrvelTool

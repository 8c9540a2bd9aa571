#include "commands/RecordCommand.h"

namespace OrvelTool {

RecordCommand::RecordCommand(CLI::App& parent) {
    declare(
        parent, "record",
        "Run a sound server that records the session: every change of its clients, with its time");
    app()
        .add_option("OUT.orvelrec", capturePath_, "The file to record to; it must not exist yet")
        ->required();
    app()
        .add_option(
            "--max-size", maxCaptureBytes_,
            "Stop the recording before the file grows beyond this size, in bytes or with a unit, "
            "such as 500M or 2G (default: no limit; it always stops before the disk is full)")
        ->type_name("SIZE")
        ->transform(CLI::AsSizeValue(false));
    declareOptions("(default: none, the session is only recorded)");
    app().footer("Play it back: orvel play OUT.orvelrec, or orvel render OUT.orvelrec OUT.wav\nThe "
                 "file refers to the sounds and does not contain them. It can be played at any "
                 "time,\neven if the recording was interrupted.");
}

} // namespace OrvelTool

#include "commands/KindsCommand.h"

#include "commands/Kinds.h"

namespace OrvelTool {

KindsCommand::KindsCommand(CLI::App& parent) {
    declare(parent, "kinds", "List the kinds of back ends, one per line");
}

int KindsCommand::run() {
    standardOutput() << describeKinds(verbose_);
    return kSuccess;
}

} // namespace OrvelTool

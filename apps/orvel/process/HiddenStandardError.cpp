#include "process/HiddenStandardError.h"

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace OrvelTool {

HiddenStandardError::HiddenStandardError() : saved_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {
    std::fflush(stderr);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (saved_ >= 0 && nowhere >= 0) {
        dup2(nowhere, STDERR_FILENO);
    }
    if (nowhere >= 0) {
        close(nowhere);
    }
}

HiddenStandardError::~HiddenStandardError() {
    if (saved_ >= 0) {
        std::fflush(stderr);
        dup2(saved_, STDERR_FILENO);
        close(saved_);
    }
}

} // namespace OrvelTool

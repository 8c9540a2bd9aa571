// Not built. clang-tidy must report it: scripts/tidy.sh checks that the checks are on.
#include <string>
#include <utility>

std::string usedAfterMove(std::string text) {
    std::string taken = std::move(text);
    return taken + text;
}

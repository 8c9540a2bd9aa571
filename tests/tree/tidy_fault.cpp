// Not built. clang-tidy must report it; scripts/tidy.sh uses it to verify that the checks are
// enabled.
#include <string>
#include <utility>

std::string usedAfterMove(std::string text) {
    std::string taken = std::move(text);
    return taken + text;
}

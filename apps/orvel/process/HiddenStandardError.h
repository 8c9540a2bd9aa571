#pragma once

namespace OrvelTool {

/// Discards what the process writes to standard error, C libraries included, for as long as it
/// lives. Sound drivers write to it without being asked.
class HiddenStandardError {
public:
    HiddenStandardError();
    HiddenStandardError(const HiddenStandardError&) = delete;
    HiddenStandardError& operator=(const HiddenStandardError&) = delete;
    ~HiddenStandardError();

private:
    int saved_;
};

} // namespace OrvelTool

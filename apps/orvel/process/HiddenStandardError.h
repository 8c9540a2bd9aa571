#pragma once

namespace OrvelTool {

/// Discards the process's standard error, including that of C libraries, during its lifetime. Sound
/// drivers write to it unasked.
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

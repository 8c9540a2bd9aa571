#pragma once

#include "commands/Command.h"

#include <string>

namespace OrvelTool {

/// `orvel key`: makes and changes key files, which say who may drive or watch a server.
class KeyCommand : public Command {
public:
    explicit KeyCommand(CLI::App& parent);
    int run() override;

private:
    int create() const;
    int grant() const;
    int revoke() const;
    int list() const;
    [[nodiscard]] bool needName() const;

    std::string action_;
    std::string path_;
    std::string name_;
    std::string right_ = "drive";
    std::string output_; // empty: standard output
};

} // namespace OrvelTool

#include "commands/KeyCommand.h"

#include <Corvid/Keys.h>

#include <unistd.h>

namespace OrvelTool {

namespace {

using Corvid::Keys;

constexpr const char* kFirstName = "owner";

int fail(const std::string& problem) {
    report(problem);
    return kFailure;
}

} // namespace

KeyCommand::KeyCommand(CLI::App& parent) {
    declare(parent, "key", "Make and change key files, which say who may drive or watch a server");
    app()
        .add_option(
            "ACTION", action_,
            "new: make a key file with a first key; grant: add a key and print the file that its "
            "machine needs; revoke: remove a key; list: show names and rights")
        ->required()
        ->check(CLI::IsMember({"new", "grant", "revoke", "list"}));
    app().add_option("FILE", path_, "The server's key file")->required();
    app().add_option("NAME", name_, "For grant and revoke: whose key");
    app()
        .add_option(
            "--right", right_,
            "For grant: drive (the default) changes the scene, watch is only informed who drives")
        ->type_name("RIGHT")
        ->check(CLI::IsMember({"drive", "watch"}));
    app()
        .add_option(
            "--output", output_,
            "For grant: write the file here, readable by you only, instead of printing it")
        ->type_name("FILE");
    app().footer(R"(To connect two machines:
orvel key new show.keys                               (once; copy the file to the other)
orvel serve --key show.keys                           (on one machine)
orvel play SCENE --backend client --key show.keys     (on the other)
A running server takes a changed file within a second and disconnects revoked keys. Anyone who can
read a key file has its keys: copy it in a safe way, such as scp or a USB stick.)");
}

bool KeyCommand::needName() const {
    const bool wanted = action_ == "grant" || action_ == "revoke";
    if (wanted == name_.empty()) {
        report(
            wanted ? "orvel key " + action_ + " " + path_ + ": add the NAME of the key"
                   : "orvel key " + action_ + " takes no NAME");
        return false;
    }
    return true;
}

int KeyCommand::run() {
    if (!needName()) {
        return kWrongUse;
    }
    if (action_ == "new") {
        return create();
    }
    if (action_ == "grant") {
        return grant();
    }
    return action_ == "revoke" ? revoke() : list();
}

int KeyCommand::create() const {
    if (const std::string problem = Keys::makeFile(path_, kFirstName); !problem.empty()) {
        const bool isThere = ::access(path_.c_str(), F_OK) == 0;
        return fail(
            problem +
            (isThere ? "; add a key with orvel key grant " + path_ + " NAME, or name another file"
                     : ""));
    }
    report(
        "made " + path_ + " with the key \"" + kFirstName + "\"; use it with --key " + path_ +
        " on servers and players");
    return kSuccess;
}

int KeyCommand::grant() const {
    Keys one;
    const std::string problem = Keys::grantIn(
        path_, name_, right_ == "watch" ? Keys::Right::Watch : Keys::Right::Drive, output_, one);
    if (!problem.empty()) {
        const bool isThere = ::access(path_.c_str(), F_OK) == 0;
        return fail(problem + (isThere ? "" : "; make it first: orvel key new " + path_));
    }
    if (output_.empty()) {
        standardOutput() << one.text();
        report(
            "this is the key file of " + name_ + ": give it to that machine only, with mode 600");
    } else {
        report("made " + output_ + " for " + name_ + "; give it to that machine only");
    }
    return kSuccess;
}

int KeyCommand::revoke() const {
    const std::string problem = Keys::revokeIn(path_, name_);
    return problem.empty() ? kSuccess : fail(problem + "; see orvel key list " + path_);
}

int KeyCommand::list() const {
    Keys keys;
    if (const std::string problem = keys.load(path_); !problem.empty()) {
        return fail(problem);
    }
    for (const Keys::Key& key : keys.all()) {
        standardOutput() << Keys::nameOf(key.right) << "  " << key.id << "  " << key.name << '\n';
    }
    return kSuccess;
}

} // namespace OrvelTool

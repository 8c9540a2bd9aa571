#include "commands/KeyCommand.h"

#include <Corvid/Keys.h>

#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <unistd.h>

namespace OrvelTool {

namespace {

using Corvid::Keys;

constexpr const char* kFirstName = "owner";

/// A key file that is being changed; others who change it wait.
class LockedKeys {
public:
    explicit LockedKeys(const std::string& path) {
        // The folder, because the file is replaced.
        const auto folder = std::filesystem::absolute(path).parent_path();
        lock_ = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (lock_ >= 0) {
            ::flock(lock_, LOCK_EX);
        }
        problem_ = keys_.load(path);
    }
    LockedKeys(const LockedKeys&) = delete;
    LockedKeys& operator=(const LockedKeys&) = delete;
    ~LockedKeys() {
        if (lock_ >= 0) {
            ::close(lock_);
        }
    }
    [[nodiscard]] Keys& keys() { return keys_; }
    [[nodiscard]] const std::string& problem() const { return problem_; }

private:
    Keys keys_;
    std::string problem_;
    int lock_ = -1;
};

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
    Keys keys;
    std::string problem = keys.grant(kFirstName, Keys::Right::Drive);
    if (problem.empty()) {
        problem = keys.save(path_, false);
    }
    if (!problem.empty()) {
        return fail(problem);
    }
    report(
        "made " + path_ + " with the key \"" + kFirstName + "\"; use it with --key " + path_ +
        " on servers and players");
    return kSuccess;
}

int KeyCommand::grant() const {
    LockedKeys file(path_);
    if (!file.problem().empty()) {
        return fail(file.problem() + "; make it first: orvel key new " + path_);
    }
    std::string problem =
        file.keys().grant(name_, right_ == "watch" ? Keys::Right::Watch : Keys::Right::Drive);
    if (!problem.empty()) {
        return fail(problem);
    }
    Keys one = file.keys();
    for (const Keys::Key& key : file.keys().all()) {
        if (key.name != name_) {
            one.revoke(key.name);
        }
    }
    // The copy first: a key that nobody has would only be in the way.
    if (!output_.empty()) {
        problem = one.save(output_, false);
    }
    if (problem.empty()) {
        problem = file.keys().save(path_, true);
    }
    if (!problem.empty()) {
        return fail(problem);
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
    LockedKeys file(path_);
    if (!file.problem().empty()) {
        return fail(file.problem());
    }
    if (!file.keys().revoke(name_)) {
        return fail(path_ + " has no key with the name " + name_ + "; see orvel key list " + path_);
    }
    const std::string problem = file.keys().save(path_, true);
    return problem.empty() ? kSuccess : fail(problem);
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

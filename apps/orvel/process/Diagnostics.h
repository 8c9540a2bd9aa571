#pragma once

#include <Show/ShowFile.h>

#include <Orvel/Diagnostic.h>

#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace OrvelTool {

/// The process's diagnostic sink during its lifetime: turns the libraries' diagnostics into
/// messages for the tool's user, "orvel: ...". With `verbose`, the log's lines are also written to
/// standard error as they come; without it only lines of the level Log, and those that are not
/// diagnostics.
///
/// One at a time. Confined to one thread; the libraries may report on others as well.
class Diagnostics {
public:
    static constexpr std::size_t kMaxMessages = 1000;

    /// `file` names the parts that messages are about.
    explicit Diagnostics(bool verbose, Show::ShowFile file = {});
    Diagnostics(const Diagnostics&) = delete;
    Diagnostics& operator=(const Diagnostics&) = delete;
    ~Diagnostics();

    /// The messages since the last call: each text once in this object's life, and at most
    /// kMaxMessages in total, because peers can cause them.
    std::vector<std::string> take();
    /// Takes the messages and writes them to standard error. Returns false if there are none.
    bool report();
    /// Whether take() has messages to look at.
    [[nodiscard]] bool pending() const;
    /// Forgets the messages since the last take().
    void drop();

    /// Number of different messages about sounds that are missing or not as in the scene.
    [[nodiscard]] std::size_t lost() const noexcept { return lost_; }

private:
    struct Message {
        std::string text;
        bool lost = false;
    };

    /// Returns false if the log shall write its own line for it too.
    bool add(const Orvel::Diagnostic& diagnostic);
    void write(Orvel::Log::Level level, std::string_view line) const;

    const bool verbose_;
    const Show::ShowFile file_;
    std::vector<Message> messages_;  // guarded by the log's lock
    std::set<std::string> reported_; // texts
    std::size_t lost_ = 0;
    const unsigned formerHeader_;
    const Orvel::Log::Level formerLevel_;
};

} // namespace OrvelTool

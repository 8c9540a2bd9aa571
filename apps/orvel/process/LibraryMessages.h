#pragma once

#include <Orvel/Log.h>

#include <set>
#include <sstream>
#include <streambuf>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace OrvelTool {

/// Takes what the library reports, on its log and on the standard error stream, for as long as it
/// lives, and makes of it messages that a user of the tool understands. Lines of the kind "log" go
/// on to standard error; with `verbose` everything does, as it comes.
///
/// One at a time. Confined to one thread; the library may report on others as well.
class LibraryMessages {
public:
    static constexpr std::size_t kMostMessages = 1000;

    explicit LibraryMessages(bool verbose);
    LibraryMessages(const LibraryMessages&) = delete;
    LibraryMessages& operator=(const LibraryMessages&) = delete;
    ~LibraryMessages();

    /// What the library is busy with, such as "source 3", from now on; it stands before messages.
    void setSubject(std::string subject);
    /// setSubject() of this object, which must outlive its use.
    auto subjectSetter() {
        return [this](std::string subject) { setSubject(std::move(subject)); };
    }

    /// The messages since the last call, each text once in this object's life, and no more than
    /// kMostMessages: strangers on the network cause some of them.
    std::vector<std::string> take();
    /// Writes them to standard error. False if there are none.
    bool tell();
    /// Whether take() would look at any.
    [[nodiscard]] bool pending() const;
    /// Forgets the messages since the last take().
    void drop();

    /// How many different messages told of something that is not heard as the scene wants it.
    [[nodiscard]] std::size_t lost() const noexcept { return lost_; }

private:
    /// Hands each line of a stream to the owner.
    class Lines : public std::streambuf {
    public:
        explicit Lines(LibraryMessages& owner) : owner_(owner) {}

    protected:
        int_type overflow(int_type character) override;

    private:
        LibraryMessages& owner_;
        std::string line_;
    };

    struct Message {
        std::string text;
        bool lost = false;
        bool wantsReason = false; ///< the next notice tells why
    };

    void onLog(Orvel::Log::Level level, std::string_view text);
    /// Takes what the network reports. False if it is something else.
    bool onNetwork(const std::string& line);
    void onLine(const std::string& line);
    void add(bool lost, const std::string& text, bool wantsReason = false);

    bool verbose_;
    const std::thread::id thread_ = std::this_thread::get_id();
    // Guarded by the log's lock, as all from here on.
    std::string subject_;     // of what thread_ reports
    std::string loading_;     // the URL that the library has last begun to load
    bool unreadable_ = false; // that it cannot be read has been told
    std::vector<Message> messages_;
    std::set<std::string> told_;
    std::size_t lost_ = 0;
    unsigned formerHeader_;
    Orvel::Log::Level formerLevel_;
    Lines lines_;
    std::streambuf* errorStream_; // what std::cerr wrote to
    std::ostream out_;            // writes there
};

/// Sends the process's standard error, C libraries included, to nowhere for as long as it lives.
/// Sound drivers write to it without being asked.
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

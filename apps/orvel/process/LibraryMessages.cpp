#include "process/LibraryMessages.h"

#include "process/Complaint.h"
#include <Show/detail/VisibleText.h>

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <initializer_list>
#include <iostream>
#include <mutex>
#include <unistd.h>
#include <utility>

namespace OrvelTool {

namespace {

constexpr std::string_view kLoading = "loading: >";
constexpr std::string_view kNoDownload = "OALBackend: Cannot download file ";
constexpr std::string_view kCannotFetch = "Cannot fetch ";
constexpr std::string_view kAlError = "OpenAL state machine error: ";
constexpr std::string_view kAlutError = "AOLError: ";
constexpr std::string_view kFormat = "Unkown sound format: ";
constexpr std::string_view kLostClient = "Orvel::Server lost client";
constexpr std::string_view kLostServer = "ClientBackend: Lost server";
constexpr std::string_view kNoDataSent = "ClientBackend::setSourceData() not implemented";
constexpr std::string_view kNoSuchSource = "Got invalid Event: SourceDurationEvent/";
constexpr std::string_view kInvalid = "Got invalid Event: ";
constexpr std::string_view kUnknownCommand = "Unkown command ID: ";
constexpr std::string_view kForeign = "Orvel::Server got Corvid::Event";

std::string_view trim(std::string_view text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) {
        text.remove_suffix(1);
    }
    return text;
}

} // namespace

LibraryMessages::LibraryMessages(bool verbose)
    : verbose_(verbose), formerHeader_(Orvel::Log::the().header()),
      formerLevel_(Orvel::Log::the().level()), lines_(*this),
      errorStream_(std::cerr.rdbuf(&lines_)), out_(errorStream_) {
    Orvel::Log& log = Orvel::Log::the();
    // The reason of a failed download is a notice.
    log.setLevel(verbose ? Orvel::Log::Level::Debug : Orvel::Log::Level::Notice);
    log.setHeader(0);
    log.setCallback([this](Orvel::Log::Level level, std::string_view text) { onLog(level, text); });
}

LibraryMessages::~LibraryMessages() {
    Orvel::Log& log = Orvel::Log::the();
    log.setCallback({});
    log.setHeader(formerHeader_);
    log.setLevel(formerLevel_);
    std::cerr.rdbuf(errorStream_);
}

void LibraryMessages::setSubject(std::string subject) {
    const std::scoped_lock lock(Orvel::Log::the());
    subject_ = std::move(subject);
}

std::vector<std::string> LibraryMessages::take() {
    const std::scoped_lock lock(Orvel::Log::the());
    std::vector<std::string> texts;
    for (Message& message : messages_) {
        if (told_.size() < kMostMessages && told_.insert(message.text).second) {
            lost_ += message.lost ? 1 : 0;
            texts.push_back(std::move(message.text));
            if (told_.size() == kMostMessages) {
                texts.emplace_back("further messages are not shown; --verbose shows all");
            }
        }
    }
    messages_.clear();
    return texts;
}

bool LibraryMessages::tell() {
    const auto texts = take();
    for (const std::string& text : texts) {
        complain(text);
    }
    return !texts.empty();
}

bool LibraryMessages::pending() const {
    const std::scoped_lock lock(Orvel::Log::the());
    return !messages_.empty();
}

void LibraryMessages::drop() {
    const std::scoped_lock lock(Orvel::Log::the());
    messages_.clear();
}

void LibraryMessages::add(bool lost, const std::string& text, bool wantsReason) {
    if (messages_.size() < kMostMessages) {
        const bool ours = !subject_.empty() && std::this_thread::get_id() == thread_;
        messages_.push_back(
            {Show::visible(ours ? subject_ + ": " + text : text), lost, wantsReason});
    }
}

bool LibraryMessages::onNetwork(const std::string& line) {
    const auto isOne = [&](std::initializer_list<std::string_view> beginnings) {
        return std::any_of(beginnings.begin(), beginnings.end(), [&](std::string_view beginning) {
            return line.starts_with(beginning);
        });
    };
    if (isOne({kLostClient, kLostServer}) ||   // comings and goings are told elsewhere
        isOne({kNoDataSent, kNoSuchSource})) { // servers have sources of their own
        return true;
    }
    if (isOne({kInvalid, kUnknownCommand, kForeign})) {
        add(false, "a peer sent what makes no sense here: " + line);
        return true;
    }
    return false;
}

void LibraryMessages::onLog(Orvel::Log::Level level, std::string_view text) {
    using Level = Orvel::Log::Level;
    const std::string line(trim(text));
    if (verbose_) {
        out_ << Orvel::Log::levelName(level) << ": " << line << std::endl;
    }
    if (level == Level::Log) {
        if (line.starts_with(kLoading)) {
            loading_ = line.substr(kLoading.size());
            if (loading_.ends_with('<')) {
                loading_.pop_back();
            }
            unreadable_ = false;
        } else if (!verbose_) {
            out_ << line << std::endl;
        }
    } else if (level == Level::Warning) {
        add(false, line);
    } else if (level == Level::Fatal) {
        if (onNetwork(line)) {
            return;
        }
        if (line.starts_with(kAlError)) {
            // It follows the line that says what failed.
            const std::string reason = "OpenAL: " + line.substr(kAlError.size());
            if (messages_.empty() || !messages_.back().lost) {
                add(true, reason);
            } else {
                messages_.back().text += " (" + reason + ")";
            }
        } else if (line.starts_with(kNoDownload)) {
            add(true, "cannot fetch " + line.substr(kNoDownload.size()), true);
        } else if (line.starts_with(kFormat)) {
            if (unreadable_) {
                return; // the consequence of what was told already
            }
            add(true, "cannot play \"" + loading_ + "\": unknown sample format " +
                          line.substr(kFormat.size()));
        } else {
            add(true, line);
        }
    } else if (
        level == Level::Notice && !messages_.empty() && messages_.back().wantsReason &&
        std::this_thread::get_id() == thread_) {
        // Most reasons name the URL again.
        const bool whole = line.starts_with(kCannotFetch);
        std::string& message = messages_.back().text;
        if (whole) {
            message.erase(message.rfind("cannot fetch "));
        }
        message += whole ? "cannot fetch " + line.substr(kCannotFetch.size()) : ": " + line;
        messages_.back().wantsReason = false;
    }
}

void LibraryMessages::onLine(const std::string& line) {
    const std::scoped_lock lock(Orvel::Log::the());
    if (line.starts_with(kAlutError)) {
        unreadable_ = true;
        add(true, "cannot play \"" + loading_ + "\": " + line.substr(kAlutError.size()));
        if (!verbose_) {
            return;
        }
    }
    out_ << line << std::endl;
}

LibraryMessages::Lines::int_type LibraryMessages::Lines::overflow(int_type character) {
    if (character == '\n') {
        owner_.onLine(std::exchange(line_, {}));
    } else if (character != traits_type::eof()) {
        line_ += traits_type::to_char_type(character);
    }
    return traits_type::not_eof(character);
}

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

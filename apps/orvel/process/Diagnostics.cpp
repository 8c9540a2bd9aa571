#include "process/Diagnostics.h"

#include "process/Output.h"
#include <Show/detail/VisibleText.h>

#include <mutex>
#include <utility>

namespace OrvelTool {

namespace {

using Code = Orvel::Diagnostic::Code;

/// Whether it is not for the user: it is normal, or is reported elsewhere.
bool isOfNoInterest(Code code) {
    switch (code) {
    case Code::LostPeer:      // PeerWatch reports peers
    case Code::SoundNotSent:  // servers have sources of their own
    case Code::UnknownSource: // the same
    case Code::Loading:
    case Code::SoundSet:
    case Code::ReceiveEnded:
        return true;
    default:
        return false;
    }
}

std::string textOf(const Orvel::Diagnostic& diagnostic) {
    switch (diagnostic.code) {
    case Code::OpenAL:
        return diagnostic.text.empty() ? "OpenAL: " + diagnostic.reason
                                       : diagnostic.text + " (OpenAL: " + diagnostic.reason + ")";
    case Code::CannotFetch:
        return "cannot fetch \"" + diagnostic.subject + "\": " + diagnostic.reason;
    case Code::CannotPlay:
        return diagnostic.subject.empty()
                   ? diagnostic.text
                   : "cannot play \"" + diagnostic.subject + "\": " + diagnostic.reason;
    case Code::InvalidEvent:
        return "invalid event from a peer: " + diagnostic.text;
    default:
        return diagnostic.text;
    }
}

} // namespace

Diagnostics::Diagnostics(bool verbose, Show::ShowFile file)
    : verbose_(verbose), file_(std::move(file)), formerHeader_(Orvel::Log::the().header()),
      formerLevel_(Orvel::Log::the().level()) {
    Orvel::Log& log = Orvel::Log::the();
    log.setLevel(verbose ? Orvel::Log::Level::Debug : Orvel::Log::Level::Warning);
    log.setHeader(0);
    log.setCallback([this](Orvel::Log::Level level, std::string_view line) { write(level, line); });
    Orvel::setDiagnosticSink([this](const Orvel::Diagnostic& one) { return add(one); });
}

Diagnostics::~Diagnostics() {
    Orvel::setDiagnosticSink({});
    Orvel::Log& log = Orvel::Log::the();
    log.setCallback({});
    log.setHeader(formerHeader_);
    log.setLevel(formerLevel_);
}

std::vector<std::string> Diagnostics::take() {
    std::vector<Message> messages;
    {
        const std::scoped_lock lock(Orvel::Log::the());
        messages.swap(messages_);
    }
    std::vector<std::string> texts;
    for (Message& message : messages) {
        if (reported_.size() < kMaxMessages && reported_.insert(message.text).second) {
            lost_ += message.lost ? 1 : 0;
            texts.push_back(std::move(message.text));
            if (reported_.size() == kMaxMessages) {
                texts.emplace_back("further messages are not shown; --verbose shows all");
            }
        }
    }
    return texts;
}

bool Diagnostics::report() {
    const auto texts = take();
    for (const std::string& text : texts) {
        OrvelTool::report(text);
    }
    return !texts.empty();
}

bool Diagnostics::pending() const {
    const std::scoped_lock lock(Orvel::Log::the());
    return !messages_.empty();
}

void Diagnostics::drop() {
    const std::scoped_lock lock(Orvel::Log::the());
    messages_.clear();
}

bool Diagnostics::add(const Orvel::Diagnostic& diagnostic) {
    using Level = Orvel::Log::Level;
    const bool isMessage = diagnostic.level == Level::Fatal || diagnostic.level == Level::Warning;
    if (isMessage && !isOfNoInterest(diagnostic.code) && messages_.size() < kMaxMessages) {
        const std::string part = file_.nameOf(diagnostic.part);
        messages_.push_back(
            {Show::visible((part.empty() ? "" : part + ": ") + textOf(diagnostic)),
             diagnostic.level == Level::Fatal && diagnostic.code != Code::InvalidEvent});
    }
    const bool isLine = diagnostic.level == Level::Log && !isOfNoInterest(diagnostic.code);
    return !verbose_ && !isLine;
}

void Diagnostics::write(Orvel::Log::Level level, std::string_view line) const {
    while (!line.empty() && (line.back() == '\n' || line.back() == ' ')) {
        line.remove_suffix(1);
    }
    standardError() << (verbose_ ? Orvel::Log::levelName(level) : "") << (verbose_ ? ": " : "")
                    << line << std::endl;
}

} // namespace OrvelTool

#include "commands/Operator.h"

#include "process/Output.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace OrvelTool {

namespace {

constexpr char kEscape = '\x1b';
constexpr std::chrono::milliseconds kDrawing{100};

/// "1:02.3".
std::string clockTime(double seconds) {
    const double tenths = std::floor(seconds * 10.0);
    char text[32];
    std::snprintf(
        text, sizeof text, "%.0f:%04.1f", std::floor(tenths / 600.0),
        std::fmod(tenths, 600.0) / 10.0);
    return text;
}

} // namespace

Operator::Operator(Show::Playback& playback, const RemoteServers& servers)
    : playback_(playback), servers_(servers) {
    if (isPresent()) {
        report("space: next cue; NAME and Enter: that cue; Enter: pause and go on; q: quit");
    }
}

Operator::~Operator() {
    showStatus("");
}

bool Operator::serve() {
    bool stays = true;
    for (const char key : keyboard_.read()) {
        stays = take(key) && stays;
        nextDrawing_ = {};
    }
    if (const auto now = Clock::now(); isPresent() && now >= nextDrawing_) {
        nextDrawing_ = now + kDrawing;
        showStatus(line());
    }
    return stays;
}

bool Operator::take(char key) {
    problem_.clear();
    if (escape_ == 1 && (key == '[' || key == 'O')) {
        escape_ = 2; // of an arrow or the like
        return true;
    }
    if (escape_ == 2) {
        escape_ = key >= '@' && key <= '~' ? 0 : 2;
        return true;
    }
    escape_ = key == kEscape ? 1 : 0;
    const auto& cues = playback_.cues();
    switch (key) {
    case kEscape:
        text_.clear();
        return true;
    case ' ':
        text_.clear();
        if (!playback_.go()) {
            problem_ = "there is no further cue";
        }
        return true;
    case '\n':
    case '\r':
        return enter();
    case '\b':
    case '\x7f':
        while (!text_.empty() && (static_cast<unsigned char>(text_.back()) & 0xC0U) == 0x80U) {
            text_.pop_back();
        }
        if (!text_.empty()) {
            text_.pop_back();
        }
        return true;
    case '\t':
        complete();
        return true;
    default:
        if (static_cast<unsigned char>(key) > ' ' && text_.size() < 64) {
            text_ += key;
        }
        return text_ != "q" || std::ranges::any_of(cues, [](const Show::Cue& cue) {
                   return cue.name.starts_with('q');
               });
    }
}

bool Operator::enter() {
    if (text_.empty()) {
        playback_.pause(playback_.state() != Show::PlayState::Paused);
        return true;
    }
    const bool quits = text_ == "q";
    if (!playback_.cue(text_)) {
        problem_ = "there is no cue \"" + text_ + "\"";
        if (quits) {
            return false;
        }
    }
    text_.clear();
    return true;
}

void Operator::complete() {
    std::string common;
    for (const Show::Cue& cue : playback_.cues()) {
        if (cue.name.starts_with(text_)) {
            const auto end = std::ranges::mismatch(common, cue.name).in1;
            common = common.empty() ? cue.name : std::string(common.begin(), end);
        }
    }
    text_ = common.empty() ? text_ : common;
}

std::string Operator::line() const {
    const Show::Cue* cue = playback_.currentCue();
    const Show::Cue* next = playback_.nextCue();
    const double end = playback_.end();
    std::string line = Show::nameOf(playback_.state());
    line += cue == nullptr ? "" : " " + cue->name;
    line += "  " + clockTime(playback_.position());
    line += std::isfinite(end) ? " of " + clockTime(end) : "";
    line += next == nullptr ? "" : "  next: " + next->name;
    if (servers_.isUsed()) {
        const std::size_t count = servers_.connected();
        line += "  " + std::to_string(count) + (count == 1 ? " server" : " servers");
    }
    line += text_.empty() ? "" : "  > " + text_;
    return line + (problem_.empty() ? "" : "  " + problem_);
}

} // namespace OrvelTool

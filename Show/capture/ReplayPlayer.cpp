#include <Show/capture/ReplayPlayer.h>

#include <Corvid/Event.h>
#include <Orvel/Diagnostic.h>
#include <Orvel/Emitter.h>
#include <Orvel/Server.h>
#include <Orvel/Source.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

namespace Show {

namespace {

double inSeconds(std::uint64_t microseconds) {
    return static_cast<double>(microseconds) / 1e6;
}

} // namespace

ReplayPlayer::ReplayPlayer(
    std::string path, std::unique_ptr<CaptureReader> reader, const LoadedScene& bank,
    Orvel::World& world, LongFiles longFiles)
    : path_(std::move(path)), reader_(std::move(reader)), world_(world),
      session_(world, bank, longFiles) {}

ReplayPlayer::ReplayPlayer(
    std::string path, std::unique_ptr<CaptureReader> reader, const LoadedScene& bank,
    Orvel::World& world, GiveSound give)
    : path_(std::move(path)), reader_(std::move(reader)), world_(world),
      session_(world, bank, std::move(give)), silent_(true) {}

void ReplayPlayer::prepare() {
    if (!silent_ && !std::exchange(fetched_, true)) {
        for (const Problem& problem : session_.fetch()) {
            warn(problem.str() + "; its sources stay silent");
        }
    }
    session_.forgetAll();
    world_.clearWorld();
    world_.setListenerTransform({}, {});
    if (!world_.enabled()) {
        world_.setEnabled(true);
    }
    session_.fill();
    clients_.clear();
    reader_->rewind();
    readNext();
}

void ReplayPlayer::start() {
    prepare();
    advance(0.0);
}

void ReplayPlayer::readNext() {
    more_ = reader_->next(next_);
    if (!more_ && reader_->damaged() && reader_->length()) {
        // A truncated file was reported when it was opened.
        warn(
            "is damaged at byte " + std::to_string(reader_->offset()) +
            "; it plays up to there, which is " + std::to_string(inSeconds(next_.time)) + " s");
    }
}

void ReplayPlayer::advance(double seconds) {
    while (more_ && inSeconds(next_.time) <= seconds) {
        apply();
        readNext();
    }
    if (const std::string missing = session_.takeMissing(); !missing.empty()) {
        warn("its clients asked for sources that the server did not have: " + missing);
    }
}

void ReplayPlayer::apply() {
    std::string& client = clients_[next_.client];
    switch (next_.kind) {
    case CaptureReader::Kind::Client:
        client.assign(reinterpret_cast<const char*>(next_.data.data()), next_.data.size());
        break;
    case CaptureReader::Kind::Lost:
        session_.forget(client);
        break;
    case CaptureReader::Kind::Event: {
        const auto length = static_cast<std::uint32_t>(next_.data.size());
        frame_.resize(sizeof length + length);
        std::memcpy(frame_.data(), &length, sizeof length);
        std::memcpy(frame_.data() + sizeof length, next_.data.data(), length);
        std::string fault;
        const std::unique_ptr<Corvid::Event> event(Corvid::Event::decode(frame_, &fault));
        if (event == nullptr) {
            warn("holds " + fault + ", which is skipped");
        } else if (auto* command = dynamic_cast<Orvel::CommandEvent*>(event.get());
                   command != nullptr &&
                   !session_.intercept(
                       *command, [&client] { return client; }, client == Session::kLocalInput)) {
            Orvel::Server::applyEvent(world_, command);
        }
        break;
    }
    }
}

double ReplayPlayer::nextChange(double /*seconds*/) const {
    return more_ ? inSeconds(next_.time) : std::numeric_limits<double>::infinity();
}

double ReplayPlayer::end() const {
    if (end_ < 0.0) {
        if (reader_->length()) {
            end_ = inSeconds(*reader_->length());
        } else {
            end_ = 0.0;
            std::string fault;
            if (const auto all = CaptureReader::open(path_, fault)) {
                for (CaptureReader::Record record; all->next(record);) {
                    end_ = inSeconds(record.time);
                }
            }
        }
    }
    return end_;
}

/// Uses the log, whose lines the commands print when it is safe.
void ReplayPlayer::warn(const std::string& text) const {
    if (silent_) {
        return;
    }
    Orvel::report({.subject = path_, .reason = text, .text = path_ + ": " + text}, "orvel");
}

} // namespace Show

#include <Show/osc/OscFeedback.h>

#include <algorithm>

namespace Show {

bool OscFeedback::add(const OscPeer& peer, Clock::time_point end) {
    const auto found =
        std::find_if(subscribers_.begin(), subscribers_.end(), [&](const auto& each) {
            return each.peer == peer;
        });
    if (found != subscribers_.end()) {
        found->end = std::max(found->end, end);
        return true;
    }
    if (subscribers_.size() >= kMaxSubscribers) {
        return false;
    }
    if (subscribers_.empty()) {
        known_.clear();
        causes_.clear();
        scene_.visit([this](OscScene::Key key, OscValues values) {
            known_.emplace(key, Known{std::move(values), round_});
        });
    }
    subscribers_.push_back({peer, end});
    return true;
}

void OscFeedback::remove(const OscPeer& peer) {
    std::erase_if(subscribers_, [&](const Subscriber& each) { return each.peer == peer; });
}

void OscFeedback::begin(const OscPeer& sender) {
    const bool subscribed =
        std::any_of(subscribers_.begin(), subscribers_.end(), [&](const Subscriber& each) {
            return each.peer == sender;
        });
    sender_ = subscribed ? std::optional(sender) : std::nullopt;
}

void OscFeedback::touch(OscScene::PartKind kind, int id) {
    if (!sender_) {
        return;
    }
    touched_.emplace_back(kind, id);
    scene_.visit(kind, id, [this](OscScene::Key key, const OscValues& values) {
        before_.try_emplace(key, values);
    });
}

void OscFeedback::end() {
    for (const auto& [kind, id] : touched_) {
        scene_.visit(kind, id, [this](OscScene::Key key, OscValues values) {
            const auto before = before_.find(key);
            if (!scene_.isEchoed(key) && (before == before_.end() || !(before->second == values))) {
                causes_.insert_or_assign(key, Cause{*sender_, std::move(values)});
            }
        });
    }
    touched_.clear();
    before_.clear();
    sender_.reset();
}

OscFeedback::Clock::time_point OscFeedback::next() const {
    return subscribers_.empty() ? Clock::time_point::max() : next_;
}

void OscFeedback::send(Clock::time_point now) {
    std::erase_if(subscribers_, [now](const Subscriber& each) { return each.end <= now; });
    if (now < next()) {
        return;
    }
    next_ = now + kPeriod;
    ++round_;
    std::vector<std::pair<OscScene::Key, OscAnswer>> changes;
    scene_.visit([&](OscScene::Key key, OscValues values) {
        const auto [known, isNew] = known_.try_emplace(key);
        if (isNew || !(known->second.values == values)) {
            changes.emplace_back(key, OscAnswer{scene_.pathOf(key), values});
            known->second.values = std::move(values);
        }
        known->second.round = round_;
    });
    std::erase_if(known_, [this](const auto& entry) { return entry.second.round != round_; });
    for (const Subscriber& subscriber : subscribers_) {
        std::vector<OscAnswer> answers;
        for (const auto& [key, answer] : changes) {
            const auto cause = causes_.find(key);
            if (cause == causes_.end() || !(cause->second.peer == subscriber.peer) ||
                !(cause->second.values == answer.values)) {
                answers.push_back(answer);
            }
        }
        send_(subscriber.peer, answers);
    }
    causes_.clear();
}

} // namespace Show

#include <Show/osc/GainFades.h>

#include <iterator>

namespace Show {

void GainFades::add(const Orvel::Emitter& emitter, float gain, Clock::duration over) {
    const auto now = Clock::now();
    fades_.insert_or_assign(
        emitter.id(), Fade{now, now + over, emitter.gain(), gain, emitter.gain()});
}

float GainFades::goal(const Orvel::Emitter& emitter) const {
    const auto fade = fades_.find(emitter.id());
    return fade != fades_.end() && fade->second.now == emitter.gain() ? fade->second.to
                                                                      : emitter.gain();
}

GainFades::Clock::time_point GainFades::next() const {
    return fades_.empty() ? Clock::time_point::max() : next_;
}

void GainFades::step(Clock::time_point now) {
    if (now < next()) {
        return;
    }
    next_ = now + kStep;
    for (auto entry = fades_.begin(); entry != fades_.end();) {
        Fade& fade = entry->second;
        const Orvel::Emitter* emitter = edits_.world().getEmitter(entry->first);
        const bool valid = emitter != nullptr && emitter->gain() == fade.now;
        if (valid) {
            const std::chrono::duration<float> passed = now - fade.begin;
            const std::chrono::duration<float> whole = fade.end - fade.begin;
            fade.now = now >= fade.end
                           ? fade.to
                           : fade.from + (fade.to - fade.from) * (passed.count() / whole.count());
            edits_.setGain(*emitter, fade.now);
        }
        entry = valid && now < fade.end ? std::next(entry) : fades_.erase(entry);
    }
}

} // namespace Show

#include <Show/server/PitchHold.h>

#include <algorithm>
#include <cmath>

namespace Show {

bool PitchHold::update(double outputLead, double frames, double deviation) {
    if (begun_) {
        error_ += outputLead - lead_ + (factor() - 1.0) * (frames - frames_);
    }
    begun_ = true;
    lead_ = outputLead;
    frames_ = frames;
    if (!std::exchange(isFar_, std::abs(error_) > kFar)) {
        farSince_ = frames;
    } else if (isFar_ && frames - farSince_ > kFarTime) {
        move_ -= std::exchange(error_, 0.0);
        isFar_ = false;
    }
    const int before = turn_;
    if (std::abs(error_) > std::max(kTolerance, deviation)) {
        turn_ = error_ > 0.0 ? -1 : 1;
    } else if (turn_ * error_ >= 0.0) {
        turn_ = 0; // it has passed the middle
    }
    return turn_ != before;
}

void PitchHold::restart() {
    begun_ = isFar_ = false;
    error_ = move_ = 0.0;
}

} // namespace Show

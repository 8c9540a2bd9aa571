#include <Show/server/PitchHold.h>

#include <cmath>

namespace Show {

bool PitchHold::update(double outputLead, double frames) {
    const double drifted = outputLead - lead_;
    if (begun_ && std::abs(drifted) < kMaxJump) {
        error_ += drifted + (factor() - 1.0) * (frames - frames_);
    }
    begun_ = true;
    lead_ = outputLead;
    frames_ = frames;
    const int before = turn_;
    if (std::abs(error_) > kTolerance) {
        turn_ = error_ > 0.0 ? -1 : 1;
    } else if (turn_ * error_ > 0.0) {
        turn_ = 0; // it has passed the middle
    }
    return turn_ != before;
}

} // namespace Show

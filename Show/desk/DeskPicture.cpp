#include <Show/desk/DeskPicture.h>

#include <string>

namespace Show {

bool DeskPicture::create(
    Corvid::WebClient* /*client*/, const Corvid::ProtocolHTTP::Request& /*request*/,
    Corvid::ProtocolHTTP::Reply& reply) {
    if (state_->transport == nullptr) {
        return false;
    }
    const double end = state_->transport->end();
    if (state_->activity == nullptr || state_->activity->end() != end) {
        // The length of a sound by URL becomes known while it plays.
        state_->activity = std::make_shared<Activity>(*state_->file.playable(), end);
    }
    reply.setHeader("Content-Type", "application/json");
    reply.setBody([file = state_->file, activity = state_->activity](std::string& more) {
        if (activity->advance()) {
            more += '\n'; // JSON may begin with any number of them
            return true;
        }
        activity->write(more);
        return false;
    });
    return true;
}

} // namespace Show

#include "network/SoundServer.h"

#include <Corvid/Communicator.h>
#include <Corvid/MultiServer.h>
#include <Orvel/CommandEvent.h>

namespace OrvelTool {

namespace {

constexpr unsigned kEventsBetweenLooks = 64; // at the clock

} // namespace

SoundServer::SoundServer(const LoadedScene& bank, LibraryMessages& messages, unsigned short port)
    : StageOn(bank.scene, messages, "", port), path_(bank.scene.path), session_(*this, bank) {}

void SoundServer::resetWorld() {
    session_.forgetAll();
    StageOn::resetWorld();
    fill();
}

void SoundServer::serve(std::chrono::steady_clock::duration atMost) {
    sliceEnd_ = std::chrono::steady_clock::now() + atMost;
    receive(false);
}

bool SoundServer::interceptEvent(Corvid::Event& event, Corvid::Communicator& from) {
    if (++events_ % kEventsBetweenLooks == 0 && std::chrono::steady_clock::now() >= sliceEnd_) {
        multiServer().breakWait(); // receive() returns before the next event
    }
    if (tap_ != nullptr) {
        tap_->received(event, from.counters().peer);
    }
    return session_.intercept(event, [&from] { return from.counters().peer; });
}

bool SoundServer::apply(Orvel::CommandEvent& event, const std::string& client) {
    if (tap_ != nullptr) {
        tap_->received(event, client);
    }
    return session_.intercept(event, [&client] { return client; }) || dispatchEvent(&event);
}

void SoundServer::forget(const std::string& client) {
    if (tap_ != nullptr) {
        tap_->lost(client);
    }
    session_.forget(client);
}

std::string SoundServer::takeMissing() {
    const std::string list = session_.takeMissing();
    if (list.empty()) {
        return {};
    }
    return "clients want sources that are not here: " + list + "; what plays them stays silent; " +
           (path_.empty() ? "start the server with --scene and a scene file that has them"
                          : "add them to " + path_);
}

} // namespace OrvelTool

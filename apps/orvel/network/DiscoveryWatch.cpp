#include "network/DiscoveryWatch.h"

#include <system_error>
#include <vector>

namespace OrvelTool {

namespace {

constexpr std::chrono::seconds kLookInterval{1};

void append(std::string& list, const std::string& text) {
    list += (list.empty() ? "" : ", ") + text;
}

} // namespace

std::string DiscoveryWatch::describe() {
    const Corvid::Multicast::Settings settings = server_.multicast().settings();
    const std::string taken = std::make_error_code(std::errc::address_in_use).message();
    std::string used;
    std::string failed;
    bool isTaken = false;
    for (const auto& interface : server_.interfaces()) {
        const std::string name =
            interface.name + (interface.name.empty() || !interface.address.isValid() ? "" : " ") +
            interface.address.text();
        if (interface.error.empty()) {
            append(used, name);
        } else {
            append(failed, name + " (" + interface.error + ")");
            isTaken = isTaken || interface.error == taken;
        }
    }
    const std::string port = std::to_string(settings.port);
    last_ = used.empty() ? "clients cannot find it"
                         : "clients find it through " + settings.address.text() + ":" + port +
                               " on " + used + (failed.empty() ? "" : ", but cannot");
    if (!failed.empty()) {
        last_ += " on " + failed;
    } else if (used.empty()) {
        last_ += ", because no interface is up";
    }
    if (isTaken) {
        last_ += "; another program has UDP port " + port +
                 " exclusively: stop it, or give this server and its clients another --port";
    }
    if (used.empty()) {
        last_ += isTaken ? "" : "; they can once an interface comes up";
        last_ += "; until then name the server: orvel play SCENE --backend client --server HOST:" +
                 std::to_string(server_.port());
    }
    return last_;
}

std::string DiscoveryWatch::look(std::chrono::steady_clock::time_point now) {
    if (now < next_) {
        return {};
    }
    next_ = now + kLookInterval;
    const std::string before = last_;
    return describe() == before ? "" : "now " + last_;
}

} // namespace OrvelTool

#include "network/Announcement.h"

#include "network/NetworkOptions.h"

#include <Corvid/InetAddress.h>
#include <Orvel/Log.h>

#include <algorithm>
#include <utility>

#ifdef ORVEL_HAS_AVAHI
#include <avahi-client/client.h>
#include <avahi-client/publish.h>
#include <avahi-common/alternative.h>
#include <avahi-common/domain.h>
#include <avahi-common/error.h>
#include <avahi-common/malloc.h>
#include <avahi-common/strlst.h>
#include <avahi-common/thread-watch.h>
#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#endif

namespace OrvelTool {

#ifdef ORVEL_HAS_AVAHI

namespace {

void logDebug(const std::string& text) {
    Orvel::Log::the().write(
        {Orvel::Log::Level::Debug, "orvel", __FILE__, __LINE__, __PRETTY_FUNCTION__},
        "Not announced by DNS-SD: %s\n", text.c_str());
}

/// The index of the interface with an address; 0 if there is none.
unsigned interfaceOf(const std::string& address) {
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        return 0;
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, &freeifaddrs);
    in_addr wanted{};
    inet_pton(AF_INET, address.c_str(), &wanted);
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_INET &&
            reinterpret_cast<const sockaddr_in*>(entry->ifa_addr)->sin_addr.s_addr ==
                wanted.s_addr) {
            return if_nametoindex(entry->ifa_name);
        }
    }
    return 0;
}

} // namespace

/// Everything but the poll itself belongs to the poll's thread, or needs its lock.
struct Announcement::State {
    State() : poll(avahi_threaded_poll_new()) {
        if (poll != nullptr) {
            connect();
            avahi_threaded_poll_start(poll);
        }
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State() {
        if (poll != nullptr) {
            avahi_threaded_poll_stop(poll);
            drop();
            avahi_threaded_poll_free(poll);
        }
    }

    void add(Service service) {
        if (poll == nullptr) {
            return;
        }
        avahi_threaded_poll_lock(poll);
        services.push_back(std::move(service));
        if (client != nullptr && avahi_client_get_state(client) == AVAHI_CLIENT_S_RUNNING) {
            publish();
        }
        avahi_threaded_poll_unlock(poll);
    }

    void connect() {
        int error = 0;
        client = avahi_client_new(
            avahi_threaded_poll_get(poll), AVAHI_CLIENT_NO_FAIL,
            [](AvahiClient* changed, AvahiClientState now, void* state) {
                static_cast<State*>(state)->clientChanged(changed, now);
            },
            this, &error);
        if (client == nullptr) {
            logDebug(avahi_strerror(error));
        }
    }

    void drop() {
        group = nullptr; // freed with the client
        if (client != nullptr) {
            avahi_client_free(std::exchange(client, nullptr));
        }
    }

    void clientChanged(AvahiClient* changed, AvahiClientState now) {
        client = changed; // this comes before avahi_client_new() has returned
        switch (now) {
        case AVAHI_CLIENT_S_RUNNING:
            if (name.empty()) {
                name = std::string("Orvel on ") + avahi_client_get_host_name(client);
                name.resize(std::min<std::size_t>(name.size(), AVAHI_LABEL_MAX - 1));
            }
            publish();
            break;
        case AVAHI_CLIENT_S_REGISTERING: // the host's name changes
        case AVAHI_CLIENT_S_COLLISION:
            if (group != nullptr) {
                avahi_entry_group_reset(group);
            }
            break;
        case AVAHI_CLIENT_CONNECTING:
            logDebug("the Avahi daemon does not run; waiting for it");
            break;
        case AVAHI_CLIENT_FAILURE:
            logDebug(avahi_strerror(avahi_client_errno(client)));
            if (avahi_client_errno(client) == AVAHI_ERR_DISCONNECTED) {
                drop();
                connect();
            }
            break;
        }
    }

    void groupChanged(AvahiEntryGroupState now) {
        if (now == AVAHI_ENTRY_GROUP_COLLISION) {
            char* next = avahi_alternative_service_name(name.c_str());
            name = next;
            avahi_free(next);
            publish();
        } else if (now == AVAHI_ENTRY_GROUP_FAILURE) {
            logDebug(avahi_strerror(avahi_client_errno(client)));
        }
    }

    /// Replaces what is announced.
    void publish() {
        if (group == nullptr) {
            group = avahi_entry_group_new(
                client,
                [](AvahiEntryGroup*, AvahiEntryGroupState now, void* state) {
                    static_cast<State*>(state)->groupChanged(now);
                },
                this);
        }
        int error = group == nullptr ? avahi_client_errno(client) : avahi_entry_group_reset(group);
        for (const Service& service : services) {
            const auto interface = service.address == "0.0.0.0"
                                       ? AVAHI_IF_UNSPEC
                                       : static_cast<AvahiIfIndex>(interfaceOf(service.address));
            if (error != 0 || interface == 0) {
                continue;
            }
            AvahiStringList* texts = nullptr;
            for (const std::string& text : service.texts) {
                texts = avahi_string_list_add(texts, text.c_str());
            }
            error = avahi_entry_group_add_service_strlst(
                group, interface, AVAHI_PROTO_INET, AvahiPublishFlags{}, name.c_str(),
                service.type.c_str(), nullptr, nullptr, service.port, texts);
            avahi_string_list_free(texts);
        }
        if (error == 0 && avahi_entry_group_is_empty(group) == 0) {
            error = avahi_entry_group_commit(group);
        }
        if (error == AVAHI_ERR_COLLISION) {
            groupChanged(AVAHI_ENTRY_GROUP_COLLISION);
        } else if (error != 0) {
            logDebug(avahi_strerror(error));
        }
    }

    AvahiThreadedPoll* const poll;
    AvahiClient* client = nullptr;
    AvahiEntryGroup* group = nullptr;
    std::string name;
    std::vector<Service> services;
};

#else

struct Announcement::State {
    void add(Service /*service*/) {}
};

#endif

Announcement::Announcement() = default;

Announcement::~Announcement() = default;

void Announcement::add(Service service) {
    if (isThisMachine(Corvid::InetAddress::getByAddress(service.address))) {
        return;
    }
    if (state_ == nullptr) {
        state_ = std::make_unique<State>();
    }
    state_->add(std::move(service));
}

} // namespace OrvelTool

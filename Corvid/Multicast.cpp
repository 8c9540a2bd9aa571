#include <Corvid/Multicast.h>

#include <algorithm>
#include <net/if.h>
#include <utility>

namespace Corvid {

namespace {

struct Defaults {
    Vessa::Mutex mutex;
    std::vector<InetAddress> interfaces ORVEL_GUARDED_BY(mutex);
    std::vector<std::string> names ORVEL_GUARDED_BY(mutex);
    std::atomic<std::uint64_t> revision = 0;
};

Defaults& defaults() {
    static Defaults instance;
    return instance;
}

} // namespace

Multicast::Multicast() {
    settings_.address = InetAddress::getByAddress(kDefaultAddress);
}

Multicast::Multicast(const Multicast& other) {
    const Vessa::Lock lock(other.mutex_);
    settings_ = other.settings_;
}

Multicast& Multicast::operator=(const Multicast& other) {
    if (this != &other) {
        Settings settings;
        {
            const Vessa::Lock lock(other.mutex_);
            settings = other.settings_;
        }
        const Vessa::Lock lock(mutex_);
        settings_ = std::move(settings);
        ++revision_;
    }
    return *this;
}

bool Multicast::setAddress(const InetAddress& address) {
    if (!address.isMulticast()) {
        report(
            (address.isValid() ? address.text() : "an invalid address") +
            " is not a multicast address (224.0.0.0 to 239.255.255.255); the group remains " +
            this->address().text());
        return false;
    }
    const Vessa::Lock lock(mutex_);
    settings_.address = address;
    ++revision_;
    return true;
}

// The thread that sets the address reads it without the lock.
const InetAddress& Multicast::address() const ORVEL_NO_THREAD_SAFETY_ANALYSIS {
    return settings_.address;
}

void Multicast::setPort(std::uint16_t port) {
    const Vessa::Lock lock(mutex_);
    settings_.port = port;
    ++revision_;
}

std::uint16_t Multicast::port() const {
    const Vessa::Lock lock(mutex_);
    return settings_.port;
}

void Multicast::report(const std::string& text) const {
    if (report_) {
        report_(text);
    }
}

void Multicast::setTtl(int ttl) {
    if (ttl < 0 || ttl > kMaxTtl) {
        report(
            "the TTL " + std::to_string(ttl) + " is not from 0 to " + std::to_string(kMaxTtl) +
            "; " + std::to_string(std::clamp(ttl, 0, kMaxTtl)) + " is used");
    }
    const Vessa::Lock lock(mutex_);
    settings_.ttl = std::clamp(ttl, 0, kMaxTtl);
    ++revision_;
}

int Multicast::ttl() const {
    const Vessa::Lock lock(mutex_);
    return settings_.ttl;
}

void Multicast::setInterfaces(std::vector<InetAddress> addresses, std::vector<std::string> names) {
    const Vessa::Lock lock(mutex_);
    settings_.interfaces = std::move(addresses);
    settings_.interfaceNames = std::move(names);
    ++revision_;
}

std::vector<InetAddress> Multicast::interfaces() const {
    const Vessa::Lock lock(mutex_);
    return settings_.interfaces;
}

void Multicast::setDefaultInterfaces(
    std::vector<InetAddress> addresses, std::vector<std::string> names) {
    Defaults& shared = defaults();
    const Vessa::Lock lock(shared.mutex);
    shared.interfaces = std::move(addresses);
    shared.names = std::move(names);
    ++shared.revision;
}

std::vector<InetAddress> Multicast::defaultInterfaces() {
    Defaults& shared = defaults();
    const Vessa::Lock lock(shared.mutex);
    return shared.interfaces;
}

bool Multicast::readInterface(
    const std::string& text, std::vector<InetAddress>& addresses, std::vector<std::string>& names) {
    const InetAddress address = InetAddress::getByAddress(text);
    if (address.isValid() && !address.isMulticast() && address.bits() != 0) {
        addresses.push_back(address);
        return true;
    }
    // The kernel's rules for names; digits and dots alone are more likely a mistyped address.
    const bool name = !text.empty() && text.size() < IF_NAMESIZE &&
                      text.find_first_of("/: \t\n") == std::string::npos &&
                      text.find_first_not_of("0123456789.") != std::string::npos;
    if (name) {
        names.push_back(text);
    }
    return name;
}

Multicast::Settings Multicast::settings() const {
    Settings copy;
    {
        const Vessa::Lock lock(mutex_);
        copy = settings_;
    }
    if (!copy.restricted()) {
        Defaults& shared = defaults();
        const Vessa::Lock lock(shared.mutex);
        copy.interfaces = shared.interfaces;
        copy.interfaceNames = shared.names;
    }
    return copy;
}

std::uint64_t Multicast::revision() const {
    return revision_ + defaults().revision;
}

} // namespace Corvid

#include <Corvid/Multicast.h>

#include <algorithm>
#include <net/if.h>
#include <utility>

namespace Corvid {

namespace {

struct Defaults {
    std::mutex mutex;
    std::vector<InetAddress> interfaces; // guarded by mutex, as is the next
    std::vector<std::string> names;
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
    const std::scoped_lock lock(other.mutex_);
    settings_ = other.settings_;
}

Multicast& Multicast::operator=(const Multicast& other) {
    if (this != &other) {
        const std::scoped_lock lock(mutex_, other.mutex_);
        settings_ = other.settings_;
        ++revision_;
    }
    return *this;
}

bool Multicast::setAddress(const InetAddress& address) {
    if (!address.isMulticast()) {
        report(
            (address.isValid() ? address.text() : "an invalid address") +
            " is no multicast address, from 224.0.0.0 to 239.255.255.255; the group stays " +
            this->address().text());
        return false;
    }
    const std::scoped_lock lock(mutex_);
    settings_.address = address;
    ++revision_;
    return true;
}

const InetAddress& Multicast::address() const {
    return settings_.address;
}

void Multicast::setPort(std::uint16_t port) {
    const std::scoped_lock lock(mutex_);
    settings_.port = port;
    ++revision_;
}

std::uint16_t Multicast::port() const {
    const std::scoped_lock lock(mutex_);
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
    const std::scoped_lock lock(mutex_);
    settings_.ttl = std::clamp(ttl, 0, kMaxTtl);
    ++revision_;
}

int Multicast::ttl() const {
    const std::scoped_lock lock(mutex_);
    return settings_.ttl;
}

void Multicast::setInterfaces(std::vector<InetAddress> addresses, std::vector<std::string> names) {
    const std::scoped_lock lock(mutex_);
    settings_.interfaces = std::move(addresses);
    settings_.interfaceNames = std::move(names);
    ++revision_;
}

std::vector<InetAddress> Multicast::interfaces() const {
    const std::scoped_lock lock(mutex_);
    return settings_.interfaces;
}

void Multicast::setDefaultInterfaces(
    std::vector<InetAddress> addresses, std::vector<std::string> names) {
    const std::scoped_lock lock(defaults().mutex);
    defaults().interfaces = std::move(addresses);
    defaults().names = std::move(names);
    ++defaults().revision;
}

std::vector<InetAddress> Multicast::defaultInterfaces() {
    const std::scoped_lock lock(defaults().mutex);
    return defaults().interfaces;
}

bool Multicast::readInterface(
    const std::string& text, std::vector<InetAddress>& addresses, std::vector<std::string>& names) {
    const InetAddress address = InetAddress::getByAddress(text);
    if (address.isValid() && !address.isMulticast() && address.bits() != 0) {
        addresses.push_back(address);
        return true;
    }
    // As the kernel takes names; one of digits and dots alone is rather a mistyped address.
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
        const std::scoped_lock lock(mutex_);
        copy = settings_;
    }
    if (!copy.restricted()) {
        const std::scoped_lock lock(defaults().mutex);
        copy.interfaces = defaults().interfaces;
        copy.interfaceNames = defaults().names;
    }
    return copy;
}

std::uint64_t Multicast::revision() const {
    return revision_ + defaults().revision;
}

} // namespace Corvid

#include <Corvid/Multicast.h>

#include <algorithm>
#include <utility>

namespace Corvid {

namespace {

struct Defaults {
    std::mutex mutex;
    std::vector<InetAddress> interfaces; // guarded by mutex
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

void Multicast::setTtl(int ttl) {
    const std::scoped_lock lock(mutex_);
    settings_.ttl = std::clamp(ttl, 0, 255);
    ++revision_;
}

int Multicast::ttl() const {
    const std::scoped_lock lock(mutex_);
    return settings_.ttl;
}

void Multicast::setInterfaces(std::vector<InetAddress> interfaces) {
    const std::scoped_lock lock(mutex_);
    settings_.interfaces = std::move(interfaces);
    ++revision_;
}

std::vector<InetAddress> Multicast::interfaces() const {
    const std::scoped_lock lock(mutex_);
    return settings_.interfaces;
}

void Multicast::setDefaultInterfaces(std::vector<InetAddress> interfaces) {
    const std::scoped_lock lock(defaults().mutex);
    defaults().interfaces = std::move(interfaces);
    ++defaults().revision;
}

std::vector<InetAddress> Multicast::defaultInterfaces() {
    const std::scoped_lock lock(defaults().mutex);
    return defaults().interfaces;
}

Multicast::Settings Multicast::settings() const {
    Settings copy;
    {
        const std::scoped_lock lock(mutex_);
        copy = settings_;
    }
    if (copy.interfaces.empty()) {
        copy.interfaces = defaultInterfaces();
    }
    return copy;
}

std::uint64_t Multicast::revision() const {
    return revision_ + defaults().revision;
}

} // namespace Corvid

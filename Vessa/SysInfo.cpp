#include <Vessa/SysInfo.h>

#include <pwd.h>
#include <sys/utsname.h>
#include <unistd.h>
#include <vector>

namespace Vessa {

namespace {

std::string userName() {
    const uid_t id = ::geteuid();
    std::vector<char> buffer(16U << 10U);
    passwd entry = {};
    passwd* found = nullptr;
    if (::getpwuid_r(id, &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) {
        return std::to_string(id);
    }
    return found->pw_name;
}

} // namespace

SysInfo::SysInfo() : user_(userName()) {
    utsname names = {};
    ::uname(&names);
    host_ = names.nodename;
    system_ = std::string(names.sysname) + ' ' + names.release + ' ' + names.machine;
}

const SysInfo& SysInfo::the() {
    static const SysInfo info;
    return info;
}

} // namespace Vessa

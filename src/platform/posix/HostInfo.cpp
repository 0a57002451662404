// HostInfo.cpp - the computer's and the user's names
//
// See HostInfo.h
#include "platform/HostInfo.h"

#include <pwd.h>
#include <unistd.h>

#include <vector>

namespace platform {

std::string ComputerName() {
    char name[256] = {};
    if (::gethostname(name, sizeof name - 1) != 0) return "";
    std::string host = name;
    return host.substr(0, host.find('.'));
}

std::string UserName() {
    long size = ::sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(size > 0 ? static_cast<size_t>(size) : 16384);
    struct passwd entry {};
    struct passwd* found = nullptr;
    if (::getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found) != 0 ||
        found == nullptr)
        return "";
    return found->pw_name;
}

}  // namespace platform

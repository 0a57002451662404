// DebugDir.cpp - the folder of the optional debug files
//
// See DebugDir.h
#include "platform/DebugDir.h"

#include <cstdlib>

namespace platform {

std::string DebugDir() {
    const char* named = std::getenv("TELMORAQ_DEBUG_DIR");
    std::string dir = named != nullptr && *named != '\0' ? named : "/var/tmp/nvdebug";
    while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
    return dir;
}

std::string DebugFile(const std::string& name) {
    const std::string dir = DebugDir();
    return dir == "/" ? "/" + name : dir + "/" + name;
}

}  // namespace platform

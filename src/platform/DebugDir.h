// DebugDir.h - the folder of the optional debug files
//
// The folder named by TELMORAQ_DEBUG_DIR, default /var/tmp/nvdebug. Its files
// (trees.log, assert.txt, Norvane.log) are written only when it exists.
//
// See also: posix/DebugDir.cpp
#pragma once

#include <string>

namespace platform {

// The folder, without a trailing separator.
std::string DebugDir();

// DebugDir() + "/" + name
std::string DebugFile(const std::string& name);

}  // namespace platform

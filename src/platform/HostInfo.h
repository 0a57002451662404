// HostInfo.h - the computer's and the user's names
//
// Diagnostics: "" when the system cannot tell.
// See also:    posix/HostInfo.cpp
#pragma once

#include <string>

namespace platform {

// The host name up to its first "." (the computer name of a Windows machine).
std::string ComputerName();

// The login name of the process's effective user.
std::string UserName();

}  // namespace platform

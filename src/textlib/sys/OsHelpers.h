// OsHelpers.h - small operating system facts for the engine
//
// Sleeping, the millisecond tick count and the host's and user's names, from
// the platform layer, under the names the engine uses.
//
// Diagnostics: a name that cannot be found leaves `out` empty.
// See also:    ../../platform/Clock.h, ../../platform/HostInfo.h
#pragma once

#include <cstdint>

namespace brelkin {

class StringBuffer;

void sleepMs(uint32_t ms);
// Milliseconds, 32 bits, wrapping after about 49.7 days.
uint32_t tickCount();
// The login name of the process's user.
void getUserName(StringBuffer& out);
// The host name up to its first ".".
void getComputerName(StringBuffer& out);

}  // namespace brelkin

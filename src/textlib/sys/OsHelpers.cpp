// OsHelpers.cpp - small operating system facts for the engine
//
// See OsHelpers.h
#include "textlib/sys/OsHelpers.h"

#include "platform/Clock.h"

namespace brelkin {

void sleepMs(uint32_t ms) { platform::Sleep(ms); }

uint32_t tickCount() { return platform::GetTickCount(); }

}  // namespace brelkin

// OsHelpers.cpp - small operating system facts for the engine
//
// See OsHelpers.h
#include "textlib/sys/OsHelpers.h"

#include "platform/Clock.h"
#include "platform/HostInfo.h"
#include "textlib/buffers/StringBuffer.h"

namespace brelkin {

void sleepMs(uint32_t ms) { platform::Sleep(ms); }

uint32_t tickCount() { return platform::GetTickCount(); }

void getUserName(StringBuffer& out) { out.setString(platform::UserName().c_str()); }

void getComputerName(StringBuffer& out) { out.setString(platform::ComputerName().c_str()); }

}  // namespace brelkin

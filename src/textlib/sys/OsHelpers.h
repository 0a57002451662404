// OsHelpers.h - small operating system facts for the engine
//
// Sleeping and the millisecond tick count, from the platform layer, under
// the names the engine uses.
//
// Diagnostics: none of these fails.
// See also:    ../../platform/Clock.h
#pragma once

#include <cstdint>

namespace brelkin {

void sleepMs(uint32_t ms);
// Milliseconds, 32 bits, wrapping after about 49.7 days.
uint32_t tickCount();

}  // namespace brelkin

// CRand.h - the C runtime's rand/srand of the Windows build
//
// The 15-bit linear congruential sequence (state * 214013 + 2531011, result
// bits 16..30), per thread, seed 1, so that a sequence drawn here is the one a
// Windows build draws.
//
// See also: posix/CRand.cpp
#pragma once

namespace platform {

void srand(unsigned seed);
int rand();  // 0..32767

}  // namespace platform

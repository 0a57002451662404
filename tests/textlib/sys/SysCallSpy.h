// SysCallSpy.h - counts the non-blocking locks the file layer asks for
//
// The test program interposes flock(2): each call is counted and passed on to
// the C library, so a test can see how many tries an open needed without a
// flag in product code.
#pragma once

#include <cstddef>

namespace syscallspy {

void reset();
// flock(2) calls that asked not to wait, since reset().
size_t nonBlockingLocks();

}  // namespace syscallspy

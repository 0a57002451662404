// SysCallSpy.h - counts the system calls the file layer makes
//
// The test program interposes write(2) and flock(2): each call is counted and
// passed on to the C library, so a test can see how many calls an operation
// needed without a flag in product code.
#pragma once

#include <cstddef>

namespace syscallspy {

// Resets both counters.
void reset();
// write(2) calls of at least `minBytes` bytes since reset().
size_t largeWrites(size_t minBytes);
// flock(2) calls that asked not to wait, since reset().
size_t nonBlockingLocks();

}  // namespace syscallspy

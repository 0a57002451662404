// RandomBytes.h - cryptographic random bytes from the system
//
// The stand-in for the system's cryptographic provider: bytes from the
// kernel's generator (getrandom), waiting for it to be seeded at boot.
//
// Diagnostics: false when the kernel gives fewer bytes than asked for (no
//              getrandom, or a signal that keeps interrupting); `out` may then
//              hold some random bytes and some untouched ones.
// See also:    posix/RandomBytes.cpp
#pragma once

#include <cstddef>

namespace platform {

// Fills `out` with `count` random bytes; a count of 0 succeeds at once.
bool RandomBytes(void* out, size_t count);

}  // namespace platform

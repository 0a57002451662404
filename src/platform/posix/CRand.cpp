// CRand.cpp - the Windows C runtime's rand/srand, per thread
//
// See CRand.h
#include "platform/CRand.h"

#include <cstdint>

namespace platform {
namespace {

thread_local uint32_t t_state = 1;

}  // namespace

void srand(unsigned seed) { t_state = seed; }

int rand() {
    t_state = t_state * 214013u + 2531011u;
    return static_cast<int>((t_state >> 16) & 0x7FFF);
}

}  // namespace platform

// SysCallSpy.cpp - counts the non-blocking locks the file layer asks for
#include "SysCallSpy.h"

#include <dlfcn.h>
#include <sys/file.h>

#include <atomic>

namespace {

std::atomic<size_t> g_locks{0};

}  // namespace

extern "C" int flock(int fd, int operation) {
    using FlockFn = int (*)(int, int);
    static FlockFn real = reinterpret_cast<FlockFn>(dlsym(RTLD_NEXT, "flock"));
    if (operation & LOCK_NB) ++g_locks;
    return real(fd, operation);
}

namespace syscallspy {

void reset() { g_locks = 0; }

size_t nonBlockingLocks() { return g_locks; }

}  // namespace syscallspy

// SysCallSpy.cpp - counts the system calls the file layer makes
#include "SysCallSpy.h"

#include <dlfcn.h>
#include <sys/file.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <vector>

namespace {

std::atomic<size_t> g_locks{0};
std::mutex g_sizesMutex;
std::vector<size_t>* g_writeSizes = nullptr;  // set only while a test watches

template <typename Fn>
Fn realFunction(const char* name) {
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" ssize_t write(int fd, const void* bytes, size_t count) {
    using WriteFn = ssize_t (*)(int, const void*, size_t);
    static WriteFn real = realFunction<WriteFn>("write");
    if (count >= 1000000) {
        std::lock_guard<std::mutex> lock(g_sizesMutex);
        if (g_writeSizes) g_writeSizes->push_back(count);
    }
    return real(fd, bytes, count);
}

extern "C" int flock(int fd, int operation) {
    using FlockFn = int (*)(int, int);
    static FlockFn real = realFunction<FlockFn>("flock");
    if (operation & LOCK_NB) ++g_locks;
    return real(fd, operation);
}

namespace syscallspy {

void reset() {
    std::lock_guard<std::mutex> lock(g_sizesMutex);
    static std::vector<size_t> sizes;
    sizes.clear();
    g_writeSizes = &sizes;
    g_locks = 0;
}

size_t largeWrites(size_t minBytes) {
    std::lock_guard<std::mutex> lock(g_sizesMutex);
    size_t count = 0;
    if (g_writeSizes) {
        for (size_t size : *g_writeSizes) count += size >= minBytes;
    }
    return count;
}

size_t nonBlockingLocks() { return g_locks; }

}  // namespace syscallspy

// RandomBytes.cpp - cryptographic random bytes from the system
//
// See RandomBytes.h
#include "platform/RandomBytes.h"

#include <cerrno>
#include <sys/random.h>

namespace platform {

bool RandomBytes(void* out, size_t count) {
    auto* bytes = static_cast<unsigned char*>(out);
    size_t done = 0;
    while (done < count) {
        ssize_t n = ::getrandom(bytes + done, count - done, 0);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

}  // namespace platform

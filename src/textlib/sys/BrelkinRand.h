// BrelkinRand.h - the engine's random numbers: R250, randomRange, randomBytes
//
// randomRange draws from the C runtime's generator (platform/CRand.h) and
// reseeds it every 3,000 calls from an R250 shift-register generator, which is
// itself seeded from cryptographic random bytes (or, when those fail, from
// the runtime generator seeded with the tick count). Not for secrets: only
// randomBytes is.
//
// Concurrency: the R250 state is process-wide behind a flag whose wait gives up
//              after about a second and goes on; randomRange is not locked,
//              and the runtime generator's state is per thread.
// See also:    ../../platform/RandomBytes.h, ../../platform/CRand.h
#pragma once

#include <cstdint>

namespace brelkin {

// The R250 generator: 250 words, feedback tap 103 places on.
class R250 {
public:
    static constexpr int kWords = 250;
    static constexpr int kTap = 103;

    R250();
    // Seeds from the words as given, then sets the bit diagonal.
    void setupFromWords(const uint32_t words[kWords]);
    // Seeds from the runtime generator after srand(seed): three rand() calls
    // a word, from the last word to the first.
    void setupFromRand(unsigned seed);
    uint32_t next();

private:
    void setDiagonal();

    uint32_t m_words[kWords];
    int m_index = 0;
    int m_tapIndex = kTap;
};

// `count` cryptographic random bytes into `out`; false for a negative count,
// a null `out` or when the system gives none.
bool randomBytes(int count, unsigned char* out);

// A number between low and high, truncated toward zero and clamped to the
// range (either order of the bounds); low when they are equal.
int randomRange(int low, int high);

// The next value of the process-wide R250, set up on first use.
uint32_t r250Next();

}  // namespace brelkin

// BrelkinRand.cpp - the engine's random numbers: R250, randomRange, randomBytes
//
// See BrelkinRand.h
#include "textlib/sys/BrelkinRand.h"

#include <atomic>
#include <cstring>

#include "platform/CRand.h"
#include "platform/Clock.h"
#include "platform/RandomBytes.h"

namespace brelkin {

namespace {

constexpr int kReseedEvery = 3000;
constexpr int kLockTries = 20;
constexpr uint32_t kLockPauseMs = 50;

// Successor of each index, so that advancing needs no division.
struct SuccessorTable {
    uint8_t next[R250::kWords];
    SuccessorTable() {
        for (int i = 0; i < R250::kWords; ++i) next[i] = static_cast<uint8_t>((i + 1) % R250::kWords);
    }
};

const SuccessorTable& successors() {
    static const SuccessorTable table;
    return table;
}

std::atomic<bool> g_stateLocked{false};
R250* g_state = nullptr;

// Waits up to a second for the flag, then takes it whether or not it cleared.
void lockState() {
    for (int i = 0; i < kLockTries && g_stateLocked.load(); ++i) platform::Sleep(kLockPauseMs);
    g_stateLocked.store(true);
}

void unlockState() { g_stateLocked.store(false); }

R250& sharedState() {
    if (!g_state) {
        static R250 state;
        uint32_t words[R250::kWords];
        if (randomBytes(static_cast<int>(sizeof words), reinterpret_cast<unsigned char*>(words))) {
            state.setupFromWords(words);
        } else {
            state.setupFromRand(platform::GetTickCount());
        }
        g_state = &state;
    }
    return *g_state;
}

std::atomic<unsigned> g_rangeCalls{0};

}  // namespace

R250::R250() { std::memset(m_words, 0, sizeof m_words); }

void R250::setupFromWords(const uint32_t words[kWords]) {
    std::memcpy(m_words, words, sizeof m_words);
    m_index = 0;
    m_tapIndex = kTap;
    setDiagonal();
}

void R250::setupFromRand(unsigned seed) {
    platform::srand(seed);
    for (int i = kWords - 1; i >= 0; --i) {
        uint32_t first = static_cast<uint32_t>(platform::rand());
        uint32_t second = static_cast<uint32_t>(platform::rand());
        uint32_t third = static_cast<uint32_t>(platform::rand());
        m_words[i] = (second << 17) | (first << 2) | (third & 3);
    }
    m_index = 0;
    m_tapIndex = kTap;
    setDiagonal();
}

// Makes 32 words linearly independent, as the generator's authors require:
// every 7th word from the 4th keeps only the bits at and below its diagonal bit.
void R250::setDiagonal() {
    uint32_t bit = 0x80000000u;
    uint32_t mask = 0xFFFFFFFFu;
    for (int j = 0; j < 32; ++j) {
        int k = 3 + 7 * j;
        m_words[k] = (m_words[k] & mask) | bit;
        mask >>= 1;
        bit >>= 1;
    }
}

uint32_t R250::next() {
    uint32_t value = m_words[m_index] ^ m_words[m_tapIndex];
    m_words[m_index] = value;
    m_index = successors().next[m_index];
    m_tapIndex = successors().next[m_tapIndex];
    return value;
}

bool randomBytes(int count, unsigned char* out) {
    if (count < 0 || !out) return false;
    return platform::RandomBytes(out, static_cast<size_t>(count));
}

uint32_t r250Next() {
    lockState();
    uint32_t value = sharedState().next();
    unlockState();
    return value;
}

int randomRange(int low, int high) {
    unsigned call = g_rangeCalls.fetch_add(1);
    if (call == 0) {
        platform::srand(platform::GetTickCount());
        lockState();
        sharedState();
        unlockState();
    } else if (call % kReseedEvery == 0) {
        platform::srand(r250Next());
    }
    if (low == high) return low;
    double span = static_cast<double>(high) - static_cast<double>(low);
    double drawn = static_cast<double>(low) + platform::rand() / 32768.0 * span;
    int value = static_cast<int>(drawn);
    int lowest = low < high ? low : high;
    int highest = low < high ? high : low;
    if (value < lowest) return lowest;
    if (value > highest) return highest;
    return value;
}

}  // namespace brelkin

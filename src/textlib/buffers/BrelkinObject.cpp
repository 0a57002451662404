// BrelkinObject.cpp - root of the engine's internal classes
//
// See BrelkinObject.h
#include "textlib/buffers/BrelkinObject.h"

#include <atomic>

namespace brelkin {

namespace {

std::atomic<uint64_t> g_nextSerial{100};

// A plain increment: a relaxed load and store, not an atomic add. Two threads
// may take the same serial, which nothing relies on; the atomic type only keeps
// the unlocked access well defined.
uint64_t takeSerial() {
    uint64_t serial = g_nextSerial.load(std::memory_order_relaxed);
    g_nextSerial.store(serial + 1, std::memory_order_relaxed);
    return serial;
}

}  // namespace

BrelkinObject::BrelkinObject() : m_objectSerial(takeSerial()) {}

BrelkinObject::BrelkinObject(const BrelkinObject&) : m_objectSerial(takeSerial()) {}

BrelkinObject::~BrelkinObject() = default;

}  // namespace brelkin

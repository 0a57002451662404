// ExtPtrArray.cpp - growable array of engine object pointers
//
// See ExtPtrArray.h
#include "textlib/buffers/ExtPtrArray.h"

#include <cstdlib>
#include <cstring>

namespace brelkin {

namespace {

constexpr int kFirstSlots = 5;
constexpr int kMaxGrowBy = 100000;

}  // namespace

ExtPtrArray::~ExtPtrArray() {
    if (m_ownsItems) deleteAll();
    std::free(m_items);
    m_items = nullptr;
    m_growBy = m_capacity = m_count = 0;
}

// The first use allocates five slots, whatever growBy holds.
bool ExtPtrArray::ensureFirstSlots() {
    if (m_items) return true;
    m_items = static_cast<BrelkinObject**>(std::calloc(kFirstSlots, sizeof(BrelkinObject*)));
    if (!m_items) return false;
    m_capacity = kFirstSlots;
    return true;
}

// Makes room for one more entry at the end and counts it; the new slot holds
// null. False, with nothing changed, when memory fails.
bool ExtPtrArray::addSlot() {
    if (!ensureFirstSlots()) return false;
    int count = m_count + 1;
    if (count > m_capacity) {
        int capacity = m_capacity + m_growBy;
        if (capacity <= count) capacity = count + 1;
        auto* items = static_cast<BrelkinObject**>(std::calloc(capacity, sizeof(BrelkinObject*)));
        if (!items) return false;
        std::memcpy(items, m_items, m_count * sizeof(BrelkinObject*));
        std::free(m_items);
        m_items = items;
        m_capacity = capacity;
        if (m_growBy < kMaxGrowBy) m_growBy = capacity < kMaxGrowBy ? capacity : kMaxGrowBy;
    }
    m_items[m_count] = nullptr;
    m_count = count;
    return true;
}

BrelkinObject* ExtPtrArray::getAt(int index) const {
    if (!m_items || index < 0 || index >= m_count) return nullptr;
    return m_items[index];
}

BrelkinObject* ExtPtrArray::getLast() const {
    return m_count > 0 ? m_items[m_count - 1] : nullptr;
}

void ExtPtrArray::append(BrelkinObject* item) {
    if (addSlot()) m_items[m_count - 1] = item;
}

void ExtPtrArray::insertAt(int index, BrelkinObject* item) {
    if (index < 0) index = 0;
    if (index > m_count) index = m_count;
    if (!addSlot()) return;
    std::memmove(m_items + index + 1, m_items + index,
                 (m_count - 1 - index) * sizeof(BrelkinObject*));
    m_items[index] = item;
}

void ExtPtrArray::setAt(int index, BrelkinObject* item) {
    if (!ensureFirstSlots() || index < 0) return;
    while (m_count <= index) {
        if (!addSlot()) return;
    }
    m_items[index] = item;
}

BrelkinObject* ExtPtrArray::removeAt(int index) {
    if (!m_items || index < 0 || index >= m_count) return nullptr;
    BrelkinObject* item = m_items[index];
    std::memmove(m_items + index, m_items + index + 1,
                 (m_count - 1 - index) * sizeof(BrelkinObject*));
    m_items[--m_count] = nullptr;
    return item;
}

BrelkinObject* ExtPtrArray::pop() {
    if (!ensureFirstSlots() || m_count == 0) return nullptr;
    BrelkinObject* item = m_items[--m_count];
    m_items[m_count] = nullptr;
    return item;
}

void ExtPtrArray::deleteAll() {
    for (int i = 0; i < m_count; ++i) {
        delete m_items[i];
        m_items[i] = nullptr;
    }
    m_count = 0;
}

}  // namespace brelkin

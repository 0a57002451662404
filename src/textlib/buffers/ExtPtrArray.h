// ExtPtrArray.h - growable array of engine object pointers
//
// Holds the parts of a MIME node, the fields of a header, split tokens and log
// entries. The array never deletes what it holds by itself: owners call
// deleteAll before it dies. Growth doubles the slots until a step is 100,000,
// then adds 100,000 at a time.
//
// Input:       out-of-range indexes give null or are clamped, never a fault.
// Diagnostics: a failed allocation drops the new item silently.
// Limits:      32-bit signed counts; not thread-safe.
// See also:    BrelkinObject.h
#pragma once

#include "textlib/buffers/BrelkinObject.h"

namespace brelkin {

class ExtPtrArray {
public:
    ExtPtrArray() = default;
    virtual ~ExtPtrArray();
    ExtPtrArray(const ExtPtrArray&) = delete;
    ExtPtrArray& operator=(const ExtPtrArray&) = delete;

    int getSize() const { return m_count; }
    int getCapacity() const { return m_capacity; }
    int getGrowBy() const { return m_growBy; }
    // Null when out of range.
    BrelkinObject* getAt(int index) const;
    BrelkinObject* getLast() const;

    void append(BrelkinObject* item);
    // The index is clamped to 0 .. getSize().
    void insertAt(int index, BrelkinObject* item);
    // Pads with nulls up to the index; the entry replaced is not deleted.
    void setAt(int index, BrelkinObject* item);
    // Takes the entry out without deleting it; null when out of range.
    BrelkinObject* removeAt(int index);
    BrelkinObject* pop();
    void clearWithoutDelete() { m_count = 0; }
    // Deletes every item through its virtual destructor and empties the array.
    void deleteAll();

private:
    bool ensureFirstSlots();
    bool addSlot();

    int m_growBy = 5;
    int m_capacity = 0;
    int m_count = 0;
    BrelkinObject** m_items = nullptr;
    bool m_ownsItems = false;  // no caller sets it; kept for owners that might
};

}  // namespace brelkin

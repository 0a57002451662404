// BrelkinObject.h - root of the engine's internal classes
//
// Gives every engine object a virtual destructor and a 64-bit serial number,
// taken from one process-wide counter that starts at 100. The serial helps to
// tell objects apart in logs and while debugging; it is not an identity.
//
// Limits:      the counter is bumped without a read-modify-write, so objects
//              made at the same moment on two threads may share a serial.
// See also:    DataBuffer.h, StringBuffer.h
#pragma once

#include <cstdint>

namespace brelkin {

class BrelkinObject {
public:
    BrelkinObject();
    // A copy is a new object and takes a serial of its own.
    BrelkinObject(const BrelkinObject&);
    BrelkinObject& operator=(const BrelkinObject&) { return *this; }
    virtual ~BrelkinObject();

    uint64_t getObjectSerial() const { return m_objectSerial; }

private:
    uint64_t m_objectSerial;
};

}  // namespace brelkin

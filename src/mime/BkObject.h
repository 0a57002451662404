// BkObject.h - root of the public engine classes
//
// BkMime, BkString and BkByteData are what the mail classes see of the engine.
// They share this root, which has no data, so that any of them can be deleted
// through it.
//
// See also:    BkMime.h, BkString.h, BkByteData.h
#pragma once

class BkObject {
public:
    BkObject() = default;
    virtual ~BkObject() = default;
    BkObject(const BkObject&) = delete;
    BkObject& operator=(const BkObject&) = delete;
};

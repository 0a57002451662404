// QueueControlHeaders.h - the five control headers of a queue file: where and how to deliver
//
// A producer puts host, port, account, scrambled password and secure flag in
// front of the stored message; the worker takes them into the SMTP client's
// settings and drops them from the mail, so that they never go out.
//
// Input:       any header values: a port without leading digits is 0, one
//              beyond the int range INT_MAX; the flag is on for "TRUE" in any
//              case and nothing else; a password that is not a whole scramble
//              unscrambles as far as it goes.
// See also:    ThreadQueuePass.cpp, tools/submit/QueueFileWriter.h (the writer)
#pragma once

#include <cstdint>

#include "foundation/NvcString.h"

class CNvMail;

struct QueueControlHeaders {
    CNvcString host;
    int32_t port = 0;
    CNvcString account;
    CNvcString password;  // unscrambled
    int32_t secure = 0;

    static const char* const kNames[5];

    // Reads the five headers of the loaded mail and removes them from it.
    void TakeFrom(CNvMail& mail);
};

// The leading decimal digits of `text` as a port: no blank, no sign.
int32_t PortOfHeader(const char* text);

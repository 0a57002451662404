// ErrorText.h - the text of a result code for the result log
//
// One fixed table, sorted by code: the general rows, SMTP replies keyed by
// their number (with the client's own 441 and 590 to 592), the Windows
// Sockets numbers, generic TCP, mail sending and queue, mail object and secure
// channel rows. Lookup is by exact value, sign included: no negative code has
// a row, so every one of them reads "Generic Error".
//
// Diagnostics: none; a code without a row gets "Generic Error".
// See also:    ErrorText.cpp
#pragma once

#include "foundation/NvcString.h"

#include <cstdint>

// Fills `out` with "Error #<code>: " and the code's text; returns `out`.
CNvcString& ErrorText(int32_t code, CNvcString& out);

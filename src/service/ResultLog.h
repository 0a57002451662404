// ResultLog.h - the daily result log: one separated line per delivery attempt
//
// One file per local day, "<log dir>/YYYY-MM-DD.LOG", opened and closed for
// each line so that another program may read it between lines. A new file
// starts with the head row. Columns: date and time (mm/dd/yyyy hh:mm:ss AM/PM,
// whatever the locale), subject as it is, To without any "<" or ">", the
// archive name, elapsed milliseconds, the result code's catalogue text, and the
// server's last reply with every CR and LF turned into ".". The separator is
// used as configured: no blanks around it, no quoting, none at all when empty.
//
// Diagnostics: none; a file that cannot be made or opened costs the line, and a
//              head row that could not be written leaves the day's file absent.
// See also:    ThreadQueue.h, foundation/ErrorText.h
#pragma once

#include <cstdint>

#include "foundation/NvcString.h"

// The day's file name for the moment `now`; the folder gets its trailing
// separator in place.
CNvcString& ResultLogFileName(CNvcString& logDir, int64_t now, CNvcString& out);

// The head row, joined by `separator`.
CNvcString& ResultLogHeadRow(const char* separator, CNvcString& out);

// Appends one result line for the moment `now` (seconds since 1970), with the
// head row first when the day's file is new. Takes its texts by value: the
// clean-ups of To and the reply stay here.
void AppendResultLine(CNvcString& logDir, const CNvcString& separator, int64_t now,
                      CNvcString subject, CNvcString to, CNvcString storedName,
                      uint32_t elapsedMs, int32_t result, CNvcString lastResponse);

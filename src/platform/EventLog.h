// EventLog.h - the system event log
//
// Entries go to syslog(3) with the event source as identity, facility daemon and
// the priority from the type; the message is the id in hex and the text. When the
// environment variable TELMORAQ_EVENTLOG names a file, each entry is appended
// there instead as one line:
//     YYYY-MM-DD hh:mm:ss SOURCE TYPE 0xXXXXXXXX text
// (local time; TYPE "error", "warning" or "information").
//
// Diagnostics: ReportEvent returns 0 or a system error number; it never throws.
// See also:    posix/EventLog.cpp
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace platform {

enum class EventType : uint16_t { Error = 1, Warning = 2, Information = 4 };

// Writes one entry; the strings are joined by single blanks to form its text.
int ReportEvent(const std::string& source, EventType type, uint32_t eventId,
                const std::vector<std::string>& strings);

// The system's message text for an error number (strerror-like), without a
// trailing line end; "" when the system has none.
std::string SystemMessageText(uint32_t code);

}  // namespace platform

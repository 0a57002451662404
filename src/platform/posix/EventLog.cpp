// EventLog.cpp - event entries to syslog, or to the file named by TELMORAQ_EVENTLOG
//
// See EventLog.h
#include "platform/EventLog.h"

#include "platform/SystemError.h"
#include "platform/posix/PosixFiles.h"

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>

namespace platform {
namespace {

struct MessageRow {
    uint32_t code;
    const char* text;
};

// The system's texts for the error numbers the seam produces.
constexpr MessageRow kMessages[] = {
    {0, "The operation completed successfully."},
    {1, "Incorrect function."},
    {2, "The system cannot find the file specified."},
    {3, "The system cannot find the path specified."},
    {4, "The system cannot open the file."},
    {5, "Access is denied."},
    {6, "The handle is invalid."},
    {8, "Not enough memory resources are available to process this command."},
    {13, "The data is invalid."},
    {17, "The system cannot move the file to a different disk drive."},
    {18, "There are no more files."},
    {19, "The media is write protected."},
    {21, "The device is not ready."},
    {31, "A device attached to the system is not functioning."},
    {32, "The process cannot access the file because it is being used by another process."},
    {33, "The process cannot access the file because another process has locked a portion of "
         "the file."},
    {50, "The request is not supported."},
    {80, "The file exists."},
    {87, "The parameter is incorrect."},
    {109, "The pipe has been ended."},
    {112, "There is not enough space on the disk."},
    {122, "The data area passed to a system call is too small."},
    {145, "The directory is not empty."},
    {206, "The filename or extension is too long."},
    {223, "The file size exceeds the limit allowed and cannot be saved."},
    {234, "More data is available."},
    {1009, "The configuration registry database is corrupt."},
    {1117, "The request could not be performed because of an I/O device error."},
    {1223, "The operation was canceled by the user."},
    {1921, "The name of the file cannot be resolved by the system."},
};

std::mutex g_syslogMutex;

const char* TypeName(EventType type) {
    switch (type) {
        case EventType::Error: return "error";
        case EventType::Warning: return "warning";
        default: return "information";
    }
}

int Priority(EventType type) {
    switch (type) {
        case EventType::Error: return LOG_ERR;
        case EventType::Warning: return LOG_WARNING;
        default: return LOG_INFO;
    }
}

// The strings joined by single blanks, line ends flattened so that an entry
// stays one line.
std::string JoinText(const std::vector<std::string>& strings) {
    std::string text;
    for (size_t i = 0; i < strings.size(); ++i) {
        if (i > 0) text += ' ';
        text += strings[i];
    }
    for (char& c : text)
        if (c == '\r' || c == '\n') c = ' ';
    return text;
}

int AppendToFile(const char* path, const std::string& line) {
    int fd = ::open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0644);
    if (fd < 0) return static_cast<int>(posix::PathError(path, errno));
    size_t done = 0;
    int result = 0;
    while (done < line.size()) {
        ssize_t put = ::write(fd, line.data() + done, line.size() - done);
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) {
            result = static_cast<int>(put < 0 ? LastErrnoAsError() : kErrorDiskFull);
            break;
        }
        done += static_cast<size_t>(put);
    }
    ::close(fd);
    return result;
}

std::string FileLine(const std::string& source, EventType type, uint32_t eventId,
                     const std::string& text) {
    std::time_t now = std::time(nullptr);
    std::tm tm{};
    ::localtime_r(&now, &tm);
    char head[96];
    std::snprintf(head, sizeof head, "%04d-%02d-%02d %02d:%02d:%02d ", tm.tm_year + 1900,
                  tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec);
    char id[24];
    std::snprintf(id, sizeof id, " 0x%08X ", eventId);
    return head + source + " " + TypeName(type) + id + text + "\n";
}

}  // namespace

int ReportEvent(const std::string& source, EventType type, uint32_t eventId,
                const std::vector<std::string>& strings) {
    const std::string text = JoinText(strings);
    const char* file = std::getenv("TELMORAQ_EVENTLOG");
    if (file != nullptr && *file != '\0') return AppendToFile(file, FileLine(source, type, eventId, text));
    std::lock_guard<std::mutex> guard(g_syslogMutex);  // openlog keeps the identity pointer
    ::openlog(source.c_str(), LOG_PID, LOG_DAEMON);
    ::syslog(Priority(type), "0x%08X %s", eventId, text.c_str());
    ::closelog();
    return 0;
}

std::string SystemMessageText(uint32_t code) {
    for (const MessageRow& row : kMessages)
        if (row.code == code) return row.text;
    return "";
}

}  // namespace platform

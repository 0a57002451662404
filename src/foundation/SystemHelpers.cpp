// SystemHelpers.cpp - file tests, unique names, registry, event log, date texts, debug log
//
// See SystemHelpers.h
#include "foundation/SystemHelpers.h"

#include "platform/CRand.h"
#include "platform/Clock.h"
#include "platform/DebugDir.h"
#include "platform/EventLog.h"
#include "platform/Files.h"
#include "platform/SystemError.h"
#include "platform/ThreadMessages.h"

#include <cctype>
#include <cstdarg>
#include <string>
#include <vector>

namespace {

constexpr size_t kRegistryStringRoom = 511;
constexpr uint32_t kAccessDenied = 5;
constexpr uint32_t kInvalidParameter = 87;
// Every candidate name differs only in a 15-bit random number, so the search
// for a free one is bounded; past this the last candidate is returned and the
// caller's fail-if-exists copy refuses it.
constexpr int kMaxUniqueNameTries = 1 << 16;

const char* OrEmpty(const char* text) { return text == nullptr ? "" : text; }

// Runs `call` in the 64-bit view and, where that is refused, once more without it.
template <typename Call>
uint32_t WithViewFallback(int wideView, Call call) {
    const uint32_t result = call(wideView != 0);
    if (wideView != 0 && result == kAccessDenied) return call(false);
    return result;
}

std::string FolderWithSeparator(const char* directory) {
    std::string folder = OrEmpty(directory);
    if (folder.empty() || folder.back() != '/') folder += '/';
    return folder;
}

platform::SystemTime LocalTime(int64_t time) {
    platform::SystemTime st{};
    platform::LocalTimeOf(time, st);
    return st;
}

platform::EventType EventTypeOf(uint32_t eventId) {
    switch (eventId >> 30) {
        case 3: return platform::EventType::Error;
        case 2: return platform::EventType::Warning;
        default: return platform::EventType::Information;
    }
}

// One insertion string per format letter; false on a letter without a meaning.
bool InsertionStrings(const char* format, va_list args, std::vector<std::string>& out) {
    for (const char* p = format; *p != '\0'; ++p) {
        CNvcString text;
        switch (std::tolower(static_cast<unsigned char>(*p))) {
            case 'd': text.FormatShort("%d", va_arg(args, int)); break;
            case 'x': text.FormatShort("0x%X", va_arg(args, unsigned)); break;
            case 's': text = va_arg(args, const char*); break;
            case 'm': text = platform::SystemMessageText(va_arg(args, unsigned) & 0xFFFF).c_str(); break;
            default: return false;
        }
        out.emplace_back(text.GetData());
    }
    return true;
}

}  // namespace

int FileExists(const char* path) {
    platform::DirectorySearch search(OrEmpty(path));
    platform::DirectoryEntry entry;
    return search.Next(entry) && !entry.isDirectory ? 1 : 0;
}

int DirectoryExists(const char* path) {
    platform::DirectorySearch search(FolderWithSeparator(path) + "*.*");
    platform::DirectoryEntry entry;
    return search.Next(entry) && entry.isDirectory ? 1 : 0;
}

CNvcString& MakeUniqueFileName(const char* directory, const char* prefix, const char* extension,
                               CNvcString& out) {
    const std::string folder = FolderWithSeparator(directory);
    const unsigned long threadId = platform::GetCurrentThreadId();
    const unsigned long now = static_cast<uint32_t>(platform::CurrentUnixTime());
    unsigned long random = static_cast<unsigned long>(platform::rand());
    for (int tries = 0; tries < kMaxUniqueNameTries; ++tries) {
        out.FormatShort("%s%s%08lX%08lX%04lX%s", folder.c_str(), OrEmpty(prefix), threadId, now,
                        random, OrEmpty(extension));
        random = static_cast<unsigned long>(platform::rand());
        if (platform::GetPathKind(out.GetData()) != platform::PathKind::File) break;
    }
    return out;
}

int EnsureRegistryKey(RegistryHive hive, const char* key, int wideView) {
    const std::string path = OrEmpty(key);
    auto probe = [&](bool view) { return platform::ProbeRegistryKey(hive, path, view); };
    if (WithViewFallback(wideView, probe) == 0) return 1;
    auto create = [&](bool view) { return platform::CreateRegistryKey(hive, path, view); };
    return WithViewFallback(wideView, create) == 0 ? 1 : 0;
}

CNvcString& ReadRegistryString(RegistryHive hive, const char* key, const char* value,
                               const char* def, CNvcString& out, int wideView) {
    platform::RegistryValue stored;
    auto query = [&](bool view) {
        return platform::QueryRegistryValue(hive, OrEmpty(key), OrEmpty(value), stored, view);
    };
    if (WithViewFallback(wideView, query) != 0 || stored.data.size() > kRegistryStringRoom)
        return out.Assign(def);
    // Kept on purpose: the type is not looked at, so a dword reads as its bytes
    // up to the first zero.
    return out.Assign(stored.data.c_str());
}

int WriteRegistryString(RegistryHive hive, const char* key, const char* value, const char* text,
                        int wideView) {
    auto set = [&](bool view) {
        return platform::SetRegistryString(hive, OrEmpty(key), OrEmpty(value), OrEmpty(text), view);
    };
    return WithViewFallback(wideView, set) == 0 ? 0 : -1;
}

uint32_t ReadRegistryDword(RegistryHive hive, const char* key, const char* value, uint32_t def,
                           int wideView) {
    platform::RegistryValue stored;
    auto query = [&](bool view) {
        return platform::QueryRegistryValue(hive, OrEmpty(key), OrEmpty(value), stored, view);
    };
    if (WithViewFallback(wideView, query) != 0 || stored.type != platform::kRegDword ||
        stored.data.size() != 4)
        return def;
    uint32_t number = 0;
    for (int i = 3; i >= 0; --i) number = (number << 8) | static_cast<unsigned char>(stored.data[i]);
    return number;
}

int WriteRegistryDword(RegistryHive hive, const char* key, const char* value, uint32_t number,
                       int wideView) {
    auto set = [&](bool view) {
        return platform::SetRegistryDword(hive, OrEmpty(key), OrEmpty(value), number, view);
    };
    return WithViewFallback(wideView, set) == 0 ? 0 : -1;
}

int ReportServiceEvent(const char* source, uint32_t eventId, const char* format, ...) {
    const uint32_t lastError = platform::GetLastError();
    std::vector<std::string> strings;
    va_list args;
    va_start(args, format);
    const bool understood = InsertionStrings(OrEmpty(format), args, strings);
    va_end(args);
    const int result = understood
                           ? platform::ReportEvent(OrEmpty(source), EventTypeOf(eventId), eventId, strings)
                           : static_cast<int>(kInvalidParameter);
    platform::SetLastError(lastError);
    return result;
}

CNvcString& FormatDate(int64_t time, CNvcString& out, const char* format) {
    if (time <= 0) return out.Assign("n/a");
    const platform::SystemTime st = LocalTime(time);
    const char* pattern = format == nullptr || *format == '\0' ? "mm/dd/yyyy" : format;
    CNvcString number;
    out.Assign(pattern);
    // In this order: the longer tokens first, so "Y" never eats part of "YYYY".
    out.Replace("YYYY", number.FormatShort("%d", st.wYear).GetData(), 0);
    out.Replace("YY", number.FormatShort("%02d", st.wYear % 100).GetData(), 0);
    out.Replace("Y", number.FormatShort("%d", st.wYear % 100).GetData(), 0);
    out.Replace("MM", number.FormatShort("%02d", st.wMonth).GetData(), 0);
    out.Replace("M", number.FormatShort("%d", st.wMonth).GetData(), 0);
    out.Replace("DD", number.FormatShort("%02d", st.wDay).GetData(), 0);
    out.Replace("D", number.FormatShort("%d", st.wDay).GetData(), 0);
    return out;
}

CNvcString& FormatTime(int64_t time, CNvcString& out, const char* format) {
    if (time <= 0) return out.Assign("n/a");
    const platform::SystemTime st = LocalTime(time);
    const int hour12 = st.wHour % 12 == 0 ? 12 : st.wHour % 12;
    const char* marker = st.wHour < 12 ? "AM" : "PM";
    const std::string start = std::string(OrEmpty(format)).substr(0, 2);
    if (start == "HH") return out.FormatShort("%02d:%02d:%02d", st.wHour, st.wMinute, st.wSecond);
    if (start[0] == 'H') return out.FormatShort("%d:%02d:%02d", st.wHour, st.wMinute, st.wSecond);
    if (start[0] == 'h' && start != "hh")
        return out.FormatShort("%d:%02d:%02d %s", hour12, st.wMinute, st.wSecond, marker);
    return out.FormatShort("%02d:%02d:%02d %s", hour12, st.wMinute, st.wSecond, marker);
}

CNvcString& FormatDateTime(int64_t time, CNvcString& out, const char* dateFormat,
                           const char* timeFormat) {
    if (time <= 0) return out.Assign("n/a");
    CNvcString timeText;
    FormatDate(time, out, dateFormat);
    return out.Append(" ").Append(FormatTime(time, timeText, timeFormat));
}

void DebugLog(const char* kind, const char* sourceFile, int line, const char* text) {
    const uint32_t lastError = platform::GetLastError();
    CNvcString stamp, entry;
    FormatDateTime(platform::CurrentUnixTime(), stamp, "", "");
    entry.Format("%s (%s); file [%s:%d]; %s\n", stamp.GetData(), OrEmpty(kind), OrEmpty(sourceFile),
                 line, OrEmpty(text));
    platform::AppendToFile(platform::DebugFile("Norvane.log"), entry.GetData());
    platform::SetLastError(lastError);
}

void DebugLogError(const char* sourceFile, int line, const char* text) {
    DebugLog("Error", sourceFile, line, text);
}

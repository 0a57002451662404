// SystemHelpersTest.cpp - fallbacks of the registry helpers, unique names, date texts, events
#include "foundation/SystemHelpers.h"

#include "platform/CRand.h"
#include "platform/Registry.h"
#include "platform/SystemError.h"
#include "platform/ThreadMessages.h"
#include "support/RegistryTestEnv.h"
#include "support/TestPaths.h"

#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <optional>
#include <string>

using testsupport::ReadFile;
using testsupport::EnvSetting;
using testsupport::ScratchRegistry;
using testsupport::TempDir;
using testsupport::WriteFile;

namespace {

const char* kKey = "Software\\Norvane\\Telmora\\QueueServer";
const char* kJunk = "this junk should be ignored";

bool IsHex(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789ABCDEF") == std::string::npos;
}

}  // namespace

TEST(SystemHelpersFiles, ExistenceTestsTellFilesFromFolders) {
    TempDir dir;
    ASSERT_TRUE(WriteFile(dir.file("f.txt"), "x"));
    struct Case {
        std::string path;
        int file, folder;
    } cases[] = {
        {dir.file("f.txt"), 1, 0},
        {dir.path(), 0, 1},
        {dir.path() + "/", 0, 1},
        {dir.file("missing"), 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        EXPECT_EQ(c.file, FileExists(c.path.c_str()));
        EXPECT_EQ(c.folder, DirectoryExists(c.path.c_str()));
    }
    EXPECT_EQ(0, FileExists(nullptr));
}

TEST(SystemHelpersFiles, UniqueNameHasTheFixedShapeAndSkipsTakenNames) {
    TempDir dir;
    CNvcString first(kJunk);
    platform::srand(1);
    MakeUniqueFileName(dir.path().c_str(), nullptr, ".mim", first);
    const std::string name = first.GetData();
    ASSERT_EQ(dir.path() + "/", name.substr(0, dir.path().size() + 1));
    const std::string stem = name.substr(dir.path().size() + 1);
    ASSERT_EQ(8u + 8 + 4 + 4, stem.size()) << stem;
    EXPECT_EQ(".mim", stem.substr(20));
    EXPECT_TRUE(IsHex(stem.substr(0, 20))) << stem;
    char thread[16];
    std::snprintf(thread, sizeof thread, "%08X", platform::GetCurrentThreadId());
    EXPECT_EQ(thread, stem.substr(0, 8));
    EXPECT_EQ("0029", stem.substr(16, 4)) << "first rand() after srand(1) is 41";

    ASSERT_TRUE(WriteFile(name, "taken"));
    CNvcString second(kJunk);
    platform::srand(1);
    MakeUniqueFileName((dir.path() + "/").c_str(), "pre", ".hst", second);
    ASSERT_EQ(dir.path() + "/pre", std::string(second.GetData()).substr(0, dir.path().size() + 4))
        << "separator doubled";
    const std::string other = std::string(second.GetData()).substr(dir.path().size() + 1);
    EXPECT_EQ(".hst", other.substr(other.size() - 4));
    EXPECT_EQ("0029", other.substr(19, 4)) << "a free first candidate is kept";

    CNvcString third(kJunk);
    platform::srand(1);
    MakeUniqueFileName(dir.path().c_str(), "", ".mim", third);
    const std::string skipped = std::string(third.GetData()).substr(dir.path().size() + 1);
    if (skipped.substr(8, 8) == stem.substr(8, 8)) {  // same second: only the random part moves on
        EXPECT_EQ("4823", skipped.substr(16, 4)) << "second rand() is 18467";
    }
    EXPECT_NE(name, third.GetData());
}

TEST(SystemHelpersRegistry, ReadsFallBackToTheDefaultWritesNeedAnExistingKey) {
    ScratchRegistry reg;
    CNvcString out(kJunk);
    EXPECT_STREQ("def", ReadRegistryString(HKEY_LOCAL_MACHINE, kKey, "PickupDir", "def", out, 1).GetData());
    EXPECT_EQ(42u, ReadRegistryDword(HKEY_LOCAL_MACHINE, kKey, "Port", 42, 1));
    EXPECT_EQ(-1, WriteRegistryDword(HKEY_LOCAL_MACHINE, kKey, "Port", 25, 1));
    EXPECT_EQ(-1, WriteRegistryString(HKEY_LOCAL_MACHINE, kKey, "Host", "mx", 1));
    EXPECT_EQ(2u, platform::ProbeRegistryKey(HKEY_LOCAL_MACHINE, kKey, true))
        << "a read or a refused write created the key";
    EXPECT_FALSE(std::filesystem::exists(reg.path()));

    ASSERT_EQ(1, EnsureRegistryKey(HKEY_LOCAL_MACHINE, kKey, 1));
    EXPECT_EQ(1, EnsureRegistryKey(HKEY_LOCAL_MACHINE, kKey, 1));
    EXPECT_EQ(0, WriteRegistryDword(HKEY_LOCAL_MACHINE, kKey, "Port", 25, 1));
    EXPECT_EQ(0, WriteRegistryString(HKEY_LOCAL_MACHINE, kKey, "Host", "mx", 1));
    EXPECT_STREQ("mx", ReadRegistryString(HKEY_LOCAL_MACHINE, kKey, "host", "", out, 1).GetData());
    EXPECT_EQ(25u, ReadRegistryDword(HKEY_LOCAL_MACHINE, kKey, "PORT", 0, 1));
    ASSERT_EQ(0u, platform::SetRegistryString(HKEY_LOCAL_MACHINE, kKey, "Text", "25", true));
    ASSERT_EQ(0u, platform::SetRegistryDword(HKEY_LOCAL_MACHINE, kKey, "Dword", 0x00434241, true));
    ASSERT_EQ(0u, platform::SetRegistryString(HKEY_LOCAL_MACHINE, kKey, "Long", std::string(511, 'x'), true));
    ASSERT_EQ(0u, platform::SetRegistryString(HKEY_LOCAL_MACHINE, kKey, "Fits", std::string(510, 'y'), true));
    struct Case {
        const char* name;
        const char* value;
        std::string wantText;
        uint32_t wantNumber;
    } cases[] = {
        {"string", "Text", "25", 7},
        {"dword read as text keeps its bytes", "Dword", "ABC", 0x00434241},
        {"text too long for the buffer", "Long", "def", 7},
        {"text that just fits", "Fits", std::string(510, 'y'), 7},
        {"missing value", "Nope", "def", 7},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        CNvcString text(kJunk);
        EXPECT_EQ(c.wantText, ReadRegistryString(HKEY_LOCAL_MACHINE, kKey, c.value, "def", text, 1).GetData());
        EXPECT_EQ(c.wantNumber, ReadRegistryDword(HKEY_LOCAL_MACHINE, kKey, c.value, 7, 1));
    }
}

// The library reads TZ at tzset only: told once it is set and once it is back.
class SystemHelpersTime : public ::testing::Test {
protected:
    SystemHelpersTime() { ::tzset(); }
    ~SystemHelpersTime() override {
        zone.reset();
        ::tzset();
    }
    std::optional<EnvSetting> zone{std::in_place, "TZ", "UTC0"};
};

TEST_F(SystemHelpersTime, DateAndTimeTextsByFormat) {
    const int64_t day = 1230940799;  // 2009-01-02 23:59:59
    // 2026-03-07 at 00:00:05, 12:00:00, 13:05:09 and 09:05:09
    const int64_t midnight = 1772841605, noon = 1772884800, afternoon = 1772888709, morning = 1772874309;
    enum Kind { Date, Time };
    struct Case {
        const char* name;
        Kind kind;
        int64_t time;
        const char* format;
        const char* want;
    } const cases[] = {
        {"null date format", Date, day, nullptr, "01/02/2009"},
        {"yyyy-mm-dd", Date, day, "yyyy-mm-dd", "2009-01-02"},
        {"YY.MM.DD", Date, day, "YY.MM.DD", "09.01.02"},
        {"d.m.y", Date, day, "d.m.y", "2.1.9"},
        // kept: tokens are replaced one after the other, longest first
        {"dd-MMM", Date, day, "dd-MMM", "02-011"},
        {"midnight is 12 AM", Time, midnight, "", "12:00:05 AM"},
        {"noon is 12 PM", Time, noon, "h", "12:00:00 PM"},
        {"afternoon, 24-hour padded", Time, afternoon, "HH:mm:ss", "13:05:09"},
        {"morning, 24-hour unpadded", Time, morning, "H:mm", "9:05:09"},
        {"morning, 12-hour unpadded", Time, morning, "h:mm tt", "9:05:09 AM"},
        {"hh picks the padded form, rest unused", Time, morning, "hh' o''clock'", "09:05:09 AM"},
        {"null time format", Time, afternoon, nullptr, "01:05:09 PM"},
        {"date at time zero is not available", Date, 0, "yyyy", "n/a"},
        {"date before time zero", Date, -1, "yyyy", "n/a"},
        {"time at time zero is not available", Time, 0, "HH", "n/a"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        CNvcString out(kJunk);
        EXPECT_STREQ(c.want, (c.kind == Date ? FormatDate(c.time, out, c.format)
                                             : FormatTime(c.time, out, c.format)).GetData());
    }
    CNvcString out(kJunk);
    EXPECT_STREQ("03/07/2026 12:00:05 AM", FormatDateTime(midnight, out, "", "").GetData());
    EXPECT_STREQ("2026-03-07 13:05:09", FormatDateTime(afternoon, out, "yyyy-mm-dd", "HH").GetData());
    EXPECT_STREQ("n/a", FormatDateTime(0, out, "", "").GetData());
}

TEST(SystemHelpersEvents, EntriesWithInsertionsTypeFromTheIdAndFailure) {
    TempDir dir;
    EnvSetting file("TELMORAQ_EVENTLOG", dir.file("events.log").c_str());
    platform::SetLastError(1234);
    EXPECT_EQ(0, ReportServiceEvent("TelmoraQ", 0xC0000001, "dXsM", 42, 255, "text", 0x10005));
    EXPECT_EQ(0, ReportServiceEvent("TelmoraQ", 0x80000002, ""));
    EXPECT_EQ(0, ReportServiceEvent("TelmoraQ", 0x40000003, "m", 0xFFFF));
    EXPECT_EQ(87, ReportServiceEvent("TelmoraQ", 4, "dq", 1, 2));
    EXPECT_EQ(1234u, platform::GetLastError());

    const std::string text = ReadFile(dir.file("events.log"));
    EXPECT_NE(std::string::npos,
              text.find(" TelmoraQ error 0xC0000001 42 0xFF text Access is denied.\n"))
        << text;
    EXPECT_NE(std::string::npos, text.find(" TelmoraQ warning 0x80000002 \n")) << text;
    EXPECT_NE(std::string::npos, text.find(" TelmoraQ information 0x40000003 \n")) << text;
    EXPECT_EQ(std::string::npos, text.find("0x00000004")) << "entry written despite a bad letter";

    EnvSetting missing("TELMORAQ_EVENTLOG", dir.file("no/such/events.log").c_str());
    platform::SetLastError(77);
    EXPECT_EQ(3, ReportServiceEvent("TelmoraQ", 1, "")) << "a failed write is returned";
    EXPECT_EQ(77u, platform::GetLastError());
}

TEST(SystemHelpersDebugLog, AppendsStampedLinesOnlyWhenTheFolderExists) {
    TempDir dir;
    {
        EnvSetting debug("TELMORAQ_DEBUG_DIR", dir.path().c_str());
        DebugLogError("NvcThread", 120, "period below 500");
        DebugLog("Info", "x.cpp", 7, "second");
    }
    const std::string text = ReadFile(dir.file("Norvane.log"));
    const size_t firstEnd = text.find('\n');
    ASSERT_NE(std::string::npos, firstEnd) << text;
    const std::string first = text.substr(0, firstEnd);
    // "mm/dd/yyyy hh:mm:ss AM" is 22 characters.
    ASSERT_GT(first.size(), 23u);
    EXPECT_EQ(" (Error); file [NvcThread:120]; period below 500", first.substr(22));
    EXPECT_EQ(" (Info); file [x.cpp:7]; second\n", text.substr(firstEnd + 1 + 22));

    EnvSetting missing("TELMORAQ_DEBUG_DIR", dir.file("absent").c_str());
    DebugLogError("a", 1, "lost");
    EXPECT_FALSE(std::filesystem::exists(dir.file("absent")));
}

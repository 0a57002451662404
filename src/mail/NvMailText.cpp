// NvMailText.cpp - the small texts of a composed message: date, charset, priority, boundaries
//
// See NvMail.h. None of these touch the MIME tree.
#include <cstdlib>

#include "foundation/SystemHelpers.h"
#include "mail/NvMail.h"
#include "platform/CRand.h"
#include "platform/Clock.h"
#include "platform/CodePage.h"
#include "textlib/charset/BkCharset.h"

namespace {

// English whatever the locale: receivers parse these names.
const char* const kDayNames[7] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
const char* const kMonthNames[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

struct PriorityRow {
    const char* xPriority;
    const char* msMail;
};
// Index = priority; every other value reads as 3.
const PriorityRow kPriorityRows[6] = {
    {"3 (Normal)", "Normal"}, {"1 (Highest)", "High"}, {"2 (High)", "High"},
    {"3 (Normal)", "Normal"}, {"4 (Low)", "Low"},      {"5 (Lowest)", "Low"},
};

constexpr long kIso2022JpEscapes = 50221;  // named without a look-up

// Minutes west of UTC in force now: the zone's bias plus the bias of its kind.
int32_t CurrentBias() {
    platform::TimeZoneInfo zone{};
    const int kind = platform::GetTimeZoneInformation(zone);
    int32_t bias = zone.Bias;
    if (kind == 1) bias += zone.StandardBias;
    if (kind == 2) bias += zone.DaylightBias;
    return bias;
}

void ReadCharsetValue(const CNvcString& key, const char* value, CNvcString& out) {
    ReadRegistryString(HKEY_CLASSES_ROOT, key.GetData(), value, "", out, 1);
}

}  // namespace

int32_t CNvMail::ClassifyText(const char16_t* text) {
    if (text == nullptr) return kClassAscii;
    bool eightBit = false;
    for (const char16_t* p = text; *p != 0; ++p) {
        if (*p > 255) return kClassUnicode;
        if (*p > 127) eightBit = true;
    }
    return eightBit ? static_cast<int32_t>(platform::GetACP()) : kClassAscii;
}

void CNvMail::FormatDateHeader(CNvcString& out) {
    const int32_t bias = CurrentBias();
    // hhmm as one signed number: a bias of -330 minutes reads 530.
    const int32_t offset = -bias - 40 * (bias / 60);
    platform::SystemTime now{};
    platform::GetLocalTime(now);
    CNvcString date;
    date.FormatShort("%s, %d %s %04d", kDayNames[now.wDayOfWeek % 7], now.wDay,
                     kMonthNames[(now.wMonth + 11) % 12], now.wYear);
    CNvcString time;
    time.FormatShort("%02d:%02d:%02d", now.wHour, now.wMinute, now.wSecond);
    // A plus only above zero, so UTC reads "-0000"; the CRLF falls to the
    // header's trim.
    out.FormatShort("%s %s %c%4.4d\r\n", date.GetData(), time.GetData(), offset > 0 ? '+' : '-',
                    std::abs(offset));
}

void CNvMail::PriorityTexts(int32_t priority, const char*& xPriority, const char*& msMail) {
    const PriorityRow& row = kPriorityRows[priority >= 1 && priority <= 5 ? priority : 3];
    xPriority = row.xPriority;
    msMail = row.msMail;
}

void CNvMail::MakeBoundaryBase(CNvcString& out) {
    // Four draws in this order; the products are printed r3*r4 first.
    const uint32_t r1 = static_cast<uint32_t>(platform::rand());
    const uint32_t r2 = static_cast<uint32_t>(platform::rand());
    const uint32_t r3 = static_cast<uint32_t>(platform::rand());
    const uint32_t r4 = static_cast<uint32_t>(platform::rand());
    out.FormatShort("%08X%08X==", r3 * r4, r1 * r2);
}

void CNvMail::FormatBoundary(int32_t counter, const CNvcString& base, CNvcString& out) {
    out.FormatShort("--==%03X_%s", static_cast<unsigned>(counter), base.GetData());
}

CNvcString& GetCharsetName(long codePage, CNvcString& out) {
    if (codePage == kIso2022JpEscapes) return out.Assign("iso-2022-jp");
    CNvcString key;
    key.FormatShort("MIME\\Database\\CodePage\\%ld", codePage);
    ReadCharsetValue(key, "BodyCharset", out);
    if (out.IsEmpty()) ReadCharsetValue(key, "WebCharset", out);
    if (!out.IsEmpty()) return out;
    // Off Windows the MIME database is usually absent: the engine's own name
    // of the code page labels the same bytes.
    brelkin::StringBuffer name;
    if (brelkin::codePageToName(static_cast<int>(codePage), name)) out.Assign(name.getString());
    return out;
}

// ResultLog.cpp - the daily result log
//
// See ResultLog.h
#include "service/ResultLog.h"

#include "foundation/ErrorText.h"
#include "foundation/SystemHelpers.h"
#include "platform/Clock.h"
#include "platform/Files.h"

namespace {

const char* const kHeadColumns[] = {"Date and Time", "Subject",     "To",
                                    "StoredMimeFile", "TimeElapsed", "Result",
                                    "LastSmtpResponse"};

bool AppendLine(const CNvcString& path, const CNvcString& line) {
    return platform::AppendToFile(path.GetData(), std::string(line.GetData()) + "\n") == 0;
}

}  // namespace

CNvcString& ResultLogFileName(CNvcString& logDir, int64_t now, CNvcString& out) {
    platform::SystemTime local;
    platform::LocalTimeOf(now, local);
    logDir.AppendIfMissing('/');
    return out.FormatShort("%s%04d-%02d-%02d.LOG", logDir.GetData(), local.wYear, local.wMonth,
                           local.wDay);
}

CNvcString& ResultLogHeadRow(const char* separator, CNvcString& out) {
    out.Assign(kHeadColumns[0]);
    for (size_t i = 1; i < sizeof kHeadColumns / sizeof kHeadColumns[0]; ++i)
        out.Append(separator).Append(kHeadColumns[i]);
    return out;
}

void AppendResultLine(CNvcString& logDir, const CNvcString& separator, int64_t now,
                      CNvcString subject, CNvcString to, CNvcString storedName,
                      uint32_t elapsedMs, int32_t result, CNvcString lastResponse) {
    CNvcString path;
    ResultLogFileName(logDir, now, path);
    if (!FileExists(path.GetData())) {
        CNvcString head;
        if (!AppendLine(path, ResultLogHeadRow(separator.GetData(), head))) return;
    }

    to.Replace("<", "", 1).Replace(">", "", 1);
    // Two steps, so that CR LF becomes two points, one for each character.
    while (lastResponse.Contains("\r", 1) || lastResponse.Contains("\n", 1))
        lastResponse.Replace("\n", ".", 1).Replace("\r", ".", 1);

    CNvcString stamp;
    CNvcString resultText;
    CNvcString elapsed;
    elapsed.FormatShort("%ld", static_cast<long>(elapsedMs));
    const char* sep = separator.GetData();
    CNvcString line;
    line.Assign(FormatDateTime(now, stamp, "", ""))
        .Append(sep).Append(subject)
        .Append(sep).Append(to)
        .Append(sep).Append(storedName)
        .Append(sep).Append(elapsed)
        .Append(sep).Append(ErrorText(result, resultText))
        .Append(sep).Append(lastResponse);
    AppendLine(path, line);
}

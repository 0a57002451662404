// QueueControlFuzzer.cpp - the five control headers of a queue file, read by the worker
//
// Two roads, chosen by the first byte:
//  - any bytes as a queue file: the headers are read and dropped, and the
//    composed message must carry none of them in its header, whatever case
//    or repetition the file used;
//  - delivery settings made from the input, written as telmoraq-submit writes
//    them in front of a small message: the worker must read back exactly what
//    was written, the scrambled password included.
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "MemoryFile.h"
#include "QueueFileWriter.h"
#include "foundation/NvcString.h"
#include "mail/NvMail.h"
#include "service/QueueControlHeaders.h"

namespace {

[[noreturn]] void Fail(const char* what, const std::string& detail) {
    std::fprintf(stderr, "%s\n%s\n", what, detail.c_str());
    std::abort();
}

bool StartsWithNoCase(const char* text, const char* prefix) {
    for (; *prefix != 0; ++text, ++prefix)
        if (*text == 0 || std::tolower(static_cast<unsigned char>(*text)) !=
                              std::tolower(static_cast<unsigned char>(*prefix)))
            return false;
    return true;
}

void CheckNoControlHeaderGoesOut(const uint8_t* data, size_t size) {
    MemoryFile file(data, size);
    CNvMail mail("CNvMail");
    if (!file.ok() || mail.LoadFromFile(file.path()) != 0) return;
    QueueControlHeaders control;
    control.TakeFrom(mail);
    mail.Compose();
    CNvcString text;
    mail.GetMimeText(text);
    const std::string composed(text.GetData(), text.GetLength());
    const size_t headerEnd = composed.find("\r\n\r\n");
    for (size_t line = 0; line < std::min(headerEnd, composed.size());) {
        if (StartsWithNoCase(composed.c_str() + line, "X-NvQueueService-"))
            Fail("a control header went out:", composed);
        const size_t next = composed.find("\r\n", line);
        if (next == std::string::npos) break;
        line = next + 2;
    }
}

// Takes up to `most` bytes of `data`, mapped onto characters a producer puts
// in a host or account name.
std::string NameFrom(const uint8_t*& data, size_t& size, size_t most) {
    static const char kAlphabet[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-_@";
    std::string out;
    while (size > 0 && out.size() < most) {
        out += kAlphabet[*data % (sizeof kAlphabet - 1)];
        ++data;
        --size;
    }
    return out;
}

void CheckWrittenSettingsComeBack(const uint8_t* data, size_t size) {
    if (size < 8) return;
    const unsigned char key[3] = {data[0], data[1], data[2]};
    DeliverySettings settings;
    settings.port = (data[3] << 8) | data[4];
    settings.secure = (data[5] & 1) != 0;
    const bool bareLf = (data[5] & 2) != 0;
    const size_t hostSize = data[6] % 40, accountSize = data[7] % 40;
    data += 8;
    size -= 8;
    settings.host = NameFrom(data, size, hostSize);
    settings.account = NameFrom(data, size, accountSize);
    for (; size > 0; ++data, --size)
        if (*data != 0) settings.password += static_cast<char>(*data);

    const std::string message = bareLf ? "From: a@b.test\nTo: c@d.test\nSubject: s\n\nbody\n"
                                       : "From: a@b.test\r\nTo: c@d.test\r\nSubject: s\r\n\r\nbody\r\n";
    const std::string queued = WithControlHeaders(message, settings, key);
    MemoryFile file(queued.data(), queued.size());
    CNvMail mail("CNvMail");
    if (!file.ok() || mail.LoadFromFile(file.path()) != 0) Fail("a written queue file did not load:", queued);
    QueueControlHeaders control;
    control.TakeFrom(mail);
    if (std::string(control.host.GetData()) != settings.host ||
        std::string(control.account.GetData()) != settings.account ||
        std::string(control.password.GetData()) != settings.password ||
        control.port != settings.port || (control.secure != 0) != settings.secure)
        Fail("the worker read other settings than were written:", queued);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0 || size > (1u << 16)) return 0;
    if (data[0] & 1)
        CheckWrittenSettingsComeBack(data + 1, size - 1);
    else
        CheckNoControlHeaderGoesOut(data + 1, size - 1);
    return 0;
}

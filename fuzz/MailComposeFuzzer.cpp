// MailComposeFuzzer.cpp - a stored message loaded into the mail object and composed anew
//
// One input is one queue file as a producer might leave it. It is loaded
// (LoadMimeFile and the walk of its tree), composed, and what Compose wrote is
// loaded and composed once more: the composed text is what goes on the wire,
// so the engine must read it back whole.
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "MemoryFile.h"
#include "foundation/NvcString.h"
#include "mail/NvMail.h"

namespace {

// Loads `bytes`, composes, and leaves the composed text in `composed`.
int32_t LoadAndCompose(const void* bytes, size_t size, CNvcString& composed) {
    MemoryFile file(bytes, size);
    if (!file.ok()) return CNvMail::kLoadFailed;
    CNvMail mail("CNvMail");
    const int32_t loaded = mail.LoadFromFile(file.path());
    if (loaded != 0) return loaded;
    mail.Compose();
    mail.GetMimeText(composed);
    CNvcString header;
    mail.GetHeader("Subject", header);  // reads the new tree
    return 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > (1u << 20)) return 0;
    CNvcString composed;
    if (LoadAndCompose(data, size, composed) != 0) return 0;

    CNvcString again;
    if (LoadAndCompose(composed.GetData(), composed.GetLength(), again) != 0) {
        std::fprintf(stderr, "the composed text did not load again:\n%s\n", composed.GetData());
        std::abort();
    }
    return 0;
}

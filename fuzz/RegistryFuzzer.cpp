// RegistryFuzzer.cpp - the settings file as an administrator's editor may leave it
//
// The input is the whole registry file. Reads of the service's values must
// end without harm; a write either fails and leaves the file byte for byte as
// it was, or succeeds and the value reads back, with the file still readable.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "platform/Registry.h"

namespace {

const char* const kKey = "Software\\Norvane\\Telmora\\QueueServer";

// Made once per process and removed at exit; kept on the heap so that it
// outlives the static destructors that run before the exit handler.
const std::string& RegistryPath() {
    static const std::string* path = [] {
        auto* made = new std::string("/tmp/telmoraq-registry-fuzz-" + std::to_string(getpid()) +
                                     ".reg");
        setenv("TELMORAQ_REGISTRY", made->c_str(), 1);
        std::atexit([] { std::remove(RegistryPath().c_str()); });
        return made;
    }();
    return *path;
}

std::string ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

void WriteAll(const std::string& path, const uint8_t* data, size_t size) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) return;
    std::fwrite(data, 1, size, file);
    std::fclose(file);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 65536) return 0;
    const std::string& path = RegistryPath();
    WriteAll(path, data, size);

    platform::RegistryValue value;
    for (const char* name : {"PickupDirectory", "ConnectTimeout", "EnableLogging", ""}) {
        platform::QueryRegistryValue(platform::HKEY_LOCAL_MACHINE, kKey, name, value, false);
    }
    platform::ProbeRegistryKey(platform::HKEY_CLASSES_ROOT, "MIME\\Database\\CodePage\\1252",
                               false);

    const std::string before = ReadAll(path);
    const uint32_t written = platform::SetRegistryString(platform::HKEY_LOCAL_MACHINE, kKey,
                                                         "LogDirectory", "/var/log/x\\\"y", false);
    if (written != 0) {
        if (ReadAll(path) != before) __builtin_trap();
        return 0;
    }
    platform::RegistryValue back;
    if (platform::QueryRegistryValue(platform::HKEY_LOCAL_MACHINE, kKey, "LogDirectory", back,
                                     false) != 0 ||
        back.data != std::string("/var/log/x\\\"y", 13) + '\0') {
        __builtin_trap();
    }
    return 0;
}

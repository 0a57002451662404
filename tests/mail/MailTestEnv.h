// MailTestEnv.h - a scratch registry and a time zone for one mail test
//
// The system code page and the MIME database live in the registry file, the
// zone in TZ; both are put back when the object goes.
#pragma once

#include <cstdlib>
#include <string>

#include "platform/CodePage.h"
#include "support/TestPaths.h"

namespace mailtest {

class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value) : name_(name) {
        const char* old = std::getenv(name);
        hadOld_ = old != nullptr;
        if (hadOld_) old_ = old;
        ::setenv(name, value, 1);
    }
    ~ScopedEnv() {
        if (hadOld_)
            ::setenv(name_.c_str(), old_.c_str(), 1);
        else
            ::unsetenv(name_.c_str());
    }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    std::string name_;
    std::string old_;
    bool hadOld_ = false;
};

// A registry file of the given body ("REGEDIT4" is put in front); the code
// page cache is dropped on the way in and out.
class ScratchRegistry {
public:
    explicit ScratchRegistry(const std::string& body = "")
        : path_(dir_.file("registry.reg")), env_("TELMORAQ_REGISTRY", path_.c_str()) {
        testsupport::WriteFile(path_, "REGEDIT4\r\n\r\n" + body);
        platform::ResetCodePageCacheForTest();
    }
    ~ScratchRegistry() { platform::ResetCodePageCacheForTest(); }

private:
    testsupport::TempDir dir_;
    std::string path_;
    ScopedEnv env_;
};

// The system code page as the registry keeps it.
inline std::string AcpSection(const char* codePage) {
    return std::string(
               "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Control\\Nls\\CodePage]\r\n"
               "\"ACP\"=\"") +
           codePage + "\"\r\n\r\n";
}

}  // namespace mailtest

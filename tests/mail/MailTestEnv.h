// MailTestEnv.h - a scratch registry for one mail test
//
// The system code page and the MIME database live in the registry file; the
// code page cache is dropped on the way in and out.
#pragma once

#include <string>

#include "platform/CodePage.h"
#include "support/RegistryTestEnv.h"

namespace mailtest {

using testsupport::EnvSetting;

// A registry file of the given body ("REGEDIT4" is put in front).
class ScratchRegistry {
public:
    explicit ScratchRegistry(const std::string& body = "") {
        testsupport::WriteFile(registry_.path(), "REGEDIT4\r\n\r\n" + body);
        platform::ResetCodePageCacheForTest();
    }
    ~ScratchRegistry() { platform::ResetCodePageCacheForTest(); }

private:
    testsupport::ScratchRegistry registry_;
};

// The system code page as the registry keeps it.
inline std::string AcpSection(const char* codePage) {
    return std::string("[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Control\\Nls\\CodePage]\r\n"
                       "\"ACP\"=\"") +
           codePage + "\"\r\n\r\n";
}

}  // namespace mailtest

// DebugDirTest.cpp - the debug folder from the environment
#include "platform/DebugDir.h"

#include <gtest/gtest.h>

#include "support/RegistryTestEnv.h"

TEST(DebugDir, NamedByTheEnvironmentWithADefault) {
    struct Case {
        const char* value;  // null: unset
        const char* wantDir;
        const char* wantFile;
    } cases[] = {
        {nullptr, "/var/tmp/nvdebug", "/var/tmp/nvdebug/trees.log"},
        {"", "/var/tmp/nvdebug", "/var/tmp/nvdebug/trees.log"},
        {"/tmp/dbg//", "/tmp/dbg", "/tmp/dbg/trees.log"},
        {"/", "/", "/trees.log"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.value ? c.value : "(unset)");
        testsupport::EnvSetting setting("TELMORAQ_DEBUG_DIR", c.value);
        EXPECT_EQ(c.wantDir, platform::DebugDir());
        EXPECT_EQ(c.wantFile, platform::DebugFile("trees.log"));
    }
}

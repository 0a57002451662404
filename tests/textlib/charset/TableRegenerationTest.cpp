// TableRegenerationTest.cpp - the committed tables are what the generator writes

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "support/TestPaths.h"

namespace {

std::set<std::string> FilesIn(const std::string& dir, const std::string& suffix) {
    std::set<std::string> names;
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(dir, ec)) {
        const std::string name = entry.path().filename().string();
        if (entry.path().extension() == suffix)
            names.insert(name);
    }
    return names;
}

}  // namespace

TEST(TableGenerator, RegeneratesTheCommittedSourcesByteForByte) {
    const char* env = std::getenv("TELMORAQ_PYTHON");
    const std::string python = env && *env ? env : "/usr/bin/python3";
    if (std::FILE* f = std::fopen(python.c_str(), "rb"))
        std::fclose(f);
    else
        GTEST_SKIP() << python << " not found: cannot run tools/tablegen/tablegen.py";
    if (std::system("perl -MEncode -e 1 2>/dev/null") != 0)
        GTEST_SKIP() << "perl with Encode not found: the generator needs it for two Apple pages";
    const std::string source = std::string(TELMORAQ_SOURCE_DIR);
    const std::string committed = source + "/src/textlib/charset/tables";
    testsupport::TempDir out;
    const std::string command = python + " " + source + "/tools/tablegen/tablegen.py " + out.path();
    ASSERT_EQ(std::system(command.c_str()), 0) << command;

    const std::set<std::string> generated = FilesIn(out.path(), ".cpp");
    EXPECT_EQ(generated, FilesIn(committed, ".cpp"));
    for (const std::string& name : generated) {
        SCOPED_TRACE(name);
        const std::string fresh = testsupport::ReadFile(out.file(name));
        EXPECT_FALSE(fresh.empty());
        EXPECT_TRUE(fresh == testsupport::ReadFile(committed + "/" + name))
            << "tables/" << name << " differs from a fresh run of the generator";
        EXPECT_LT(fresh.size(), 1u << 20);
    }
}

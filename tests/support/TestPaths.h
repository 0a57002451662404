// TestPaths.h - where tests find shared data, and scratch folders that clean up
//
// The real-world corpus and the benchmark inputs live in the shared workspace
// beside the checkout (../shared). Outside that workspace they are absent, and
// the tests that need them skip with a message rather than fail.
//
// See also: TestPaths.cpp
#pragma once

#include <string>
#include <vector>

namespace testsupport {

// The shared workspace folder, or "" when it is not there. The environment
// variable TELMORAQ_SHARED_DIR overrides the path fixed at build time.
std::string SharedDir();

// Every *.eml file of the real-world corpus, sorted; empty without the corpus.
std::vector<std::string> CorpusFiles();

// Reads a whole file; "" when it cannot be read.
std::string ReadFile(const std::string& path);

// Writes a whole file, creating or truncating it; false on any failure.
bool WriteFile(const std::string& path, const std::string& data);

// A fresh folder under $TMPDIR (or /tmp), removed with everything in it when
// the object goes.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return path_; }
    // path() + "/" + name
    std::string file(const std::string& name) const;

private:
    std::string path_;
};

}  // namespace testsupport

// Skips the current test when the shared workspace is missing.
#define SKIP_WITHOUT_SHARED_DIR()                                                  \
    do {                                                                           \
        if (testsupport::SharedDir().empty())                                      \
            GTEST_SKIP() << "shared workspace (../shared) not found: "            \
                            "corpus tests skipped";                                \
    } while (0)

// RegistryTestEnv.h - points the registry at a scratch file for one test
//
// Sets TELMORAQ_REGISTRY for the life of the object and puts it back after.
#pragma once

#include "support/TestPaths.h"

#include <cstdlib>
#include <string>

namespace testsupport {

class ScratchRegistry {
public:
    ScratchRegistry() : path_(dir_.file("registry.reg")) {
        const char* old = std::getenv("TELMORAQ_REGISTRY");
        hadOld_ = old != nullptr;
        if (hadOld_) old_ = old;
        ::setenv("TELMORAQ_REGISTRY", path_.c_str(), 1);
    }
    ~ScratchRegistry() {
        if (hadOld_)
            ::setenv("TELMORAQ_REGISTRY", old_.c_str(), 1);
        else
            ::unsetenv("TELMORAQ_REGISTRY");
    }
    const std::string& path() const { return path_; }
    const TempDir& dir() const { return dir_; }

private:
    TempDir dir_;
    std::string path_;
    std::string old_;
    bool hadOld_ = false;
};

}  // namespace testsupport

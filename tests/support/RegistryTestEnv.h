// RegistryTestEnv.h - environment settings for one test: any variable, and the
// registry pointed at a scratch file
#pragma once

#include "support/TestPaths.h"

#include <cstdlib>
#include <optional>
#include <string>

namespace testsupport {

// Sets (null: unsets) a variable for the life of the object; puts back what was there.
class EnvSetting {
public:
    EnvSetting(const char* name, const char* value) : name_(name) {
        if (const char* old = std::getenv(name)) old_ = old;
        Set(value);
    }
    ~EnvSetting() { Set(old_ ? old_->c_str() : nullptr); }
    EnvSetting(const EnvSetting&) = delete;
    EnvSetting& operator=(const EnvSetting&) = delete;

private:
    void Set(const char* value) {
        if (value != nullptr) ::setenv(name_.c_str(), value, 1);
        else ::unsetenv(name_.c_str());
    }
    std::string name_;
    std::optional<std::string> old_;
};

// TELMORAQ_REGISTRY names registry.reg in a fresh folder.
class ScratchRegistry {
public:
    const std::string& path() const { return path_; }
    const TempDir& dir() const { return dir_; }

private:
    TempDir dir_;
    std::string path_ = dir_.file("registry.reg");
    EnvSetting setting_{"TELMORAQ_REGISTRY", path_.c_str()};
};

}  // namespace testsupport

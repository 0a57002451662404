// TestPaths.cpp - see TestPaths.h
#include "TestPaths.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace testsupport {

std::string SharedDir() {
    const char* env = std::getenv("TELMORAQ_SHARED_DIR");
    std::string dir = env && *env ? env : TELMORAQ_SHARED_DIR;
    std::error_code ec;
    if (!fs::is_directory(dir, ec)) return "";
    return fs::weakly_canonical(dir, ec).string();
}

std::vector<std::string> CorpusFiles() {
    std::vector<std::string> files;
    const std::string shared = SharedDir();
    if (shared.empty()) return files;
    std::error_code ec;
    for (auto it = fs::recursive_directory_iterator(shared + "/corpus", ec);
         !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
        if (it->is_regular_file() && it->path().extension() == ".eml")
            files.push_back(it->path().string());
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return "";
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

bool WriteFile(const std::string& path, const std::string& data) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) return false;
    out.write(data.data(), static_cast<std::streamsize>(data.size()));
    return static_cast<bool>(out);
}

TempDir::TempDir() {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/telmoraq-test-XXXXXX";
    if (char* made = mkdtemp(pattern.data())) path_ = made;
}

TempDir::~TempDir() {
    if (path_.empty()) return;
    std::error_code ec;
    fs::remove_all(path_, ec);
}

std::string TempDir::file(const std::string& name) const { return path_ + "/" + name; }

}  // namespace testsupport

// ReplayMain.cpp - runs a fuzz target over saved inputs, without libFuzzer
//
// Every argument is a file or a folder (read recursively); each file goes once
// through LLVMFuzzerTestOneInput. This is how the kept corpus and every crasher
// run as ordinary tests in the normal and the sanitizer builds: a crash, a
// sanitizer report or a trap fails the test.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fs = std::filesystem;

static int RunFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                               std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    return 1;
}

int main(int argc, char** argv) {
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        std::error_code ec;
        if (fs::is_regular_file(argv[i], ec)) {
            count += RunFile(argv[i]);
            continue;
        }
        for (auto it = fs::recursive_directory_iterator(argv[i], ec);
             !ec && it != fs::recursive_directory_iterator(); it.increment(ec))
            if (it->is_regular_file()) count += RunFile(it->path());
    }
    std::printf("replayed %d inputs\n", count);
    return 0;
}

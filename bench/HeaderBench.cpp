// HeaderBench.cpp - header parsing and assembly over the headers of real mail
//
// The inputs are the headers of every message of the shared corpus (the text
// up to the first blank line), so the mix of encoded words, 8-bit bytes,
// folds and address lists is the one found in the wild. Throughput is in
// bytes of header text, for parsing and for assembling the parsed headers
// back (each in its own code page, as a node without a charset of its own
// would). Without the corpus every benchmark skips with a message.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "mime/MimeHeader.h"
#include "textlib/buffers/StringBuffer.h"
#include "textlib/charset/BkCharset.h"
#include "textlib/log/LogNull.h"

namespace fs = std::filesystem;
using brelkin::MimeHeader;
using brelkin::StringBuffer;

namespace {

std::string headerOf(const std::string& message) {
    size_t end = message.find("\r\n\r\n");
    if (end == std::string::npos) end = message.find("\n\n");
    std::string header = message.substr(0, end == std::string::npos ? message.size() : end);
    header.resize(std::min(header.size(), std::strlen(header.c_str())));
    return header + "\r\n\r\n";
}

const std::vector<std::string>& corpusHeaders() {
    static const std::vector<std::string> headers = [] {
        std::vector<std::string> out;
        std::error_code ec;
        const fs::path root = fs::path(TELMORAQ_SHARED_DIR) / "corpus";
        for (auto it = fs::recursive_directory_iterator(root, ec);
             !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
            if (!it->is_regular_file() || it->path().extension() != ".eml") continue;
            std::ifstream in(it->path(), std::ios::binary);
            std::string message((std::istreambuf_iterator<char>(in)),
                                std::istreambuf_iterator<char>());
            out.push_back(headerOf(message));
        }
        return out;
    }();
    return headers;
}

size_t totalBytes(const std::vector<std::string>& headers) {
    size_t total = 0;
    for (const auto& h : headers) total += h.size();
    return total;
}

void BM_HeaderParse(benchmark::State& state) {
    const auto& headers = corpusHeaders();
    if (headers.empty()) {
        state.SkipWithError("shared corpus not found: nothing to measure");
        return;
    }
    brelkin::LogNull log;
    MimeHeader header;
    for (auto _ : state) {
        for (const auto& text : headers) {
            header.ParseMimeHeader(text.c_str(), log, false);
            benchmark::DoNotOptimize(header.getNumFields());
        }
    }
    state.SetBytesProcessed(state.iterations() * totalBytes(headers));
    state.counters["headers"] = static_cast<double>(headers.size());
}

void BM_HeaderAssemble(benchmark::State& state) {
    const auto& headers = corpusHeaders();
    if (headers.empty()) {
        state.SkipWithError("shared corpus not found: nothing to measure");
        return;
    }
    brelkin::LogNull log;
    std::vector<std::unique_ptr<MimeHeader>> parsed;
    for (const auto& text : headers) {
        parsed.push_back(std::make_unique<MimeHeader>());
        parsed.back()->ParseMimeHeader(text.c_str(), log, false);
    }
    const brelkin::_bkCharset noCharset;
    StringBuffer out;
    for (auto _ : state) {
        for (auto& header : parsed) {
            out.clear();
            header->AssembleMimeHeader(out, nullptr, noCharset, false, log, false);
            benchmark::DoNotOptimize(out.getString());
        }
    }
    state.SetBytesProcessed(state.iterations() * totalBytes(headers));
}

BENCHMARK(BM_HeaderParse)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_HeaderAssemble)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

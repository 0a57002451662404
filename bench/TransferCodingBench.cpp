// TransferCodingBench.cpp - base64 and quoted-printable speed, with memcpy as the ceiling
//
// Every codec runs on 1 MiB and 16 MiB inputs; memcpy of the same sizes runs
// in the same binary, so the ratio of bytes per second is what counts. Output
// buffers are reused across iterations: growth is measured once, not each time.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "mime/ContentCoding.h"
#include "textlib/buffers/DataBuffer.h"
#include "textlib/buffers/StringBuffer.h"

using brelkin::ContentCoding;
using brelkin::DataBuffer;
using brelkin::StringBuffer;

namespace {

std::string randomBinary(size_t size) {
    std::mt19937 rng(12345);
    std::string s(size, '\0');
    for (char& c : s) c = static_cast<char>(rng() & 0xFF);
    return s;
}

// Mail-like text: words, CR LF lines of about 70 characters, and one byte in
// ten with the high bit set, as in Latin-1 or UTF-8 prose.
std::string mailText(size_t size) {
    std::mt19937 rng(54321);
    std::string s;
    s.reserve(size);
    size_t column = 0;
    while (s.size() < size) {
        unsigned r = rng() % 100;
        if (column > 70) {
            s += "\r\n";
            column = 0;
        } else if (r < 10) {
            s += static_cast<char>(0xC0 + rng() % 0x40);
            ++column;
        } else if (r < 25) {
            s += ' ';
            ++column;
        } else {
            s += static_cast<char>('a' + rng() % 26);
            ++column;
        }
    }
    s.resize(size);
    return s;
}

std::string base64Of(const std::string& data) {
    StringBuffer out;
    ContentCoding().encodeBase64(data.data(), static_cast<uint32_t>(data.size()), out);
    return std::string(out.getString(), out.getSize());
}

std::string quotedPrintableOf(const std::string& data) {
    StringBuffer out;
    ContentCoding().encodeQuotedPrintable(data.data(), static_cast<uint32_t>(data.size()), out);
    return std::string(out.getString(), out.getSize());
}

void BM_Memcpy(benchmark::State& state) {
    const std::string input = randomBinary(state.range(0));
    std::vector<char> out(input.size());
    for (auto _ : state) {
        std::memcpy(out.data(), input.data(), input.size());
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * input.size());
}

void BM_Base64Encode(benchmark::State& state) {
    const std::string input = randomBinary(state.range(0));
    ContentCoding coding;
    StringBuffer out;
    for (auto _ : state) {
        out.clear();
        benchmark::DoNotOptimize(
            coding.encodeBase64(input.data(), static_cast<uint32_t>(input.size()), out));
    }
    state.SetBytesProcessed(state.iterations() * input.size());
}

void BM_Base64Decode(benchmark::State& state) {
    const std::string input = base64Of(randomBinary(state.range(0)));
    ContentCoding coding;
    DataBuffer out;
    for (auto _ : state) {
        out.clear();
        benchmark::DoNotOptimize(
            coding.decodeBase64(input.data(), static_cast<uint32_t>(input.size()), out));
    }
    state.SetBytesProcessed(state.iterations() * input.size());
}

void BM_QuotedPrintableEncode(benchmark::State& state) {
    const std::string input = mailText(state.range(0));
    ContentCoding coding;
    StringBuffer out;
    for (auto _ : state) {
        out.clear();
        benchmark::DoNotOptimize(
            coding.encodeQuotedPrintable(input.data(), static_cast<uint32_t>(input.size()), out));
    }
    state.SetBytesProcessed(state.iterations() * input.size());
}

void BM_QuotedPrintableDecode(benchmark::State& state) {
    const std::string input = quotedPrintableOf(mailText(state.range(0)));
    ContentCoding coding;
    DataBuffer out;
    for (auto _ : state) {
        out.clear();
        benchmark::DoNotOptimize(
            coding.decodeQuotedPrintable(input.data(), static_cast<uint32_t>(input.size()), out));
    }
    state.SetBytesProcessed(state.iterations() * input.size());
}

}  // namespace

BENCHMARK(BM_Memcpy)->Arg(1 << 20)->Arg(16 << 20);
BENCHMARK(BM_Base64Encode)->Arg(1 << 20)->Arg(16 << 20);
BENCHMARK(BM_Base64Decode)->Arg(1 << 20)->Arg(16 << 20);
BENCHMARK(BM_QuotedPrintableEncode)->Arg(1 << 20)->Arg(16 << 20);
BENCHMARK(BM_QuotedPrintableDecode)->Arg(1 << 20)->Arg(16 << 20);

BENCHMARK_MAIN();

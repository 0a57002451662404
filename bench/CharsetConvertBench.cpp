// CharsetConvertBench.cpp - table conversions against glibc iconv on ~10 MB
//
// Each route runs on the same input through EncodingConvert and through
// iconv, in the same run, both writing into an output block kept between
// iterations; compare the bytes per second of each pair.

#include <iconv.h>

#include <cstring>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "textlib/buffers/DataBuffer.h"
#include "textlib/charset/EncodingConvert.h"

namespace {

constexpr size_t kInputSize = 10u << 20;

// Mail-like text: mostly ASCII with the page's own letters among it.
const char kLatinText[] =
    "Sehr geehrte Damen und Herren, die Gr\xC3\xBC\xC3\x9F" "e aus M\xC3\xBCnchen und die "
    "r\xC3\xA9sum\xC3\xA9s du caf\xC3\xA9 \xE2\x80\x93 \xE2\x82\xAC" "12,50 pro St\xC3\xBC" "ck.\r\n";
const char kJapaneseText[] =
    "\xE6\x9D\xB1\xE4\xBA\xAC\xE3\x81\xA7\xE4\xBC\x9A\xE8\xAD\xB0\xE3\x82\x92\xE9\x96\x8B"
    "\xE3\x81\x8D\xE3\x81\xBE\xE3\x81\x99\xE3\x80\x82\xE3\x83\x86\xE3\x82\xB9\xE3\x83\x88 "
    "mail 2026\xE5\xB9\xB4\xE3\x81\xAE\xE4\xBA\x88\xE5\xAE\x9A\xE3\x81\xA7\xE3\x81\x99\r\n";
const char kChineseText[] =
    "\xE6\x88\x91\xE4\xBB\xAC\xE5\x9C\xA8\xE5\x8C\x97\xE4\xBA\xAC\xE5\xBC\x80\xE4\xBC\x9A"
    "\xEF\xBC\x8C\xE8\xAF\xB7\xE5\x8F\x82\xE5\x8A\xA0\xE3\x80\x82 mail 2026 "
    "\xE4\xB8\xAD\xE6\x96\x87\xE9\x82\xAE\xE4\xBB\xB6\xE6\xB5\x8B\xE8\xAF\x95\r\n";

std::string Repeat(const char* unit) {
    std::string out;
    out.reserve(kInputSize + 256);
    while (out.size() < kInputSize)
        out += unit;
    return out;
}

// Converts once with iconv, for inputs in a legacy page.
std::string IconvOnce(const char* to, const std::string& utf8) {
    iconv_t cd = iconv_open(to, "UTF-8");
    std::string out(utf8.size() * 2, '\0');
    char* in = const_cast<char*>(utf8.data());
    size_t inLeft = utf8.size();
    char* outp = &out[0];
    size_t outLeft = out.size();
    iconv(cd, &in, &inLeft, &outp, &outLeft);
    iconv_close(cd);
    out.resize(out.size() - outLeft);
    return out;
}

struct Inputs {
    std::string latinUtf8 = Repeat(kLatinText);
    std::string latin1252 = IconvOnce("CP1252", latinUtf8);
    std::string japaneseSjis = IconvOnce("CP932", Repeat(kJapaneseText));
    std::string chineseUtf8 = Repeat(kChineseText);
};

const Inputs& GetInputs() {
    static const Inputs inputs;
    return inputs;
}

void RunOurs(benchmark::State& state, int from, int to, const std::string& input) {
    brelkin::DataBuffer out;
    for (auto _ : state) {
        out.clear();
        brelkin::EncodingConvert conv;
        benchmark::DoNotOptimize(
            conv.convert(from, to, input.data(), static_cast<uint32_t>(input.size()), out));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * input.size()));
}

void RunIconv(benchmark::State& state, const char* from, const char* to, const std::string& input) {
    iconv_t cd = iconv_open(to, from);
    std::vector<char> out(input.size() * 4);
    for (auto _ : state) {
        iconv(cd, nullptr, nullptr, nullptr, nullptr);
        char* in = const_cast<char*>(input.data());
        size_t inLeft = input.size();
        char* outp = out.data();
        size_t outLeft = out.size();
        benchmark::DoNotOptimize(iconv(cd, &in, &inLeft, &outp, &outLeft));
    }
    iconv_close(cd);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * input.size()));
}

void BM_Convert1252ToUtf8_10MB(benchmark::State& s) { RunOurs(s, 1252, 65001, GetInputs().latin1252); }
void BM_Iconv1252ToUtf8_10MB(benchmark::State& s) { RunIconv(s, "CP1252", "UTF-8", GetInputs().latin1252); }
void BM_ConvertUtf8To1252_10MB(benchmark::State& s) { RunOurs(s, 65001, 1252, GetInputs().latinUtf8); }
void BM_IconvUtf8To1252_10MB(benchmark::State& s) { RunIconv(s, "UTF-8", "CP1252", GetInputs().latinUtf8); }
void BM_ConvertShiftJisToUtf8_10MB(benchmark::State& s) { RunOurs(s, 932, 65001, GetInputs().japaneseSjis); }
void BM_IconvShiftJisToUtf8_10MB(benchmark::State& s) { RunIconv(s, "CP932", "UTF-8", GetInputs().japaneseSjis); }
void BM_ConvertUtf8ToGb2312_10MB(benchmark::State& s) { RunOurs(s, 65001, 936, GetInputs().chineseUtf8); }
void BM_IconvUtf8ToGb2312_10MB(benchmark::State& s) { RunIconv(s, "UTF-8", "CP936", GetInputs().chineseUtf8); }

}  // namespace

BENCHMARK(BM_Convert1252ToUtf8_10MB)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Iconv1252ToUtf8_10MB)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ConvertUtf8To1252_10MB)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_IconvUtf8To1252_10MB)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ConvertShiftJisToUtf8_10MB)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_IconvShiftJisToUtf8_10MB)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ConvertUtf8ToGb2312_10MB)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_IconvUtf8ToGb2312_10MB)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();

// MimeBench.cpp - the engine beside GMime 3: load and decode, and write-out
//
// Both sides run in one process on the same messages held in memory: the
// generated benchmark corpus (../shared/bench/gen_corpus.py, made on first
// use in $MIME_BENCH_DIR or /tmp/telmoraq-mime-bench) and the real-world
// corpus (../shared/corpus). "load" is parse plus the decoded value of every
// header field and the decoded bytes of every leaf (text as UTF-8, as our
// tree holds it); "write" serialises a tree parsed beforehand. After the runs
// a table gives MB/s, messages/s and our speed over GMime's for each pair.
//
// Limits: without GMime (bench/gmime_setup) only our side runs.
#include <benchmark/benchmark.h>

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "mime/ClsMime.h"
#include "mime/MimeField.h"
#include "mime/MimeHeader.h"
#include "mime/MimeMessage2.h"
#include "mime/SharedMime.h"
#include "textlib/buffers/DataBuffer.h"
#include "textlib/buffers/StringBuffer.h"
#include "textlib/log/LogNull.h"

#ifdef TELMORAQ_HAVE_GMIME
#include <gmime/gmime.h>
#endif

using brelkin::DataBuffer;
using brelkin::MimeMessage2;
using brelkin::StringBuffer;

namespace {

struct Corpus {
    std::vector<std::string> messages;
    double bytes = 0;
};

std::string readAll(const std::string& path) {
    std::string data;
    if (FILE* f = std::fopen(path.c_str(), "rb")) {
        char chunk[65536];
        size_t n;
        while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0) data.append(chunk, n);
        std::fclose(f);
    }
    return data;
}

void collectEml(const std::string& dir, std::vector<std::string>& paths) {
    DIR* d = opendir(dir.c_str());
    if (!d) return;
    while (dirent* e = readdir(d)) {
        const std::string name = e->d_name;
        if (name == "." || name == "..") continue;
        const std::string path = dir + "/" + name;
        struct stat st;
        if (stat(path.c_str(), &st) != 0) continue;
        if (S_ISDIR(st.st_mode))
            collectEml(path, paths);
        else if (name.size() > 4 && name.compare(name.size() - 4, 4, ".eml") == 0)
            paths.push_back(path);
    }
    closedir(d);
}

Corpus loadCorpus(const std::string& dir) {
    std::vector<std::string> paths;
    collectEml(dir, paths);
    std::sort(paths.begin(), paths.end());
    Corpus corpus;
    for (const std::string& path : paths) {
        corpus.messages.push_back(readAll(path));
        corpus.bytes += static_cast<double>(corpus.messages.back().size());
    }
    return corpus;
}

// The shared workspace; TELMORAQ_SHARED_DIR in the environment overrides the
// path fixed at build time.
std::string sharedDir() {
    const char* env = std::getenv("TELMORAQ_SHARED_DIR");
    return env && *env ? env : TELMORAQ_SHARED_DIR;
}

std::string generatedDir() {
    const char* env = std::getenv("MIME_BENCH_DIR");
    const std::string dir = env && *env ? env : "/tmp/telmoraq-mime-bench";
    std::vector<std::string> existing;
    collectEml(dir, existing);
    if (existing.empty()) {
        const std::string command =
            "/usr/bin/python3 '" + sharedDir() + "/bench/gen_corpus.py' '" + dir + "' >/dev/null";
        if (std::system(command.c_str()) != 0)
            std::fprintf(stderr, "MimeBench: could not generate %s\n", dir.c_str());
    }
    return dir;
}

const Corpus& corpus(int which) {
    static const Corpus generated = loadCorpus(generatedDir());
    static const Corpus real = loadCorpus(sharedDir() + "/corpus");
    return which == 0 ? generated : real;
}

const char* corpusName(int which) { return which == 0 ? "generated" : "real"; }

// False, with the run marked skipped, when the inputs are missing.
bool haveInputs(benchmark::State& state, const Corpus& c) {
    if (!c.messages.empty()) return true;
    state.SkipWithError("no input messages (see TELMORAQ_SHARED_DIR)");
    return false;
}

void setCounters(benchmark::State& state, const Corpus& c) {
    state.counters["MB/s"] = benchmark::Counter(c.bytes * state.iterations() / 1e6,
                                                benchmark::Counter::kIsRate);
    state.counters["msg/s"] = benchmark::Counter(
        static_cast<double>(c.messages.size()) * state.iterations(), benchmark::Counter::kIsRate);
}

// ---- ours ----

// Every decoded header value and every leaf body, as a caller would read them.
size_t readEverything(MimeMessage2& root, brelkin::LogBase& log) {
    size_t total = 0;
    std::vector<MimeMessage2*> stack{&root};
    StringBuffer value;
    DataBuffer body;
    while (!stack.empty()) {
        MimeMessage2* node = stack.back();
        stack.pop_back();
        brelkin::MimeHeader& header = node->getHeader();
        for (int i = 0; i < header.getNumFields(); ++i) {
            value.clear();
            node->getHeaderFieldDecoded(header.getFieldAt(i)->getName(), value);
            total += static_cast<size_t>(value.getSize());
        }
        if (node->numParts() == 0) {
            body.clear();
            node->getMimeBody8Bit(body, 0, log, false);
            total += body.getSize();
        }
        for (int i = node->numParts() - 1; i >= 0; --i) stack.push_back(node->getPart(i));
    }
    return total;
}

void BM_OursLoad(benchmark::State& state) {
    const Corpus& c = corpus(static_cast<int>(state.range(0)));
    if (!haveInputs(state, c)) return;
    brelkin::LogNull log;
    for (auto _ : state) {
        for (const std::string& message : c.messages) {
            brelkin::ClsMime mime;
            DataBuffer raw;
            raw.borrowData(message.data(), static_cast<uint32_t>(message.size()));
            mime.loadMimeData(raw);
            MimeMessage2* root = mime.lockTreeAndFindNode();
            benchmark::DoNotOptimize(readEverything(*root, log));
            mime.unlockTree();
        }
    }
    setCounters(state, c);
    state.SetLabel(corpusName(static_cast<int>(state.range(0))));
}

void BM_OursWrite(benchmark::State& state) {
    const Corpus& c = corpus(static_cast<int>(state.range(0)));
    if (!haveInputs(state, c)) return;
    brelkin::LogNull log;
    std::vector<std::unique_ptr<brelkin::ClsMime>> trees;
    for (const std::string& message : c.messages) {
        trees.push_back(std::make_unique<brelkin::ClsMime>());
        DataBuffer raw;
        raw.borrowData(message.data(), static_cast<uint32_t>(message.size()));
        trees.back()->loadMimeData(raw);
    }
    DataBuffer out;
    for (auto _ : state) {
        for (auto& tree : trees) {
            out.clear();
            MimeMessage2* root = tree->lockTreeAndFindNode();
            root->getMimeDb(out, log, false);
            tree->unlockTree();
            benchmark::DoNotOptimize(out.getData());
        }
    }
    setCounters(state, c);
    state.SetLabel(corpusName(static_cast<int>(state.range(0))));
}

BENCHMARK(BM_OursLoad)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_OursWrite)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MinTime(2.0);

#ifdef TELMORAQ_HAVE_GMIME

GMimeMessage* gmimeParse(const std::string& message) {
    GMimeStream* stream = g_mime_stream_mem_new_with_buffer(message.data(), message.size());
    GMimeParser* parser = g_mime_parser_new_with_stream(stream);
    GMimeMessage* parsed = g_mime_parser_construct_message(parser, nullptr);
    g_object_unref(parser);
    g_object_unref(stream);
    return parsed;
}

size_t gmimeHeaders(GMimeObject* object) {
    size_t total = 0;
    GMimeHeaderList* headers = g_mime_object_get_header_list(object);
    const int count = g_mime_header_list_get_count(headers);
    for (int i = 0; i < count; ++i) {
        GMimeHeader* header = g_mime_header_list_get_header_at(headers, i);
        if (const char* value = g_mime_header_get_value(header)) total += std::strlen(value);
    }
    return total;
}

// The leaf decoded as ours is stored: text converted to UTF-8, the rest raw.
size_t gmimeLeaf(GMimePart* part) {
    GMimeDataWrapper* content = g_mime_part_get_content(part);
    if (!content) return 0;
    GMimeStream* memory = g_mime_stream_mem_new();
    GMimeStream* target = memory;
    GMimeContentType* type = g_mime_object_get_content_type(GMIME_OBJECT(part));
    const char* charset = type ? g_mime_content_type_get_parameter(type, "charset") : nullptr;
    GMimeStream* filtered = nullptr;
    if (type && g_mime_content_type_is_type(type, "text", "*")) {
        filtered = g_mime_stream_filter_new(memory);
        GMimeFilter* filter = g_mime_filter_charset_new(charset ? charset : "us-ascii", "utf-8");
        if (filter) {
            g_mime_stream_filter_add(GMIME_STREAM_FILTER(filtered), filter);
            g_object_unref(filter);
        }
        target = filtered;
    }
    g_mime_data_wrapper_write_to_stream(content, target);
    g_mime_stream_flush(target);
    const size_t size = GMIME_STREAM_MEM(memory)->buffer->len;
    if (filtered) g_object_unref(filtered);
    g_object_unref(memory);
    return size;
}

void gmimeVisit(GMimeObject*, GMimeObject* part, gpointer total) {
    size_t* sum = static_cast<size_t*>(total);
    *sum += gmimeHeaders(part);
    if (GMIME_IS_PART(part)) *sum += gmimeLeaf(GMIME_PART(part));
}

void BM_GMimeLoad(benchmark::State& state) {
    const Corpus& c = corpus(static_cast<int>(state.range(0)));
    if (!haveInputs(state, c)) return;
    for (auto _ : state) {
        for (const std::string& message : c.messages) {
            GMimeMessage* parsed = gmimeParse(message);
            if (!parsed) continue;
            size_t total = gmimeHeaders(GMIME_OBJECT(parsed));
            g_mime_message_foreach(parsed, gmimeVisit, &total);
            benchmark::DoNotOptimize(total);
            g_object_unref(parsed);
        }
    }
    setCounters(state, c);
    state.SetLabel(corpusName(static_cast<int>(state.range(0))));
}

void BM_GMimeWrite(benchmark::State& state) {
    const Corpus& c = corpus(static_cast<int>(state.range(0)));
    if (!haveInputs(state, c)) return;
    std::vector<GMimeMessage*> trees;
    for (const std::string& message : c.messages) trees.push_back(gmimeParse(message));
    GByteArray* bytes = g_byte_array_new();
    for (auto _ : state) {
        for (GMimeMessage* tree : trees) {
            if (!tree) continue;
            g_byte_array_set_size(bytes, 0);
            GMimeStream* out = g_mime_stream_mem_new_with_byte_array(bytes);
            g_mime_stream_mem_set_owner(GMIME_STREAM_MEM(out), FALSE);
            g_mime_object_write_to_stream(GMIME_OBJECT(tree), nullptr, out);
            g_object_unref(out);
            benchmark::DoNotOptimize(bytes->data);
        }
    }
    g_byte_array_free(bytes, TRUE);
    for (GMimeMessage* tree : trees)
        if (tree) g_object_unref(tree);
    setCounters(state, c);
    state.SetLabel(corpusName(static_cast<int>(state.range(0))));
}

BENCHMARK(BM_GMimeLoad)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_GMimeWrite)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MinTime(2.0);

#endif

// Keeps each run's rates so that the pairs can be set side by side.
class PairReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            auto mb = run.counters.find("MB/s");
            auto msg = run.counters.find("msg/s");
            if (mb != run.counters.end() && msg != run.counters.end())
                m_rates[run.benchmark_name()] = {mb->second.value, msg->second.value};
        }
        ConsoleReporter::ReportRuns(runs);
    }

    void printRatios() const {
        std::printf("\n%-10s %-6s %12s %12s %12s %12s %8s\n", "corpus", "step", "ours MB/s",
                    "GMime MB/s", "ours msg/s", "GMime msg/s", "ratio");
        for (int which = 0; which < 2; ++which) {
            for (const char* step : {"Load", "Write"}) {
                const std::string arg = "/" + std::to_string(which) + "/min_time:2.000";
                auto ours = m_rates.find(std::string("BM_Ours") + step + arg);
                auto theirs = m_rates.find(std::string("BM_GMime") + step + arg);
                if (ours == m_rates.end()) continue;
                const bool peer = theirs != m_rates.end();
                std::printf("%-10s %-6s %12.1f %12.1f %12.0f %12.0f %8.2f\n", corpusName(which),
                            step, ours->second.first, peer ? theirs->second.first : 0.0,
                            ours->second.second, peer ? theirs->second.second : 0.0,
                            peer ? ours->second.first / theirs->second.first : 0.0);
            }
        }
    }

private:
    std::map<std::string, std::pair<double, double>> m_rates;
};

}  // namespace

int main(int argc, char** argv) {
#ifdef TELMORAQ_HAVE_GMIME
    g_mime_init();
#endif
    benchmark::Initialize(&argc, argv);
    PairReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatios();
    benchmark::Shutdown();
#ifdef TELMORAQ_HAVE_GMIME
    g_mime_shutdown();
#endif
    return 0;
}

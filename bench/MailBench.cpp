// MailBench.cpp - load + compose of whole messages, beside GMime doing the like
//
// Input is the generated benchmark corpus (500 messages, about 37 MB): the
// folder named by TELMORAQ_BENCH_CORPUS, else one made once with
// ../shared/bench/gen_corpus.py under $TMPDIR/telmoraq-bench-corpus.
//   BM_MailLoadCompose: CNvMail::LoadFromFile, Compose, GetMimeText per file.
//   BM_GMimeParseRebuild: GMime 3 parses the same file, decodes every leaf
//     and the address and subject headers, builds a new message from the
//     decoded texts and the old attachment parts, and writes it out.
// Both report messages/s (items) and MB/s of stored input (bytes), by CPU
// time, as the machine is shared; compare the two figures of one run, never
// against another machine.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "mail/NvMail.h"

#ifdef TELMORAQ_HAVE_GMIME
#include <fcntl.h>
#include <gmime/gmime.h>
#endif

namespace {

namespace fs = std::filesystem;

struct Corpus {
    std::vector<std::string> files;
    int64_t bytes = 0;
    std::string error;
};

std::string CorpusDir() {
    if (const char* dir = std::getenv("TELMORAQ_BENCH_CORPUS")) return dir;
    const char* tmp = std::getenv("TMPDIR");
    const std::string dir = std::string(tmp != nullptr ? tmp : "/tmp") + "/telmoraq-bench-corpus";
    if (!fs::exists(dir + "/.complete")) {
        const std::string command = std::string("/usr/bin/python3 ") + TELMORAQ_SHARED_DIR +
                                    "/bench/gen_corpus.py " + dir + " >/dev/null && touch " + dir +
                                    "/.complete";
        if (std::system(command.c_str()) != 0) return "";
    }
    return dir;
}

const Corpus& TheCorpus() {
    static const Corpus corpus = [] {
        Corpus c;
        const std::string dir = CorpusDir();
        std::error_code ec;
        if (dir.empty() || !fs::is_directory(dir, ec)) {
            c.error = "no benchmark corpus (gen_corpus.py failed or ../shared is absent)";
            return c;
        }
        for (const auto& entry : fs::recursive_directory_iterator(dir, ec)) {
            if (!entry.is_regular_file() || entry.path().extension() != ".eml") continue;
            c.files.push_back(entry.path().string());
            c.bytes += static_cast<int64_t>(entry.file_size());
        }
        std::sort(c.files.begin(), c.files.end());
        if (c.files.empty()) c.error = "benchmark corpus folder is empty";
        return c;
    }();
    return corpus;
}

void Report(benchmark::State& state, const Corpus& corpus) {
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(corpus.files.size()));
    state.SetBytesProcessed(state.iterations() * corpus.bytes);
}

void BM_MailLoadCompose(benchmark::State& state) {
    const Corpus& corpus = TheCorpus();
    if (!corpus.error.empty()) {
        state.SkipWithError(corpus.error.c_str());
        return;
    }
    CNvMail mail("CNvMail");  // one object for all files, as the worker has
    CNvcString text;
    for (auto _ : state) {
        for (const std::string& file : corpus.files) {
            if (mail.LoadFromFile(file.c_str()) != 0) {
                state.SkipWithError(("cannot load " + file).c_str());
                return;
            }
            mail.Compose();
            mail.GetMimeText(text);
            benchmark::DoNotOptimize(text.GetData());
        }
    }
    Report(state, corpus);
}
BENCHMARK(BM_MailLoadCompose)->Unit(benchmark::kMillisecond)->MinTime(3.0);

#ifdef TELMORAQ_HAVE_GMIME

// Decoded content of a leaf, written to a memory stream.
GByteArray* DecodedContent(GMimePart* part) {
    GMimeDataWrapper* content = g_mime_part_get_content(part);
    GMimeStream* out = g_mime_stream_mem_new();
    if (content != nullptr) g_mime_data_wrapper_write_to_stream(content, out);
    GByteArray* bytes = g_byte_array_new();
    g_byte_array_append(bytes, GMIME_STREAM_MEM(out)->buffer->data,
                        GMIME_STREAM_MEM(out)->buffer->len);
    g_object_unref(out);
    return bytes;
}

struct Reduced {
    std::string plain;
    std::string html;
    std::vector<GMimeObject*> attachments;  // referenced
};

void CollectParts(GMimeObject* parent, GMimeObject* part, gpointer data) {
    (void)parent;
    Reduced& reduced = *static_cast<Reduced*>(data);
    if (!GMIME_IS_PART(part)) return;
    GMimeContentType* type = g_mime_object_get_content_type(part);
    GByteArray* bytes = DecodedContent(GMIME_PART(part));
    const bool named = g_mime_part_get_filename(GMIME_PART(part)) != nullptr;
    if (!named && g_mime_content_type_is_type(type, "text", "plain")) {
        reduced.plain.assign(reinterpret_cast<char*>(bytes->data), bytes->len);
    } else if (!named && g_mime_content_type_is_type(type, "text", "html")) {
        reduced.html.assign(reinterpret_cast<char*>(bytes->data), bytes->len);
    } else {
        reduced.attachments.push_back(GMIME_OBJECT(g_object_ref(part)));
    }
    g_byte_array_unref(bytes);
}

void AddTextPart(GMimeMultipart* parent, const char* subtype, const std::string& text) {
    GMimeTextPart* part = g_mime_text_part_new_with_subtype(subtype);
    g_mime_text_part_set_text(part, text.c_str());
    g_mime_multipart_add(parent, GMIME_OBJECT(part));
    g_object_unref(part);
}

void CopyAddresses(GMimeMessage* from, GMimeMessage* to, GMimeAddressType type) {
    InternetAddressList* list = g_mime_message_get_addresses(from, type);
    char* text = internet_address_list_to_string(list, nullptr, FALSE);  // decoded
    if (text != nullptr) internet_address_list_append(g_mime_message_get_addresses(to, type), list);
    g_free(text);
}

GMimeMessage* Rebuild(GMimeMessage* stored, Reduced& reduced) {
    GMimeMessage* message = g_mime_message_new(TRUE);
    for (GMimeAddressType type :
         {GMIME_ADDRESS_TYPE_FROM, GMIME_ADDRESS_TYPE_REPLY_TO, GMIME_ADDRESS_TYPE_TO,
          GMIME_ADDRESS_TYPE_CC, GMIME_ADDRESS_TYPE_BCC})
        CopyAddresses(stored, message, type);
    const char* subject = g_mime_message_get_subject(stored);
    if (subject != nullptr) g_mime_message_set_subject(message, subject, "utf-8");
    GDateTime* now = g_date_time_new_now_local();
    g_mime_message_set_date(message, now);
    g_date_time_unref(now);
    GMimeMultipart* mixed = g_mime_multipart_new_with_subtype("mixed");
    GMimeMultipart* alternative = g_mime_multipart_new_with_subtype("alternative");
    AddTextPart(alternative, "plain", reduced.plain);
    AddTextPart(alternative, "html", reduced.html);
    g_mime_multipart_add(mixed, GMIME_OBJECT(alternative));
    g_object_unref(alternative);
    for (GMimeObject* attachment : reduced.attachments) {
        g_mime_multipart_add(mixed, attachment);
        g_object_unref(attachment);
    }
    g_mime_message_set_mime_part(message, GMIME_OBJECT(mixed));
    g_object_unref(mixed);
    return message;
}

void BM_GMimeParseRebuild(benchmark::State& state) {
    const Corpus& corpus = TheCorpus();
    if (!corpus.error.empty()) {
        state.SkipWithError(corpus.error.c_str());
        return;
    }
    g_mime_init();
    for (auto _ : state) {
        for (const std::string& file : corpus.files) {
            const int fd = ::open(file.c_str(), O_RDONLY);
            GMimeStream* in = g_mime_stream_fs_new(fd);
            GMimeParser* parser = g_mime_parser_new_with_stream(in);
            GMimeMessage* stored = g_mime_parser_construct_message(parser, nullptr);
            g_object_unref(parser);
            g_object_unref(in);
            if (stored == nullptr) {
                state.SkipWithError(("GMime cannot parse " + file).c_str());
                return;
            }
            Reduced reduced;
            g_mime_message_foreach(stored, CollectParts, &reduced);
            GMimeMessage* rebuilt = Rebuild(stored, reduced);
            GMimeStream* out = g_mime_stream_mem_new();
            g_mime_object_write_to_stream(GMIME_OBJECT(rebuilt), nullptr, out);
            benchmark::DoNotOptimize(GMIME_STREAM_MEM(out)->buffer->len);
            g_object_unref(out);
            g_object_unref(rebuilt);
            g_object_unref(stored);
        }
    }
    Report(state, corpus);
}
BENCHMARK(BM_GMimeParseRebuild)->Unit(benchmark::kMillisecond)->MinTime(3.0);

#endif  // TELMORAQ_HAVE_GMIME

}  // namespace

BENCHMARK_MAIN();

// MimeTool.cpp - telmoraq-mime: a message as the engine reads and writes it
//
// For developers and administrators who want to know why a queue file came
// out as it did: the header fields as parsed, the tree of parts with their
// types and charsets, one part's decoded body, or the whole message as the
// engine writes it again. Input is a file or standard input; loading takes the
// same road as a queue file (UTF-16LE files and headerless multiparts are
// repaired first).
//
// Input:       any bytes.
// Diagnostics: exit status 0, 1 for a load or path failure, 2 for usage;
//              --verbose prints the engine's log to standard error.
// Limits:      the whole input is held in memory, about three times over.
// See also:    src/mime/ClsMime.h, src/mime/MimeMessage2.h, src/mime/MimeHeader.h
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "mime/ClsMime.h"
#include "mime/MimeField.h"
#include "mime/MimeHeader.h"
#include "mime/MimeMessage2.h"
#include "mime/SharedMime.h"
#include "textlib/buffers/DataBuffer.h"
#include "textlib/buffers/StringBuffer.h"
#include "textlib/charset/BkCharset.h"
#include "textlib/log/Logger.h"

using brelkin::ClsMime;
using brelkin::DataBuffer;
using brelkin::MimeMessage2;
using brelkin::StringBuffer;

namespace {

const char kUsage[] =
    "usage: telmoraq-mime [MODE] [--verbose] [FILE]\n"
    "  FILE absent or \"-\": standard input\n"
    "modes:\n"
    "  --header      header fields as parsed (name, decoded UTF-8 value), the code page\n"
    "                detected for the header, and the header as the engine writes it\n"
    "  --tree        one line per node: path, content type, charset, encoding, name,\n"
    "                file name, body size (the default)\n"
    "  --body PATH   decoded body of one node, as stored (UTF-8 for text), to stdout;\n"
    "                PATH is \".\" for the top node, \"0.1\" for its first part's second part\n"
    "  --write       the message as the engine writes it again\n"
    "  --json        every node as one JSON line, bodies in hex (for scripts)\n";

struct Options {
    std::string mode = "--tree";
    std::string path = "-";
    std::string bodyPath;
    bool verbose = false;
};

bool parseArgs(int argc, char** argv, Options& options) {
    bool haveFile = false;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--verbose") {
            options.verbose = true;
        } else if (arg == "--header" || arg == "--tree" || arg == "--write" || arg == "--json") {
            options.mode = arg;
        } else if (arg == "--body" && i + 1 < argc) {
            options.mode = arg;
            options.bodyPath = argv[++i];
        } else if ((arg == "-" || arg[0] != '-') && !haveFile) {
            options.path = arg;
            haveFile = true;
        } else {
            return false;
        }
    }
    return true;
}

bool readInput(const std::string& path, DataBuffer& out) {
    FILE* file = path == "-" ? stdin : std::fopen(path.c_str(), "rb");
    if (!file) return false;
    char chunk[65536];
    size_t count;
    bool ok = true;
    while ((count = std::fread(chunk, 1, sizeof chunk, file)) > 0)
        ok = ok && out.append(chunk, static_cast<uint32_t>(count));
    ok = ok && !std::ferror(file);
    if (file != stdin) std::fclose(file);
    return ok;
}

void writeBytes(const void* bytes, size_t count) { std::fwrite(bytes, 1, count, stdout); }

void writeText(const std::string& text) { writeBytes(text.data(), text.size()); }

void printLog(brelkin::Logger& log) {
    StringBuffer text;
    log.getText(text);
    std::fprintf(stderr, "%s\n", text.getString());
}

// ---- header mode ----

int showHeader(const DataBuffer& input, brelkin::Logger& log, bool verbose) {
    // The whole message goes in: a charset named anywhere in it may decide
    // the header's code page.
    std::string text(reinterpret_cast<const char*>(input.getData()), input.getSize());
    brelkin::MimeHeader header;
    header.ParseMimeHeader(text.c_str(), log, verbose);
    for (int i = 0; i < header.getNumFields(); ++i) {
        const brelkin::MimeField* field = header.getFieldAt(i);
        StringBuffer value;
        field->getValue(value);
        writeText(std::string(field->getName()) + ": " + value.getString() + "\n");
    }
    writeText("\ncode page: " + std::to_string(header.getCodePage()) + "\n\n");
    StringBuffer assembled;
    const brelkin::_bkCharset noCharset;
    header.AssembleMimeHeader(assembled, nullptr, noCharset, false, log, verbose);
    writeBytes(assembled.getString(), static_cast<size_t>(assembled.getSize()));
    writeText("\n");
    return 0;
}

// ---- tree modes ----

struct NodeAt {
    MimeMessage2* node;
    std::string path;
    int depth;
};

// Depth first, parents before their parts, without recursion: a hostile
// message may nest deeply.
std::vector<NodeAt> listNodes(MimeMessage2& root) {
    std::vector<NodeAt> nodes;
    std::vector<NodeAt> stack{{&root, ".", 0}};
    while (!stack.empty()) {
        NodeAt at = stack.back();
        stack.pop_back();
        nodes.push_back(at);
        for (int i = at.node->numParts() - 1; i >= 0; --i) {
            std::string path = at.path == "." ? std::to_string(i) : at.path + "." + std::to_string(i);
            stack.push_back({at.node->getPart(i), path, at.depth + 1});
        }
    }
    return nodes;
}

MimeMessage2* findByPath(MimeMessage2& root, const std::string& path) {
    if (path == ".") return &root;
    MimeMessage2* node = &root;
    size_t start = 0;
    while (node && start <= path.size()) {
        size_t dot = path.find('.', start);
        if (dot == std::string::npos) dot = path.size();
        const std::string index = path.substr(start, dot - start);
        if (index.empty() || index.find_first_not_of("0123456789") != std::string::npos)
            return nullptr;
        node = node->getPart(std::atoi(index.c_str()));
        start = dot + 1;
    }
    return node;
}

std::string field(const StringBuffer& value) { return value.getString(); }

void showTree(MimeMessage2& root) {
    for (const NodeAt& at : listNodes(root)) {
        MimeMessage2& node = *at.node;
        std::string line(static_cast<size_t>(at.depth) * 2, ' ');
        line += at.path + "  " + (*node.getContentTypeText() ? node.getContentTypeText() : "-");
        const char* charset = node.getCharset().getName();
        if (charset && *charset) line += "  charset=" + std::string(charset);
        if (node.getEncoding().getSize()) line += "  encoding=" + field(node.getEncoding());
        StringBuffer name, filename;
        node.getName(name);
        node.getFilename(filename);
        if (name.getSize()) line += "  name=\"" + field(name) + "\"";
        if (filename.getSize()) line += "  filename=\"" + field(filename) + "\"";
        line += "  body=" + std::to_string(node.getBody().getSize()) + "\n";
        writeText(line);
    }
}

std::string jsonString(const char* text) {
    static const char hex[] = "0123456789abcdef";
    std::string out = "\"";
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); p && *p; ++p) {
        if (*p == '"' || *p == '\\') {
            out += '\\';
            out += static_cast<char>(*p);
        } else if (*p < 0x20) {
            out += "\\u00";
            out += hex[*p >> 4];
            out += hex[*p & 15];
        } else {
            out += static_cast<char>(*p);
        }
    }
    return out + "\"";
}

std::string hexBytes(const DataBuffer& data) {
    static const char hex[] = "0123456789abcdef";
    std::string out;
    out.reserve(data.getSize() * 2);
    const uint8_t* p = data.getData();
    for (uint32_t i = 0; i < data.getSize(); ++i) {
        out += hex[p[i] >> 4];
        out += hex[p[i] & 15];
    }
    return out;
}

void showJson(MimeMessage2& root) {
    for (const NodeAt& at : listNodes(root)) {
        MimeMessage2& node = *at.node;
        StringBuffer name, filename;
        node.getName(name);
        node.getFilename(filename);
        std::string line = "{\"path\": " + jsonString(at.path.c_str());
        line += ", \"parts\": " + std::to_string(node.numParts());
        line += ", \"content_type\": " + jsonString(node.getContentTypeText());
        line += ", \"charset\": " + jsonString(node.getCharset().getName());
        line += ", \"encoding\": " + jsonString(node.getEncoding().getString());
        line += ", \"disposition\": " + jsonString(node.getDisposition().getString());
        line += ", \"name\": " + jsonString(name.getString());
        line += ", \"filename\": " + jsonString(filename.getString());
        line += ", \"body\": \"" + hexBytes(node.getBody()) + "\"}\n";
        writeText(line);
    }
}

int showBody(MimeMessage2& root, const std::string& path, brelkin::Logger& log, bool verbose) {
    MimeMessage2* node = findByPath(root, path);
    if (!node) {
        std::fprintf(stderr, "telmoraq-mime: no node at %s\n", path.c_str());
        return 1;
    }
    DataBuffer body;
    node->getMimeBody8Bit(body, 0, log, verbose);
    writeBytes(body.getData(), body.getSize());
    return 0;
}

int runTreeMode(const Options& options, const DataBuffer& input) {
    ClsMime mime;
    mime.setVerbose(options.verbose);
    if (!mime.loadMimeData(input)) {
        std::fprintf(stderr, "telmoraq-mime: the engine refused the input\n");
        if (options.verbose) printLog(mime.getLog());
        return 1;
    }
    brelkin::Logger& log = mime.getLog();
    MimeMessage2* root = mime.lockTreeAndFindNode();
    int status = 0;
    if (options.mode == "--tree") {
        showTree(*root);
    } else if (options.mode == "--json") {
        showJson(*root);
    } else if (options.mode == "--body") {
        status = showBody(*root, options.bodyPath, log, options.verbose);
    } else {
        DataBuffer text;
        root->getMimeDb(text, log, options.verbose);
        writeBytes(text.getData(), text.getSize());
    }
    mime.unlockTree();
    if (options.verbose) printLog(log);
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!parseArgs(argc, argv, options)) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    DataBuffer input;
    if (!readInput(options.path, input)) {
        std::fprintf(stderr, "telmoraq-mime: cannot read %s\n", options.path.c_str());
        return 1;
    }
    if (options.mode == "--header") {
        brelkin::Logger log;
        const int status = showHeader(input, log, options.verbose);
        if (options.verbose) printLog(log);
        return status;
    }
    return runTreeMode(options, input);
}

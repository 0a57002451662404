// ErrorLog.cpp - the engine's log tree and the stack of its open contexts
//
// See ErrorLog.h
#include "textlib/log/ErrorLog.h"

#include <vector>

#include "textlib/buffers/StringBuffer.h"
#include "textlib/log/LogEntry2.h"

namespace brelkin {

namespace {

const char kRootName[] = "BrelkinLog";
const char kCrlf[] = "\r\n";

// CDATA is needed for bytes that would break the XML, unless the value
// carries its own CDATA section.
bool needsCdata(const char* value) {
    StringBuffer text(value);
    if (text.contains("<![CDATA[") && text.contains("]]>")) return false;
    for (const char* p = value; *p; ++p) {
        if (*p == '\n' || *p == '\t' || *p == '&' || *p == '>' || *p == '<') return true;
    }
    return false;
}

void appendXmlValue(StringBuffer& out, const char* value) {
    if (!needsCdata(value)) {
        out.append(value);
        return;
    }
    out.append("<![CDATA[");
    out.append(value);
    out.append("]]>");
}

void appendEntities(StringBuffer& out, const char* value) {
    StringBuffer copy(value);
    copy.encodeXmlEntities();
    out.appendBuffer(copy);
}

// The line of a leaf entry, or the opening line of a context.
void openXml(const LogEntry2& entry, StringBuffer& out) {
    const char* name = entry.name();
    const char* value = entry.value();
    switch (entry.type()) {
    case LogEntry2::kError:
    case LogEntry2::kInfo:
        if (!value) return;
        out.append(entry.type() == LogEntry2::kError ? "<error>" : "<info>");
        appendXmlValue(out, value);
        out.append(entry.type() == LogEntry2::kError ? "</error>" : "</info>");
        out.append(kCrlf);
        return;
    case LogEntry2::kRaw:
        if (!value) return;
        out.append(value);
        out.append(kCrlf);
        return;
    case LogEntry2::kTagged:
        if (!name || !value) return;
        out.append("<"); out.append(name); out.append(">");
        appendXmlValue(out, value);
        out.append("</"); out.append(name); out.append(">"); out.append(kCrlf);
        return;
    case LogEntry2::kContext:
        if (!name) return;
        out.append("<"); out.append(name); out.append(">"); out.append(kCrlf);
        return;
    }
}

void closeXml(const LogEntry2& context, StringBuffer& out) {
    if (!context.name()) return;
    out.append("</"); out.append(context.name()); out.append(">"); out.append(kCrlf);
}

void openHtml(const LogEntry2& entry, StringBuffer& out) {
    const char* name = entry.name();
    const char* value = entry.value();
    switch (entry.type()) {
    case LogEntry2::kError:
    case LogEntry2::kInfo:
    case LogEntry2::kRaw:
        if (!value) return;
        appendEntities(out, value);
        out.append("<br>"); out.append(kCrlf);
        return;
    case LogEntry2::kTagged:
        if (!name || !value) return;
        out.append(name); out.append(": ");
        appendEntities(out, value);
        out.append("<br>"); out.append(kCrlf);
        return;
    case LogEntry2::kContext:
        if (!name) return;
        out.append(name); out.append(":<blockquote>"); out.append(kCrlf);
        return;
    }
}

void closeHtml(const LogEntry2& context, StringBuffer& out) {
    if (!context.name()) return;
    out.append("</blockquote>"); out.append(kCrlf);
}

void openText(const LogEntry2& entry, int level, StringBuffer& out) {
    const char* name = entry.name();
    const char* value = entry.value();
    switch (entry.type()) {
    case LogEntry2::kError:
    case LogEntry2::kInfo:
    case LogEntry2::kRaw:
        if (!value) return;
        out.appendCharN(' ', 2 * level);
        out.append(value); out.append(kCrlf);
        return;
    case LogEntry2::kTagged:
        if (!name || !value) return;
        out.appendCharN(' ', 2 * level);
        out.append(name); out.append(": "); out.append(value); out.append(kCrlf);
        return;
    case LogEntry2::kContext:
        if (!name) return;
        out.appendCharN(' ', 2 * level);
        out.append(name); out.append(":"); out.append(kCrlf);
        return;
    }
}

}  // namespace

ErrorLog::ErrorLog() { reset(); }

ErrorLog::~ErrorLog() { destroyTree(); }

LogEntry2* ErrorLog::top() const { return static_cast<LogEntry2*>(m_stack.getLast()); }

void ErrorLog::addEntry(char type, const char* name, const char* value) {
    LogEntry2* parent = top();
    LogEntry2* entry = LogEntry2::create(type, name, value);
    if (!parent || !entry) {
        delete entry;
        return;
    }
    parent->appendChild(entry);
}

void ErrorLog::pushContext(const char* name) {
    LogEntry2* parent = top();
    LogEntry2* context = LogEntry2::create(LogEntry2::kContext, name, nullptr);
    if (!parent || !context) {
        delete context;
        return;
    }
    int before = parent->childCount();
    parent->appendChild(context);
    if (parent->childCount() == before) return;  // dropped for want of memory
    int depth = m_stack.getSize();
    m_stack.append(context);
    // A context that cannot be the open one would make the matching pop close
    // its parent; take it out of the tree again instead.
    if (m_stack.getSize() == depth) parent->dropEmptyLastContext();
}

void ErrorLog::popContext() {
    if (m_stack.getSize() <= 1) return;
    m_stack.pop();
    if (m_stack.getSize() <= 1) return;  // an empty context right under the root stays
    top()->dropEmptyLastContext();
}

void ErrorLog::destroyTree() {
    delete static_cast<LogEntry2*>(m_stack.getAt(0));
    m_stack.clearWithoutDelete();
}

void ErrorLog::reset() {
    destroyTree();
    LogEntry2* root = LogEntry2::create(LogEntry2::kContext, kRootName, nullptr);
    if (root) m_stack.append(root);
}

void ErrorLog::renderXml(StringBuffer& out) const { render(Form::Xml, out); }
void ErrorLog::renderHtml(StringBuffer& out) const { render(Form::Html, out); }
void ErrorLog::renderText(StringBuffer& out) const { render(Form::Text, out); }

// Depth first with an explicit stack of (context, next child) pairs.
void ErrorLog::render(Form form, StringBuffer& out) const {
    out.clear();
    const LogEntry2* root = static_cast<const LogEntry2*>(m_stack.getAt(0));
    if (!root) return;
    struct Frame {
        const LogEntry2* context;
        int next;
    };
    std::vector<Frame> path;
    auto open = [&](const LogEntry2& entry) {
        int level = static_cast<int>(path.size());
        if (form == Form::Xml) openXml(entry, out);
        else if (form == Form::Html) openHtml(entry, out);
        else openText(entry, level, out);
        if (entry.isContext()) path.push_back({&entry, 0});
    };
    open(*root);
    while (!path.empty()) {
        Frame& frame = path.back();
        if (frame.next < frame.context->childCount()) {
            const LogEntry2* child = frame.context->childAt(frame.next++);
            if (child) open(*child);
            continue;
        }
        const LogEntry2* done = frame.context;
        path.pop_back();
        if (form == Form::Xml) closeXml(*done, out);
        else if (form == Form::Html) closeHtml(*done, out);
    }
}

}  // namespace brelkin

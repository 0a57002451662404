// ErrorLog.h - the engine's log tree and the stack of its open contexts
//
// Element 0 of the stack is the root, a context named "BrelkinLog" that is
// always there; the last element is the open context, under which new entries
// go. Renders the tree as XML, HTML or indented text, depth first in order of
// insertion, every line ended by CR LF.
//
// Input:       any texts; XML values that need it are wrapped in CDATA,
//              otherwise nothing is escaped.
// Limits:      rendering walks the tree without recursion, so a deep tree
//              cannot exhaust the stack.
// Known gaps:  a value that already holds both CDATA markers is written bare,
//              even if that makes the XML malformed (kept: readers expect it).
// See also:    LogEntry2.h, Logger.h
#pragma once

#include "textlib/buffers/ExtPtrArray.h"

namespace brelkin {

class LogEntry2;
class StringBuffer;

class ErrorLog {
public:
    ErrorLog();
    ErrorLog(const ErrorLog&) = delete;
    ErrorLog& operator=(const ErrorLog&) = delete;
    virtual ~ErrorLog();

    // Adds an entry under the open context; dropped silently when memory fails.
    void addEntry(char type, const char* name, const char* value);
    void pushContext(const char* name);
    // Pops the open context (never the root); then, unless the new top is
    // the root, drops the context just left if it recorded nothing.
    void popContext();
    // Destroys the whole tree and starts a new root.
    void reset();

    int openDepth() const { return m_stack.getSize(); }

    void renderXml(StringBuffer& out) const;
    void renderHtml(StringBuffer& out) const;
    void renderText(StringBuffer& out) const;

private:
    enum class Form { Xml, Html, Text };
    LogEntry2* top() const;
    void destroyTree();
    void render(Form form, StringBuffer& out) const;

    ExtPtrArray m_stack;
};

}  // namespace brelkin

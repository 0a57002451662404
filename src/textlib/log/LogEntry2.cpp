// LogEntry2.cpp - one node of the engine's log tree
//
// See LogEntry2.h
#include "textlib/log/LogEntry2.h"

#include <new>

#include "textlib/buffers/ExtPtrArray.h"
#include "textlib/buffers/StringBuffer.h"

namespace brelkin {

namespace {

// A copy of `text`, or null when there is no text or no memory.
StringBuffer* copyOf(const char* text) {
    if (!text) return nullptr;
    auto* copy = new (std::nothrow) StringBuffer();
    if (copy && !copy->append(text) && *text) {
        delete copy;
        return nullptr;
    }
    return copy;
}

}  // namespace

LogEntry2::~LogEntry2() {
    if (m_children) {
        m_children->deleteAll();
        delete m_children;
        m_children = nullptr;
    }
    delete m_name;
    m_name = nullptr;
    delete m_value;
    m_value = nullptr;
}

LogEntry2* LogEntry2::create(char type, const char* name, const char* value) {
    auto* entry = new (std::nothrow) LogEntry2();
    if (!entry) return nullptr;
    entry->m_type = type;
    entry->m_name = copyOf(name);
    entry->m_value = copyOf(value);
    if (type == kContext) {
        entry->m_children = new (std::nothrow) ExtPtrArray();
        if (!entry->m_children) {
            delete entry;
            return nullptr;
        }
    }
    return entry;
}

bool LogEntry2::hasChildren() const { return childCount() > 0; }

int LogEntry2::childCount() const { return m_children ? m_children->getSize() : 0; }

LogEntry2* LogEntry2::childAt(int index) const {
    return m_children ? static_cast<LogEntry2*>(m_children->getAt(index)) : nullptr;
}

void LogEntry2::appendChild(LogEntry2* child) {
    int before = childCount();
    if (m_children) m_children->append(child);
    // The array drops an item it has no room for; the item is then ours to free.
    if (childCount() == before) delete child;
}

void LogEntry2::dropEmptyLastContext() {
    LogEntry2* last = childAt(childCount() - 1);
    if (!last || !last->isContext() || last->hasChildren()) return;
    m_children->pop();
    delete last;
}

const char* LogEntry2::name() const { return m_name ? m_name->getString() : nullptr; }

const char* LogEntry2::value() const { return m_value ? m_value->getString() : nullptr; }

}  // namespace brelkin

// ClsBase.h - base of the classes behind the public handles: one log each
//
// Each public operation clears the log and opens a context of its own name,
// so that after a call the log tells about that call alone.
//
// Diagnostics: the log is the diagnostics; see textlib/log/Logger.h.
// Concurrency: the log has its own lock; the object itself is one thread's.
// See also:    ClsMime.h, textlib/log/Logger.h
#pragma once

#include "textlib/buffers/BrelkinObject.h"
#include "textlib/log/Logger.h"

namespace brelkin {

class ClsBase : public BrelkinObject {
public:
    ClsBase() = default;
    ~ClsBase() override = default;
    ClsBase(const ClsBase&) = delete;
    ClsBase& operator=(const ClsBase&) = delete;

    Logger& getLog() { return m_log; }

protected:
    // Clears what the previous operation left and opens its context; the
    // context closes when the frame goes.
    class OperationFrame {
    public:
        OperationFrame(ClsBase& owner, const char* name) : m_log(owner.m_log) {
            m_log.clearLog();
            m_log.enterContext(name, 1);
        }
        ~OperationFrame() { m_log.leaveContext(); }
        OperationFrame(const OperationFrame&) = delete;
        OperationFrame& operator=(const OperationFrame&) = delete;

    private:
        Logger& m_log;
    };

    // "Success." or "Failed.", the closing line of the operations that
    // report one; gives `ok` back.
    bool logSuccessOrFailure(bool ok);

    Logger m_log;
};

}  // namespace brelkin

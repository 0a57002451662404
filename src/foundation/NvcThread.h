// NvcThread.h - base class of a long-lived worker thread with states, timer and commands
//
// A subclass overrides hooks; the framework owns the loop. The worker sleeps
// in one wait that ends on a command message or at the end of its period, so
// timer and commands are served on the worker itself and no two hooks ever
// run side by side. The next period starts when OnTimer has returned: passes
// keep their distance, and no tick is made up. Commands are taken in order;
// hook commands (PostMessageN) that arrive while PAUSED are dropped. Every
// step goes to the object's trace at level 1.
//
// Results: Start/Stop 0 done, 1 on its way, -1 failed; Pause/Resume 1 or -1;
//          PostMessage1..5 0 or -1, PostMessage6..15 1 or -1 (two sets, kept).
// Failures: a post fails until the worker has made its first message call,
//          about 1000 ms after Start; Stop then restores the state and gives -1.
//          A hook that never returns blocks every command, stop included.
// Known gaps: Kill cannot end a POSIX thread from outside. It abandons the
//          worker instead: states and OnExit are done at once on the caller,
//          and the old worker runs no hook or command again once its current
//          hook returns. The destructor waits for every worker it started, so
//          no thread outlives the object: stop the thread (or Kill it) in the
//          subclass's destructor, while the subclass's members still exist.
// See also: NvcBase.h, platform/ThreadMessages.h
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "foundation/NvcBase.h"

namespace platform {
class ThreadHandle;
}

class CNvcThread : public CNvcBase {
public:
    enum State : int32_t {
        STOPPED = 0,
        STOPPENDING = 1,
        PAUSED = 2,
        STARTED = 3,
        STARTPENDING = 4,
        PAUSEPENDING = 5,
        RESUMEPENDING = 6,
    };
    enum Command : uint32_t {
        kCommandPause = 1025,
        kCommandResume = 1026,
        kCommandStop = 1027,
        kCommandMessage1 = 1028,  // up to kCommandMessage1 + 14 for OnMessage15
    };

    CNvcThread(const char* name, uint32_t periodMs);
    ~CNvcThread() override;
    CNvcThread(const CNvcThread&) = delete;
    CNvcThread& operator=(const CNvcThread&) = delete;

    int32_t GetState() const;
    int32_t IsInitialised() const;
    // 1 once the state is reached, 0 after `timeoutMs`; looks every 200 ms.
    int WaitForState(int32_t state, uint32_t timeoutMs);
    void SetState(int32_t state);
    static const char* StateName(int32_t state);

    virtual int Run(uint32_t* period);
    virtual int OnTimer(int32_t argument);
    virtual int OnMessage1(int32_t argument);
    virtual int OnMessage2(int32_t argument);
    virtual int OnMessage3(int32_t argument);
    virtual int OnMessage4(int32_t argument);
    virtual int OnMessage5(int32_t argument);
    virtual int OnMessage6(int32_t argument);
    virtual int OnMessage7(int32_t argument);
    virtual int OnMessage8(int32_t argument);
    virtual int OnMessage9(int32_t argument);
    virtual int OnMessage10(int32_t argument);
    virtual int OnMessage11(int32_t argument);
    virtual int OnMessage12(int32_t argument);
    virtual int OnMessage13(int32_t argument);
    virtual int OnMessage14(int32_t argument);
    virtual int OnMessage15(int32_t argument);
    // Overrides do their own work first and end by calling these.
    virtual int OnInit();
    virtual int OnExit();
    virtual int Start(uint32_t timeoutMs);
    virtual int Stop(uint32_t timeoutMs);
    virtual int Kill();
    virtual int Pause();
    virtual int Resume();
    virtual int PostMessage1(int32_t argument);
    virtual int PostMessage2(int32_t argument);
    virtual int PostMessage3(int32_t argument);
    virtual int PostMessage4(int32_t argument);
    virtual int PostMessage5(int32_t argument);
    virtual int PostMessage6(int32_t argument);
    virtual int PostMessage7(int32_t argument);
    virtual int PostMessage8(int32_t argument);
    virtual int PostMessage9(int32_t argument);
    virtual int PostMessage10(int32_t argument);
    virtual int PostMessage11(int32_t argument);
    virtual int PostMessage12(int32_t argument);
    virtual int PostMessage13(int32_t argument);
    virtual int PostMessage14(int32_t argument);
    virtual int PostMessage15(int32_t argument);

private:
    bool PostCommand(uint32_t command, int32_t argument);
    int PostOrRestore(int32_t pendingState, uint32_t command);
    bool IsAbandoned() const;
    // Acts on one command; false when it was the stop command.
    bool Dispatch(uint32_t command, int32_t argument);
    void CallHook(uint32_t command, int32_t argument);
    void WaitForPeriodEnd(uint32_t& due, uint32_t period);
    void Leave();
    void ReapExited();

    int32_t m_initialised = 0;
    int32_t m_state = STOPPED;
    uint32_t m_period;
    std::atomic<uint32_t> m_threadId{0};
    std::atomic<platform::ThreadHandle*> m_thread{nullptr};
    uint32_t m_creatorThreadId;
    uint32_t m_messageId;
    // Which worker is the current one; Kill and the destructor move it on.
    std::atomic<uint32_t> m_runId{0};
    platform::ThreadHandle* m_exited = nullptr;
    std::vector<platform::ThreadHandle*> m_abandoned;
};

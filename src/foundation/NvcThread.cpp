// NvcThread.cpp - base class of a long-lived worker thread with states, timer and commands
//
// See NvcThread.h
#include "foundation/NvcThread.h"

#include "foundation/SystemHelpers.h"
#include "platform/Clock.h"
#include "platform/ThreadMessages.h"

namespace {

constexpr uint32_t kStartDelayMs = 1000;
constexpr uint32_t kStatePollMs = 200;
constexpr uint32_t kKillGraceMs = 100;
constexpr uint32_t kRiskyPeriodMs = 500;

// The run the calling worker thread belongs to (0 on other threads).
thread_local uint32_t t_runId = 0;

}  // namespace

CNvcThread::CNvcThread(const char* name, uint32_t periodMs)
    : CNvcBase(name), m_period(periodMs), m_creatorThreadId(platform::GetCurrentThreadId()) {
    Assert(name != nullptr, "NvcThread", 34);
    CNvcString messageName;
    messageName.FormatShort("WM_%s", GetName());
    m_messageId = platform::RegisterWindowMessage(messageName.GetData());
    if (periodMs < kRiskyPeriodMs) DebugLogError("NvcThread", __LINE__, "Potential Timer problems");
}

// Waits for every worker this object started; a running one is abandoned
// first and woken, so that it leaves without calling into a half-destroyed
// subclass.
CNvcThread::~CNvcThread() {
    platform::ThreadHandle* running = nullptr;
    {
        CNvcLock hold(*this);
        running = m_thread.exchange(nullptr);
        ++m_runId;
    }
    if (running != nullptr) {
        PostCommand(0, 0);
        platform::JoinAndCloseThread(running);
    }
    ReapExited();
    for (platform::ThreadHandle* handle : m_abandoned) platform::JoinAndCloseThread(handle);
}

const char* CNvcThread::StateName(int32_t state) {
    static const char* const kNames[] = {"STOPPED",      "STOPPENDING",  "PAUSED",       "STARTED",
                                         "STARTPENDING", "PAUSEPENDING", "RESUMEPENDING"};
    if (state < 0 || state >= static_cast<int32_t>(sizeof kNames / sizeof kNames[0])) return "UNKNOWN";
    return kNames[state];
}

int32_t CNvcThread::GetState() const {
    CNvcLock hold(*this);
    return m_state;
}

int32_t CNvcThread::IsInitialised() const {
    CNvcLock hold(*this);
    return m_initialised;
}

// The trace line takes the same lock again: the lock is recursive.
void CNvcThread::SetState(int32_t state) {
    CNvcLock hold(*this);
    Log(this, 1, "THREAD: State set to: [%s].", StateName(state));
    m_state = state;
}

int CNvcThread::WaitForState(int32_t state, uint32_t timeoutMs) {
    const uint32_t start = platform::GetTickCount();
    for (;;) {
        if (GetState() == state) return 1;
        if (platform::GetTickCount() - start >= timeoutMs) return 0;
        platform::Sleep(kStatePollMs);
    }
}

int CNvcThread::OnTimer(int32_t) { return 1; }
int CNvcThread::OnMessage1(int32_t) { return 1; }
int CNvcThread::OnMessage2(int32_t) { return 1; }
int CNvcThread::OnMessage3(int32_t) { return 1; }
int CNvcThread::OnMessage4(int32_t) { return 1; }
int CNvcThread::OnMessage5(int32_t) { return 1; }
int CNvcThread::OnMessage6(int32_t) { return 1; }
int CNvcThread::OnMessage7(int32_t) { return 1; }
int CNvcThread::OnMessage8(int32_t) { return 1; }
int CNvcThread::OnMessage9(int32_t) { return 1; }
int CNvcThread::OnMessage10(int32_t) { return 1; }
int CNvcThread::OnMessage11(int32_t) { return 1; }
int CNvcThread::OnMessage12(int32_t) { return 1; }
int CNvcThread::OnMessage13(int32_t) { return 1; }
int CNvcThread::OnMessage14(int32_t) { return 1; }
int CNvcThread::OnMessage15(int32_t) { return 1; }

int CNvcThread::OnInit() {
    CNvcLock hold(*this);
    m_initialised = 1;
    return 1;
}

int CNvcThread::OnExit() {
    CNvcLock hold(*this);
    m_initialised = 0;
    return 1;
}

// A worker that ended by a stop command leaves its handle behind; it has
// ended or is about to, so the join is short.
void CNvcThread::ReapExited() {
    platform::ThreadHandle* exited = nullptr;
    {
        CNvcLock hold(*this);
        exited = m_exited;
        m_exited = nullptr;
    }
    platform::JoinAndCloseThread(exited);
}

int CNvcThread::Start(uint32_t timeoutMs) {
    Log(this, 1, "THREAD: Attempting to start...");
    const int32_t state = GetState();
    if (state == STARTED) {
        Log(this, 1, "THREAD: Already started.");
        return 0;
    }
    if (state != STOPPED) {
        Log(this, 1, "THREAD: Failed to start, thread is not in STOP(%d) state.", STOPPED);
        return -1;
    }
    ReapExited();
    SetState(STARTPENDING);
    const uint32_t runId = ++m_runId;
    const uint32_t period = m_period;
    uint32_t threadId = 0;
    platform::ThreadHandle* handle = platform::CreateThread(
        [this, runId, period] {
            t_runId = runId;
            uint32_t copy = period;
            Run(&copy);
        },
        &threadId);
    if (handle == nullptr) {
        SetState(STOPPED);
        Log(this, 1, "THREAD: Failed to start thread, thread could not be created.");
        return -1;
    }
    m_threadId = threadId;
    m_thread = handle;
    if (timeoutMs != 0 && WaitForState(STARTED, timeoutMs)) {
        Log(this, 1, "THREAD: Thread is started successfully.");
        return 0;
    }
    Log(this, 1, "THREAD: Thread is starting.");
    return 1;
}

int CNvcThread::Stop(uint32_t timeoutMs) {
    Log(this, 1, "THREAD: Attempting to stop...");
    const int32_t state = GetState();
    if (state == STOPPED) {
        Log(this, 1, "THREAD: Thread already stopped.");
        return 0;
    }
    if (state == STOPPENDING) {
        Log(this, 1, "THREAD: Thread already pending to stop.");
        return 1;
    }
    Log(this, 1, "THREAD: STOP message posted.");  // written before the post, kept
    SetState(STOPPENDING);
    if (!PostCommand(kCommandStop, 0)) {
        SetState(state);
        Log(this, 1, "THREAD: Failed to stop thread, stop message could not be posted.");
        return -1;
    }
    if (timeoutMs != 0 && WaitForState(STOPPED, timeoutMs)) {
        Log(this, 1, "THREAD: Thread is stopped successfully");
        return 0;
    }
    Log(this, 1, "THREAD: Thread is stopping.");
    return 1;
}

// The worker cannot be ended from outside: it is abandoned, and the states
// and OnExit are done here on the caller's thread, as a terminate would leave
// them. Its handle is kept so that the destructor can wait for it.
int CNvcThread::Kill() {
    Log(this, 1, "THREAD: KILL called.");
    if (m_thread.load() == nullptr) return 0;
    SetState(STOPPENDING);
    Log(this, 1, "THREAD: TERMINATE thread.");
    {
        CNvcLock hold(*this);
        platform::ThreadHandle* handle = m_thread.exchange(nullptr);
        ++m_runId;
        if (handle != nullptr) m_abandoned.push_back(handle);
    }
    PostCommand(0, 0);  // wakes the abandoned worker from its wait
    platform::Sleep(kKillGraceMs);
    OnExit();
    SetState(STOPPED);
    return 0;
}

// Sets the pending state before the post and restores the old one if it fails.
int CNvcThread::PostOrRestore(int32_t pendingState, uint32_t command) {
    const int32_t state = GetState();
    Log(this, 1, command == kCommandPause ? "THREAD: PAUSE called, message posted."
                                          : "THREAD: RESUME called, message posted.");
    SetState(pendingState);
    if (PostCommand(command, 0)) return 1;
    SetState(state);
    return -1;
}

int CNvcThread::Pause() { return PostOrRestore(PAUSEPENDING, kCommandPause); }

int CNvcThread::Resume() { return PostOrRestore(RESUMEPENDING, kCommandResume); }

bool CNvcThread::PostCommand(uint32_t command, int32_t argument) {
    return platform::PostThreadMessage(m_threadId.load(), m_messageId, command,
                                       static_cast<intptr_t>(argument));
}

int CNvcThread::PostMessage1(int32_t a) { return PostCommand(kCommandMessage1 + 0, a) ? 0 : -1; }
int CNvcThread::PostMessage2(int32_t a) { return PostCommand(kCommandMessage1 + 1, a) ? 0 : -1; }
int CNvcThread::PostMessage3(int32_t a) { return PostCommand(kCommandMessage1 + 2, a) ? 0 : -1; }
int CNvcThread::PostMessage4(int32_t a) { return PostCommand(kCommandMessage1 + 3, a) ? 0 : -1; }
int CNvcThread::PostMessage5(int32_t a) { return PostCommand(kCommandMessage1 + 4, a) ? 0 : -1; }
// From the sixth on success is 1, not 0; kept, callers test for -1 only.
int CNvcThread::PostMessage6(int32_t a) { return PostCommand(kCommandMessage1 + 5, a) ? 1 : -1; }
int CNvcThread::PostMessage7(int32_t a) { return PostCommand(kCommandMessage1 + 6, a) ? 1 : -1; }
int CNvcThread::PostMessage8(int32_t a) { return PostCommand(kCommandMessage1 + 7, a) ? 1 : -1; }
int CNvcThread::PostMessage9(int32_t a) { return PostCommand(kCommandMessage1 + 8, a) ? 1 : -1; }
int CNvcThread::PostMessage10(int32_t a) { return PostCommand(kCommandMessage1 + 9, a) ? 1 : -1; }
int CNvcThread::PostMessage11(int32_t a) { return PostCommand(kCommandMessage1 + 10, a) ? 1 : -1; }
int CNvcThread::PostMessage12(int32_t a) { return PostCommand(kCommandMessage1 + 11, a) ? 1 : -1; }
int CNvcThread::PostMessage13(int32_t a) { return PostCommand(kCommandMessage1 + 12, a) ? 1 : -1; }
int CNvcThread::PostMessage14(int32_t a) { return PostCommand(kCommandMessage1 + 13, a) ? 1 : -1; }
int CNvcThread::PostMessage15(int32_t a) { return PostCommand(kCommandMessage1 + 14, a) ? 1 : -1; }

bool CNvcThread::IsAbandoned() const { return t_runId != m_runId.load(); }

void CNvcThread::CallHook(uint32_t command, int32_t argument) {
    switch (command) {
        case kCommandMessage1 + 0: OnMessage1(argument); break;
        case kCommandMessage1 + 1: OnMessage2(argument); break;
        case kCommandMessage1 + 2: OnMessage3(argument); break;
        case kCommandMessage1 + 3: OnMessage4(argument); break;
        case kCommandMessage1 + 4: OnMessage5(argument); break;
        case kCommandMessage1 + 5: OnMessage6(argument); break;
        case kCommandMessage1 + 6: OnMessage7(argument); break;
        case kCommandMessage1 + 7: OnMessage8(argument); break;
        case kCommandMessage1 + 8: OnMessage9(argument); break;
        case kCommandMessage1 + 9: OnMessage10(argument); break;
        case kCommandMessage1 + 10: OnMessage11(argument); break;
        case kCommandMessage1 + 11: OnMessage12(argument); break;
        case kCommandMessage1 + 12: OnMessage13(argument); break;
        case kCommandMessage1 + 13: OnMessage14(argument); break;
        case kCommandMessage1 + 14: OnMessage15(argument); break;
        default: break;  // unknown commands are dropped
    }
}

// The command alone selects the action; the message id is not compared.
bool CNvcThread::Dispatch(uint32_t command, int32_t argument) {
    switch (command) {
        case kCommandStop: return false;
        case kCommandPause: SetState(PAUSED); return true;
        case kCommandResume: SetState(STARTED); return true;
        default: break;
    }
    if (GetState() == PAUSED) return true;  // hook commands while paused are lost
    CallHook(command, argument);
    return true;
}

// One wait up to the due time; at the period's end the timer fires in STARTED
// only, and the next period starts after the hook has returned.
void CNvcThread::WaitForPeriodEnd(uint32_t& due, uint32_t period) {
    const int32_t left = static_cast<int32_t>(due - platform::GetTickCount());
    const uint32_t waitMs = left > 0 ? static_cast<uint32_t>(left) : 1;
    switch (platform::WaitForMessageOrTimeout(waitMs)) {
        case platform::WaitResult::Message: return;
        case platform::WaitResult::Timeout:
            if (GetState() == STARTED) OnTimer(0);
            due = platform::GetTickCount() + period;
            return;
    }
    Assert(0, "NvcThread", 695);
}

// The platform's combined wait needs no handle of its own, so there is no
// semaphore to create; translating and dispatching a thread message without a
// window does nothing here either.
int CNvcThread::Run(uint32_t* periodPointer) {
    const uint32_t period = *periodPointer;
    platform::Sleep(kStartDelayMs);
    if (IsAbandoned()) return 0;
    SetState(STARTED);
    OnInit();
    uint32_t due = platform::GetTickCount() + period;
    while (!IsAbandoned()) {
        platform::ThreadMessage message{};
        if (!platform::PeekMessage(message)) {
            WaitForPeriodEnd(due, period);
            continue;
        }
        if (IsAbandoned()) break;
        if (!Dispatch(static_cast<uint32_t>(message.wParam), static_cast<int32_t>(message.lParam))) {
            Leave();
            return 0;
        }
    }
    platform::ReleaseMessageQueue();
    return 0;
}

void CNvcThread::Leave() {
    Log(this, 1, "THREAD: STOP message received.");
    OnExit();
    platform::ReleaseMessageQueue();
    CNvcLock hold(*this);
    if (IsAbandoned()) return;
    SetState(STOPPED);
    m_exited = m_thread.exchange(nullptr);
}

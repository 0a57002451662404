// NvcThreadTest.cpp - states, commands, timer and the trace lines of the worker thread
//
// Waits are for states and events, with limits of many seconds: a slow
// machine makes the tests slower, never wrong.
#include "foundation/NvcThread.h"
#include "platform/ThreadMessages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "platform/Clock.h"
#include "support/TestPaths.h"

namespace {

using testsupport::ReadFile;
using testsupport::TempDir;

constexpr uint32_t kLongWaitMs = 15000;

class TestWorker : public CNvcThread {
public:
    TestWorker(const std::string& trace, uint32_t period = 1000) : CNvcThread("TestWorker", period) {
        SetTraceFile(trace.c_str());
    }
    ~TestWorker() override {
        HoldInit(false);
        BlockTimer(false);
        Kill();
    }

    // STARTED comes before the worker's first message call, which makes its
    // queue; until then posts fail. Making the queue here and saying so lets
    // a test on a busy machine post only once it can. The count goes up last,
    // so that a test woken by it sees the object initialised too.
    int OnInit() override {
        WaitFor([this] { return !m_holdInit; });
        platform::ThreadMessage none{};
        platform::PeekMessage(none);
        const int initialised = CNvcThread::OnInit();
        {
            std::lock_guard<std::mutex> hold(m_mutex);
            ++inits;
            m_changed.notify_all();
        }
        return initialised;
    }
    int StartReady() {
        const int before = inits;
        const int started = Start(kLongWaitMs);
        WaitFor([&] { return inits > before; });
        return started;
    }
    int OnTimer(int32_t) override {
        {
            std::unique_lock<std::mutex> hold(m_mutex);
            m_timerStates.push_back(GetState());
            m_inTimer = true;
            m_changed.notify_all();
            m_changed.wait(hold, [this] { return !m_blockTimer; });
            m_inTimer = false;
        }
        return 1;
    }
    int OnMessage1(int32_t argument) override { return Record(1, argument); }
    int OnMessage2(int32_t argument) override { return Record(2, argument); }
    int OnMessage6(int32_t argument) override { return Record(6, argument); }
    int OnMessage15(int32_t argument) override { return Record(15, argument); }

    // Holding the init keeps the worker from making its queue, however late the test runs.
    void HoldInit(bool on) { SetGate(m_holdInit, on); }
    void BlockTimer(bool on) { SetGate(m_blockTimer, on); }
    bool WaitUntilInitialised() { return WaitFor([this] { return inits > 0; }); }
    bool WaitUntilInTimer() { return WaitFor([this] { return m_inTimer; }); }
    bool WaitForMessages(size_t count) {
        return WaitFor([&] { return m_messages.size() >= count; });
    }
    std::vector<std::pair<int, int>> Messages() {
        std::lock_guard<std::mutex> hold(m_mutex);
        return m_messages;
    }
    std::vector<int32_t> TimerStates() {
        std::lock_guard<std::mutex> hold(m_mutex);
        return m_timerStates;
    }

    std::atomic<int> inits{0};

private:
    template <typename Predicate>
    bool WaitFor(Predicate done) {
        std::unique_lock<std::mutex> hold(m_mutex);
        return m_changed.wait_for(hold, std::chrono::milliseconds(kLongWaitMs), done);
    }
    void SetGate(bool& gate, bool on) {
        std::lock_guard<std::mutex> hold(m_mutex);
        gate = on;
        m_changed.notify_all();
    }
    int Record(int hook, int32_t argument) {
        std::lock_guard<std::mutex> hold(m_mutex);
        m_messages.emplace_back(hook, argument);
        m_changed.notify_all();
        return 1;
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_holdInit = false;
    bool m_blockTimer = false;
    bool m_inTimer = false;
    std::vector<int32_t> m_timerStates;
    std::vector<std::pair<int, int>> m_messages;
};

// Trace lines without their "[hh:mm:ss]  " stamps.
std::vector<std::string> TraceLines(const std::string& path) {
    std::vector<std::string> lines;
    std::istringstream in(ReadFile(path));
    for (std::string line; std::getline(in, line);) lines.push_back(line.size() >= 12 ? line.substr(12) : line);
    return lines;
}

bool HasLine(const std::vector<std::string>& lines, const std::string& line) {
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

class NvcThreadTest : public ::testing::Test {
protected:
    TempDir dir;
    const std::string trace = dir.file("thread.log");
};

TEST_F(NvcThreadTest, StartAndStopWriteTheirTraceLinesInOrder) {
    TestWorker worker(trace);
    ASSERT_EQ(0, worker.StartReady());
    EXPECT_EQ(1, worker.IsInitialised());
    ASSERT_EQ(0, worker.Stop(kLongWaitMs));
    EXPECT_EQ(0, worker.IsInitialised());
    worker.SetState(42);
    worker.SetState(CNvcThread::STOPPED);
    const std::vector<std::string> want = {
        "THREAD: Attempting to start...",
        "THREAD: State set to: [STARTPENDING].",
        "THREAD: State set to: [STARTED].",
        "THREAD: Thread is started successfully.",
        "THREAD: Attempting to stop...",
        "THREAD: STOP message posted.",
        "THREAD: State set to: [STOPPENDING].",
        "THREAD: STOP message received.",
        "THREAD: State set to: [STOPPED].",
        "THREAD: Thread is stopped successfully",
        "THREAD: State set to: [UNKNOWN].",
        "THREAD: State set to: [STOPPED].",
    };
    EXPECT_EQ(want, TraceLines(trace));
}

TEST_F(NvcThreadTest, PostBeforeTheQueueExistsFailsAndRestoresState) {
    TestWorker worker(trace);
    EXPECT_EQ(-1, worker.Pause()) << "no thread at all";
    EXPECT_EQ(CNvcThread::STOPPED, worker.GetState());
    EXPECT_EQ(0, worker.Stop(0)) << "stopped already";

    // Held before its first message call, the worker has no queue yet.
    worker.HoldInit(true);
    ASSERT_EQ(1, worker.Start(0));
    const int32_t before = worker.GetState();  // STARTPENDING for its first second
    EXPECT_EQ(-1, worker.Stop(0));
    EXPECT_EQ(before, worker.GetState());
    EXPECT_EQ(-1, worker.PostMessage1(5));
    EXPECT_EQ(-1, worker.PostMessage6(5));
    const std::vector<std::string> lines = TraceLines(trace);
    EXPECT_TRUE(HasLine(lines, "THREAD: Thread is starting."));
    EXPECT_TRUE(HasLine(lines, "THREAD: Failed to stop thread, stop message could not be posted."));

    worker.HoldInit(false);
    ASSERT_TRUE(worker.WaitUntilInitialised());
    EXPECT_EQ(0, worker.PostMessage1(5));
    EXPECT_EQ(1, worker.PostMessage6(6)) << "the second set answers 1";
    ASSERT_TRUE(worker.WaitForMessages(2));
    EXPECT_EQ(0, worker.Stop(kLongWaitMs));
}

TEST_F(NvcThreadTest, StopDuringLongTimerHookIsTakenRightAfterIt) {
    TestWorker worker(trace, 500);
    worker.BlockTimer(true);
    ASSERT_EQ(0, worker.StartReady());
    ASSERT_TRUE(worker.WaitUntilInTimer());

    EXPECT_EQ(1, worker.Stop(0));
    EXPECT_EQ(CNvcThread::STOPPENDING, worker.GetState());
    EXPECT_EQ(1, worker.Stop(0)) << "second stop while pending";
    EXPECT_EQ(-1, worker.Start(0)) << "start while pending";
    EXPECT_EQ(0, worker.PostMessage1(3)) << "queued behind the stop";
    EXPECT_EQ(0, worker.WaitForState(CNvcThread::STOPPED, 400)) << "hook still running";

    worker.BlockTimer(false);
    ASSERT_EQ(1, worker.WaitForState(CNvcThread::STOPPED, kLongWaitMs));
    EXPECT_EQ(1u, worker.TimerStates().size()) << "no tick after the hook";
    EXPECT_TRUE(worker.Messages().empty()) << "nothing served after the stop";
    const std::vector<std::string> lines = TraceLines(trace);
    EXPECT_TRUE(HasLine(lines, "THREAD: Thread already pending to stop."));
    EXPECT_TRUE(HasLine(lines, "THREAD: Failed to start, thread is not in STOP(0) state."));
    EXPECT_TRUE(HasLine(lines, "THREAD: Thread is stopping."));
}

TEST_F(NvcThreadTest, HookCommandsWhilePausedAreDroppedAndTimerRests) {
    TestWorker worker(trace, 500);
    ASSERT_EQ(0, worker.StartReady());
    EXPECT_EQ(0, worker.Start(kLongWaitMs)) << "already started";
    ASSERT_EQ(1, worker.Pause());
    ASSERT_EQ(1, worker.WaitForState(CNvcThread::PAUSED, kLongWaitMs));
    EXPECT_EQ(0, worker.PostMessage1(11));
    EXPECT_EQ(1, worker.PostMessage15(15));
    platform::Sleep(1200);  // a few periods pass while paused
    ASSERT_EQ(1, worker.Resume());
    EXPECT_EQ(0, worker.PostMessage2(22));
    ASSERT_TRUE(worker.WaitForMessages(1));
    EXPECT_EQ(CNvcThread::STARTED, worker.GetState());
    EXPECT_EQ(0, worker.Stop(kLongWaitMs));

    EXPECT_EQ((std::vector<std::pair<int, int>>{{2, 22}}), worker.Messages());
    // Pause, Resume and Stop set their pending states from this thread, so a
    // tick may see one of those; PAUSED is set by the worker alone.
    for (int32_t state : worker.TimerStates()) EXPECT_NE(CNvcThread::PAUSED, state);
    EXPECT_TRUE(HasLine(TraceLines(trace), "THREAD: Already started."));
}

TEST_F(NvcThreadTest, KillStopsAtOnceAndTheObjectRestarts) {
    TestWorker worker(trace, 500);
    ASSERT_EQ(0, worker.StartReady());
    worker.BlockTimer(true);
    ASSERT_TRUE(worker.WaitUntilInTimer());
    EXPECT_EQ(0, worker.Kill());
    EXPECT_EQ(CNvcThread::STOPPED, worker.GetState());
    EXPECT_EQ(0, worker.IsInitialised());
    worker.BlockTimer(false);
    EXPECT_EQ(0, worker.Kill()) << "no thread left";

    ASSERT_EQ(0, worker.StartReady());
    EXPECT_EQ(2, worker.inits.load());
    EXPECT_EQ(0, worker.PostMessage1(1));
    ASSERT_TRUE(worker.WaitForMessages(1));
    ASSERT_EQ(0, worker.Stop(kLongWaitMs));

    const std::vector<std::string> lines = TraceLines(trace);
    EXPECT_EQ(2, std::count(lines.begin(), lines.end(), "THREAD: KILL called."));
    EXPECT_EQ(1, std::count(lines.begin(), lines.end(), "THREAD: TERMINATE thread."));
}

TEST_F(NvcThreadTest, ShortPeriodWorksAndIsNoted) {
    setenv("TELMORAQ_DEBUG_DIR", dir.path().c_str(), 1);
    {
        TestWorker worker(trace, 499);
        ASSERT_EQ(0, worker.StartReady());
        EXPECT_EQ(0, worker.PostMessage1(1));
        ASSERT_TRUE(worker.WaitForMessages(1));
        EXPECT_EQ(0, worker.Stop(kLongWaitMs));
    }
    unsetenv("TELMORAQ_DEBUG_DIR");
    EXPECT_NE(std::string::npos, ReadFile(dir.file("Norvane.log")).find("Potential Timer problems"));
}

}  // namespace

// QueueSvcTest.cpp - the wait loop's time rules and the control handler, on an injected clock
#include "service/QueueSvc.h"

#include <gtest/gtest.h>

#include <vector>

#include "foundation/NvcThread.h"

namespace {

// A worker whose state the test sets and whose stop calls it counts.
class FakeWorker : public CNvcThread {
public:
    FakeWorker() : CNvcThread("FakeWorker", 1000) {}
    int Stop(uint32_t timeoutMs) override {
        stopTimeouts.push_back(timeoutMs);
        return 1;
    }
    std::vector<uint32_t> stopTimeouts;
};

class KeepRunningTest : public ::testing::Test {
protected:
    KeepRunningTest() {
        state.now = [this] { return clock; };
        state.sleep = [this](uint32_t ms) { slept.push_back(ms); };
        state.setStatus = [this](platform::ServiceStatusHandle, const platform::ServiceStatus& s) {
            reports.push_back(s);
            return reportsSucceed;
        };
        state.worker = &worker;
        worker.SetState(CNvcThread::STARTED);
    }

    // One cycle at the present clock.
    bool Cycle() { return KeepRunning(state); }

    QueueSvcState state;
    FakeWorker worker;
    int64_t clock = 1000000;
    std::vector<uint32_t> slept;
    std::vector<platform::ServiceStatus> reports;
    bool reportsSucceed = true;
};

TEST_F(KeepRunningTest, StopIsIgnoredForTwentySecondsAfterTheFirstCycleBothEndsIncluded) {
    state.stopRequested = 1;
    EXPECT_TRUE(Cycle());  // first beat
    clock += 20;
    EXPECT_TRUE(Cycle());
    EXPECT_TRUE(worker.stopTimeouts.empty()) << "the grace must cover second 20";
    clock += 1;
    EXPECT_TRUE(Cycle());
    EXPECT_EQ(worker.stopTimeouts, std::vector<uint32_t>{0}) << "second 21 acts on the stop";
    EXPECT_EQ(state.stopWaitStart, clock);
    EXPECT_EQ(slept, (std::vector<uint32_t>{2000, 2000, 2000}));
}

TEST_F(KeepRunningTest, AClockThatGoesBackEndsTheGraceEarly) {
    state.stopRequested = 1;
    EXPECT_TRUE(Cycle());
    clock -= 1;
    EXPECT_TRUE(Cycle());
    EXPECT_EQ(worker.stopTimeouts.size(), 1u);
}

TEST_F(KeepRunningTest, WaitsTenSecondsForTheWorkerAndGivesUpAtEleven) {
    state.stopRequested = 1;
    Cycle();
    clock += 30;
    EXPECT_TRUE(Cycle());  // notes the stop wait start
    clock += 10;
    EXPECT_TRUE(Cycle()) << "10 seconds after the stop wait start still waits";
    clock += 1;
    EXPECT_FALSE(Cycle()) << "11 seconds end the wait";
    EXPECT_EQ(worker.stopTimeouts.size(), 1u) << "the second stop call is made once only";
}

TEST_F(KeepRunningTest, AStoppedWorkerEndsTheLoopAtTheCycleAfterTheStopWaitStart) {
    state.stopRequested = 1;
    Cycle();
    clock += 25;
    EXPECT_TRUE(Cycle());
    worker.SetState(CNvcThread::STOPPED);
    clock += 2;
    EXPECT_FALSE(Cycle());
}

TEST_F(KeepRunningTest, StopControlReportsPendingThenStopsTheWorkerThenRecords) {
    ControlHandler(state, platform::kServiceControlStop);
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].currentState, platform::kServiceStopPending);
    EXPECT_EQ(reports[0].checkPoint, 1u);
    EXPECT_EQ(reports[0].waitHint, 10000u);
    EXPECT_EQ(reports[0].controlsAccepted, 5u);
    EXPECT_EQ(worker.stopTimeouts, std::vector<uint32_t>{0});
    EXPECT_EQ(state.stopRequested, 1);
}

TEST_F(KeepRunningTest, StopBeforeTheWorkerExistsIsRecordedAndPassedOnByTheLoop) {
    state.worker = nullptr;
    ControlHandler(state, platform::kServiceControlStop);
    EXPECT_TRUE(reports.empty());
    EXPECT_EQ(state.stopRequested, 1);

    state.worker = &worker;
    Cycle();
    clock += 21;
    Cycle();
    EXPECT_EQ(worker.stopTimeouts, std::vector<uint32_t>{0});
}

TEST_F(KeepRunningTest, OtherControlsReportWithoutTouchingTheWorker) {
    state.currentState = platform::kServiceRunning;
    ControlHandler(state, platform::kServiceControlInterrogate);
    ControlHandler(state, platform::kServiceControlPause);
    ControlHandler(state, platform::kServiceControlContinue);
    ControlHandler(state, platform::kServiceControlShutdown);
    ControlHandler(state, 77);
    std::vector<uint32_t> states;
    for (const platform::ServiceStatus& report : reports) states.push_back(report.currentState);
    ASSERT_EQ(states, (std::vector<uint32_t>{platform::kServiceRunning, platform::kServicePausePending,
                                             platform::kServicePaused, platform::kServiceContinuePending,
                                             platform::kServiceRunning}));
    EXPECT_EQ(reports[0].checkPoint, 0u);
    EXPECT_TRUE(worker.stopTimeouts.empty());
    EXPECT_EQ(state.stopRequested, 0);
}

// The exit codes a report carries: ServiceEndToEndTest's status texts.
TEST_F(KeepRunningTest, AFailedReportKeepsTheLastState) {
    state.currentState = platform::kServiceRunning;
    reportsSucceed = false;
    EXPECT_EQ(ReportStatus(state, nullptr, platform::kServicePaused, 0, 0), -1);
    EXPECT_EQ(state.currentState, platform::kServiceRunning);
}

}  // namespace

// ThreadMessagesTest.cpp - queue creation, posting rules, the combined wait
#include "platform/ThreadMessages.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

using namespace platform;

namespace {

// Spins (with short sleeps) until `done` or a generous limit.
template <typename Pred>
bool Eventually(Pred done) {
    for (int i = 0; i < 5000; ++i) {
        if (done()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return done();
}

}  // namespace

TEST(ThreadMessages, IdKnownAtOnceButPostsFailUntilTheTargetMadeItsFirstMessageCall) {
    std::atomic<bool> mayCall{false}, called{false}, mayEnd{false};
    std::vector<ThreadMessage> got;
    std::atomic<size_t> count{0};
    uint32_t id = 0, seenByBody = 0, selfId = 0;
    ThreadHandle* handle = CreateThread(
        [&] {
            seenByBody = id;  // known before the body runs
            selfId = GetCurrentThreadId();
            while (!mayCall) std::this_thread::yield();
            ThreadMessage m{};
            PeekMessage(m);  // creates the queue
            called = true;
            while (got.size() < 3) {
                if (WaitForMessageOrTimeout(0xFFFFFFFFu) != WaitResult::Message) continue;
                while (PeekMessage(m)) got.push_back(m);
                count = got.size();
            }
            while (!mayEnd) std::this_thread::yield();
        },
        &id);
    ASSERT_NE(nullptr, handle);
    EXPECT_FALSE(PostThreadMessage(id, 1, 1, 1)) << "post before the first message call";
    mayCall = true;
    ASSERT_TRUE(Eventually([&] { return called.load(); }));
    EXPECT_TRUE(PostThreadMessage(id, 0xC001, 10, -1));
    EXPECT_TRUE(PostThreadMessage(id, 0xC001, 11, -2));
    EXPECT_TRUE(PostThreadMessage(id, 0xC002, 12, -3));
    EXPECT_TRUE(Eventually([&] { return count >= 3; }));
    mayEnd = true;
    JoinAndCloseThread(handle);
    ASSERT_EQ(3u, got.size());
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(10u + i, got[i].wParam) << "messages out of order";
        EXPECT_EQ(-1 - static_cast<intptr_t>(i), got[i].lParam);
    }
    EXPECT_EQ(0xC002u, got[2].message);
    EXPECT_FALSE(PostThreadMessage(id, 1, 1, 1)) << "post to an ended thread";
    EXPECT_EQ(selfId, seenByBody);
    EXPECT_NE(GetCurrentThreadId(), id);
}

TEST(ThreadMessages, WaitEndsOnMessageOrTimeoutAndLeavesTheMessage) {
    ThreadMessage m{};
    while (PeekMessage(m)) {
    }
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(WaitResult::Timeout, WaitForMessageOrTimeout(50));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));

    ASSERT_TRUE(PostThreadMessage(GetCurrentThreadId(), 7, 8, 9));
    EXPECT_EQ(WaitResult::Message, WaitForMessageOrTimeout(60000));
    EXPECT_EQ(WaitResult::Message, WaitForMessageOrTimeout(0)) << "the wait took the message";
    ASSERT_TRUE(PeekMessage(m));
    EXPECT_EQ(7u, m.message);
    EXPECT_FALSE(PeekMessage(m));

    ReleaseMessageQueue();
    EXPECT_FALSE(PostThreadMessage(GetCurrentThreadId(), 7, 8, 9));
}

TEST(ThreadMessages, AFullQueueRefusesFurtherPosts) {
    ThreadMessage m{};
    PeekMessage(m);
    int accepted = 0;
    while (accepted < 20000 && PostThreadMessage(GetCurrentThreadId(), 1, 0, 0)) ++accepted;
    EXPECT_EQ(10000, accepted);
    ReleaseMessageQueue();
}

TEST(ThreadMessages, TerminatedThreadGetsNoFurtherMessages) {
    std::atomic<int> handled{0};
    std::atomic<bool> ready{false};
    uint32_t id = 0;
    ThreadHandle* handle = CreateThread(
        [&handled, &ready] {
            ThreadMessage m{};
            PeekMessage(m);
            ready = true;
            for (;;) {
                WaitForMessageOrTimeout(5);
                while (PeekMessage(m)) ++handled;
            }
        },
        &id);
    ASSERT_NE(nullptr, handle);
    ASSERT_TRUE(Eventually([&] { return ready.load(); }));
    ASSERT_TRUE(PostThreadMessage(id, 1, 0, 0));
    ASSERT_TRUE(Eventually([&] { return handled.load() == 1; }));
    TerminateThread(handle);
    EXPECT_FALSE(PostThreadMessage(id, 1, 0, 0));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(1, handled.load());
}

TEST(ThreadMessages, RegisteredIdsAreStablePerNameWithoutCase) {
    const uint32_t a = RegisterWindowMessage("WM_QueueWorker");
    EXPECT_GE(a, 0xC000u);
    EXPECT_EQ(a, RegisterWindowMessage("wm_queueworker"));
    EXPECT_NE(a, RegisterWindowMessage("WM_Other"));
}

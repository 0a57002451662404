// ThreadMessages.h - threads with a per-thread message queue and one combined wait
//
// A thread gets its message queue at its first message call (PeekMessage or
// WaitForMessageOrTimeout); until then every post to it fails, as on Windows.
// One wait ends either on a message or at its time-out, so that a worker's
// commands and its timer are served on the worker itself.
//
// Diagnostics: posts report failure by false; waits never fail.
// See also:    posix/ThreadMessages.cpp
#pragma once

#include <cstdint>
#include <functional>

namespace platform {

struct ThreadMessage {
    uint32_t message;
    uintptr_t wParam;
    intptr_t lParam;
};

// The kernel's id of the calling thread (32-bit).
uint32_t GetCurrentThreadId();

// An id for a message name, the same for the same name (compared without
// case) within the process; ids start at 0xC000 like registered window messages.
uint32_t RegisterWindowMessage(const char* name);

// A running thread. Destroying the handle does not stop the thread.
class ThreadHandle;

// Starts `body` on a new thread; returns null when no thread could be made.
// `threadId` receives the new thread's id before the body runs.
ThreadHandle* CreateThread(std::function<void()> body, uint32_t* threadId);

// Waits for the thread to end, then releases the handle. Null is ignored.
void JoinAndCloseThread(ThreadHandle* handle);

// Releases the handle without waiting; the thread runs on on its own.
void CloseThreadHandle(ThreadHandle* handle);

// Stops the thread's work for good: the thread is detached and its handle
// released; it can never run its queue's messages again. A POSIX thread cannot
// be killed safely from outside, so the thread is left to end by itself.
void TerminateThread(ThreadHandle* handle);

// Appends a message to the queue of `threadId`; false when that thread has no
// queue (not started, not yet made its first message call, or ended).
bool PostThreadMessage(uint32_t threadId, uint32_t message, uintptr_t wParam, intptr_t lParam);

// Takes the oldest message of the calling thread's queue (creating the queue on
// first use). Returns false when none waits.
bool PeekMessage(ThreadMessage& out);

enum class WaitResult { Message, Timeout };

// Waits until a message is in the calling thread's queue (creating the queue on
// first use) or `timeoutMs` has passed (0xFFFFFFFF: no limit). The message stays
// in the queue.
WaitResult WaitForMessageOrTimeout(uint32_t timeoutMs);

// Drops the calling thread's queue; later posts to it fail. Called by a thread
// as it ends; a queue left behind is also dropped when its thread ends.
void ReleaseMessageQueue();

}  // namespace platform

// ThreadMessages.cpp - std::thread with a per-thread message queue and one wait
//
// See ThreadMessages.h
#include "platform/ThreadMessages.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>

namespace platform {
namespace {

// A queue holds at most this many messages, as on Windows; further posts fail,
// so that a stalled receiver cannot make its senders use up memory.
constexpr size_t kQueueLimit = 10000;

struct Queue {
    std::mutex mutex;
    std::condition_variable ready;
    std::deque<ThreadMessage> messages;
};

// What the handle and the thread share: the handle's owner may terminate it.
struct ThreadState {
    std::atomic<bool> terminated{false};
};

// Every thread's queue by kernel id. Never destroyed: a detached thread may
// end, and unregister, after the process's statics are gone.
struct QueueTable {
    std::mutex mutex;
    std::map<uint32_t, std::shared_ptr<Queue>> queues;
};

QueueTable& Queues() {
    static QueueTable* table = new QueueTable;
    return *table;
}

std::mutex g_namesMutex;
std::map<std::string, uint32_t> g_names;
uint32_t g_nextName = 0xC000;

thread_local std::shared_ptr<ThreadState> t_state;

// Unregisters the thread's queue when the thread ends, so that a later thread
// that gets the same kernel id starts without one.
struct QueueHolder {
    std::shared_ptr<Queue> queue;
    uint32_t owner = 0;
    ~QueueHolder() { Drop(); }
    void Drop() {
        if (!queue) return;
        QueueTable& table = Queues();
        std::lock_guard<std::mutex> guard(table.mutex);
        auto it = table.queues.find(owner);
        if (it != table.queues.end() && it->second == queue) table.queues.erase(it);
        queue.reset();
    }
};

thread_local QueueHolder t_holder;

// A terminated thread that reaches a message call stops there for good: it can
// be neither killed nor allowed to act on further commands.
[[noreturn]] void Park() {
    for (;;) std::this_thread::sleep_for(std::chrono::hours(1));
}

bool Terminated() { return t_state && t_state->terminated.load(); }

// The calling thread's queue, made and registered at its first message call.
// The terminated flag is checked under the registry's lock, so that a thread
// being terminated cannot register a queue behind TerminateThread's back.
std::shared_ptr<Queue> OwnQueue() {
    if (Terminated()) Park();
    if (t_holder.queue) return t_holder.queue;
    auto queue = std::make_shared<Queue>();
    const uint32_t self = GetCurrentThreadId();
    bool registered = false;
    {
        QueueTable& table = Queues();
        std::lock_guard<std::mutex> guard(table.mutex);
        if (!Terminated()) {
            table.queues[self] = queue;
            registered = true;
        }
    }
    if (!registered) Park();
    t_holder.queue = queue;
    t_holder.owner = self;
    return queue;
}

std::string Upper(const char* name) {
    std::string text = name == nullptr ? "" : name;
    for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

}  // namespace

class ThreadHandle {
public:
    std::thread thread;
    uint32_t id = 0;
    std::shared_ptr<ThreadState> state = std::make_shared<ThreadState>();
};

uint32_t GetCurrentThreadId() { return static_cast<uint32_t>(::syscall(SYS_gettid)); }

uint32_t RegisterWindowMessage(const char* name) {
    std::lock_guard<std::mutex> guard(g_namesMutex);
    auto inserted = g_names.emplace(Upper(name), g_nextName);
    if (inserted.second) ++g_nextName;
    return inserted.first->second;
}

ThreadHandle* CreateThread(std::function<void()> body, uint32_t* threadId) {
    auto handle = std::make_unique<ThreadHandle>();
    std::promise<uint32_t> started;
    std::future<uint32_t> startedId = started.get_future();
    std::promise<void> go;
    std::shared_future<void> mayRun = go.get_future().share();
    try {
        handle->thread = std::thread(
            [body = std::move(body), state = handle->state, started = std::move(started),
             mayRun]() mutable {
                t_state = state;
                started.set_value(GetCurrentThreadId());
                mayRun.wait();  // the creator has stored the id
                body();
            });
    } catch (const std::system_error&) {
        return nullptr;
    }
    const uint32_t id = startedId.get();
    handle->id = id;
    if (threadId != nullptr) *threadId = id;
    go.set_value();
    return handle.release();
}

void JoinAndCloseThread(ThreadHandle* handle) {
    if (handle == nullptr) return;
    if (handle->thread.joinable()) {
        if (handle->thread.get_id() == std::this_thread::get_id())
            handle->thread.detach();  // a thread cannot wait for itself
        else
            handle->thread.join();
    }
    delete handle;
}

void CloseThreadHandle(ThreadHandle* handle) {
    if (handle == nullptr) return;
    if (handle->thread.joinable()) handle->thread.detach();
    delete handle;
}

void TerminateThread(ThreadHandle* handle) {
    if (handle == nullptr) return;
    {
        QueueTable& table = Queues();
        std::lock_guard<std::mutex> guard(table.mutex);
        handle->state->terminated = true;
        table.queues.erase(handle->id);  // posts fail from now on, as to a dead thread
    }
    CloseThreadHandle(handle);
}

bool PostThreadMessage(uint32_t threadId, uint32_t message, uintptr_t wParam, intptr_t lParam) {
    std::shared_ptr<Queue> queue;
    {
        QueueTable& table = Queues();
        std::lock_guard<std::mutex> guard(table.mutex);
        auto it = table.queues.find(threadId);
        if (it == table.queues.end()) return false;
        queue = it->second;
    }
    {
        std::lock_guard<std::mutex> guard(queue->mutex);
        if (queue->messages.size() >= kQueueLimit) return false;
        queue->messages.push_back(ThreadMessage{message, wParam, lParam});
    }
    queue->ready.notify_all();
    return true;
}

bool PeekMessage(ThreadMessage& out) {
    std::shared_ptr<Queue> queue = OwnQueue();
    std::lock_guard<std::mutex> guard(queue->mutex);
    if (queue->messages.empty()) return false;
    out = queue->messages.front();
    queue->messages.pop_front();
    return true;
}

WaitResult WaitForMessageOrTimeout(uint32_t timeoutMs) {
    std::shared_ptr<Queue> queue = OwnQueue();
    std::unique_lock<std::mutex> lock(queue->mutex);
    auto hasMessage = [&] { return !queue->messages.empty(); };
    if (timeoutMs == 0xFFFFFFFFu) {
        queue->ready.wait(lock, hasMessage);
        return WaitResult::Message;
    }
    const bool got = queue->ready.wait_for(lock, std::chrono::milliseconds(timeoutMs), hasMessage);
    return got ? WaitResult::Message : WaitResult::Timeout;
}

void ReleaseMessageQueue() { t_holder.Drop(); }

}  // namespace platform

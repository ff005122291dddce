// The platform layer over the C++ standard library and pthreads.
#include "MRuntime.h"

#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>

// ---------------------------------------------------------------- memory

void *MMemAlloc(size_t size)
{
    return std::malloc(size ? size : 1);
}

void MMemFree(void *p)
{
    std::free(p);
}

void *MMemRealloc(void *p, size_t size)
{
    return std::realloc(p, size ? size : 1);
}

void MMemCpy(void *dst, const void *src, size_t size)
{
    if (size) std::memcpy(dst, src, size);
}

void MMemSet(void *dst, int value, size_t size)
{
    if (size) std::memset(dst, value, size);
}

int MMemCmp(const void *a, const void *b, size_t size)
{
    if (!size) return 0;
    int r = std::memcmp(a, b, size); // memcmp compares as unsigned bytes
    return r < 0 ? -1 : (r > 0 ? 1 : 0);
}

// --------------------------------------------------------------- strings

size_t MStrLen(const char *s)
{
    return s ? std::strlen(s) : 0;
}

char *MStrCpy(char *dst, const char *src)
{
    return std::strcpy(dst, src);
}

int MSprintf(char *dst, const char *format, ...)
{
    va_list ap;
    va_start(ap, format);
    int n = std::vsprintf(dst, format, ap);
    va_end(ap);
    return n < 0 ? -1 : n;
}

// ---------------------------------------------------------------- events

namespace {
struct EventObj {
    std::mutex m;
    std::condition_variable cv;
    bool signalled = false;
    bool autoReset = false;
};
} // namespace

MHandle MEventCreate(MDWord mode)
{
    EventObj *e = new (std::nothrow) EventObj();
    if (e) e->autoReset = (mode == 1);
    return e;
}

int MEventDestroy(MHandle h)
{
    if (!h) return MERR_NULL_HANDLE;
    delete static_cast<EventObj *>(h);
    return MERR_NONE;
}

int MEventSignal(MHandle h)
{
    if (!h) return MERR_NULL_HANDLE;
    EventObj *e = static_cast<EventObj *>(h);
    // Notify under the lock: a waiter that wakes may destroy the event at
    // once, and must not find the signaller still inside it.
    std::lock_guard<std::mutex> lk(e->m);
    e->signalled = true;
    if (e->autoReset)
        e->cv.notify_one();
    else
        e->cv.notify_all();
    return MERR_NONE;
}

int MEventReset(MHandle h)
{
    if (!h) return MERR_NULL_HANDLE;
    EventObj *e = static_cast<EventObj *>(h);
    std::lock_guard<std::mutex> lk(e->m);
    e->signalled = false;
    return MERR_NONE;
}

int MEventWait(MHandle h, MDWord timeoutMs)
{
    if (!h) return MERR_NULL_HANDLE;
    EventObj *e = static_cast<EventObj *>(h);
    std::unique_lock<std::mutex> lk(e->m);
    if (timeoutMs == M_INFINITE) {
        e->cv.wait(lk, [e] { return e->signalled; });
    } else if (!e->cv.wait_for(lk, std::chrono::milliseconds(timeoutMs), [e] { return e->signalled; })) {
        return MERR_FAILED;
    }
    if (e->autoReset) e->signalled = false;
    return MERR_NONE;
}

// --------------------------------------------------------------- threads

namespace {
struct ThreadObj {
    std::mutex m;
    std::condition_variable cv;
    bool resumed = false;
    bool cancelled = false; // handle closed before the thread ever ran
    bool finished = false;
    MThreadProc routine = nullptr;
    void *arg = nullptr;
    std::thread th;
};
using ThreadRef = std::shared_ptr<ThreadObj>;

void ThreadMain(ThreadRef t)
{
    {
        std::unique_lock<std::mutex> lk(t->m);
        t->cv.wait(lk, [&] { return t->resumed || t->cancelled; });
        if (!t->resumed) {
            t->finished = true;
            t->cv.notify_all();
            return;
        }
    }
    t->routine(t->arg);
    std::lock_guard<std::mutex> lk(t->m);
    t->finished = true;
    t->cv.notify_all();
}

ThreadRef *AsThread(MHandle h)
{
    return static_cast<ThreadRef *>(h);
}
} // namespace

MHandle MThreadCreate(MThreadProc routine, void *arg)
{
    if (!routine) return nullptr;
    ThreadRef *ref = new (std::nothrow) ThreadRef(std::make_shared<ThreadObj>());
    if (!ref) return nullptr;
    (*ref)->routine = routine;
    (*ref)->arg = arg;
    try {
        (*ref)->th = std::thread(ThreadMain, *ref);
    } catch (...) {
        delete ref;
        return nullptr;
    }
    return ref;
}

int MThreadDestroy(MHandle h)
{
    if (!h) return MERR_NONE;
    ThreadRef *ref = AsThread(h);
    ThreadRef t = *ref;
    bool join;
    {
        std::lock_guard<std::mutex> lk(t->m);
        if (!t->resumed) t->cancelled = true;
        // A thread that never ran, or has run to its end, goes at once; one
        // still running is left to finish on its own.
        join = t->finished || t->cancelled;
        t->cv.notify_all();
    }
    if (t->th.joinable()) {
        if (join && t->th.get_id() != std::this_thread::get_id())
            t->th.join();
        else
            t->th.detach();
    }
    delete ref;
    return MERR_NONE;
}

int MThreadResume(MHandle h)
{
    if (!h) return MERR_NULL_HANDLE;
    ThreadRef &t = *AsThread(h);
    std::lock_guard<std::mutex> lk(t->m);
    t->resumed = true;
    t->cv.notify_all();
    return MERR_NONE;
}

int MThreadSuspend(MHandle h)
{
    if (!h) return MERR_NULL_HANDLE;
    // A pthread can't be stopped from outside; only a thread that has not
    // been resumed yet counts as suspended.
    ThreadRef &t = *AsThread(h);
    std::lock_guard<std::mutex> lk(t->m);
    return t->resumed ? MERR_FAILED : MERR_NONE;
}

int MThreadSleep(MDWord ms)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
    return MERR_NONE;
}

int MThreadSetPriority(MHandle h, int level)
{
    if (!h || level < -2 || level > 2) return MERR_NULL_HANDLE;
    // Ordinary processes may not raise scheduling priority on Linux; the
    // level is accepted and the default scheduling kept.
    return MERR_NONE;
}

int MThreadWait(MHandle h, MDWord timeoutMs)
{
    if (!h) return MERR_NULL_HANDLE;
    ThreadRef &t = *AsThread(h);
    {
        std::unique_lock<std::mutex> lk(t->m);
        auto done = [&] { return t->finished; };
        if (timeoutMs == M_INFINITE)
            t->cv.wait(lk, done);
        else if (!t->cv.wait_for(lk, std::chrono::milliseconds(timeoutMs), done))
            return MERR_FAILED;
    }
    if (t->th.joinable() && t->th.get_id() != std::this_thread::get_id()) t->th.join();
    return MERR_NONE;
}

unsigned long MThreadCurrentId()
{
    return static_cast<unsigned long>(::syscall(SYS_gettid));
}

// ------------------------------------------------------------------ time

MDWord MGetTickCount()
{
    struct timespec ts;
    if (clock_gettime(CLOCK_MONOTONIC, &ts) != 0) return 0;
    // Counter in nanoseconds, frequency 1e9: ticks of 0.1 ms.
    double ns = double(ts.tv_sec) * 1e9 + double(ts.tv_nsec);
    uint64_t ticks = static_cast<uint64_t>(ns * 10000.0 / 1e9);
    return static_cast<MDWord>(ticks);
}

// ------------------------------------------------------------ CZT5Thread

uintptr_t CZT5Thread::Entry(void *arg)
{
    CZT5Thread *self = static_cast<CZT5Thread *>(arg);
    return self ? self->Run() : static_cast<uintptr_t>(-1);
}

CZT5Thread::~CZT5Thread()
{
    if (!bExit) Exit();
}

MDWord CZT5Thread::Run()
{
    if (pExitEvent) pExitEvent->Signal();
    return 0;
}

int CZT5Thread::Create(MDWord priorityWord)
{
    if (hThread) return 1;
    if (!pExitEvent) pExitEvent = new (std::nothrow) CZT5Event(0);
    hThread = MThreadCreate(&CZT5Thread::Entry, this);
    dwPriority = priorityWord;
    return hThread ? 1 : 0;
}

int CZT5Thread::Exit()
{
    bExit = 1;
    if (pExitEvent) {
        if (hThread) MThreadResume(hThread);
        pExitEvent->Wait(M_INFINITE);
    }
    if (hThread) {
        // The routine may still be on its way out of Signal: let it end
        // before its event goes.
        MThreadWait(hThread, M_INFINITE);
        MThreadDestroy(hThread);
        hThread = nullptr;
    }
    delete pExitEvent;
    pExitEvent = nullptr;
    delete pMutex;
    pMutex = nullptr;
    dwPriority = 0;
    return 1;
}

int CZT5Thread::Resume()
{
    return MThreadResume(hThread) == MERR_NONE ? 1 : 0;
}

int CZT5Thread::Suspend()
{
    return MThreadSuspend(hThread) == MERR_NONE ? 1 : 0;
}

int CZT5Thread::SetPriority(int level)
{
    return MThreadSetPriority(hThread, level) == MERR_NONE ? 1 : 0;
}

int CZT5Thread::Sleep(MDWord ms)
{
    MThreadSleep(ms);
    return 0;
}

int CZT5Thread::Lock()
{
    if (!pMutex) pMutex = new (std::nothrow) CZT5Mutex();
    return (pMutex && pMutex->Lock() == 0) ? 1 : 0;
}

int CZT5Thread::Unlock()
{
    if (pMutex) pMutex->Unlock();
    return 1;
}

char *MStrDup(const char *s, size_t maxLength)
{
    if (!s) return nullptr;
    const size_t length = strnlen(s, maxLength);
    char *copy = static_cast<char *>(MMemAlloc(length + 1));
    if (!copy) return nullptr;
    MMemCpy(copy, s, length);
    copy[length] = 0;
    return copy;
}

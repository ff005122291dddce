// Thin platform layer: memory, strings, events, mutexes, threads, time.
// Everything else in the library uses these in place of the OS.
#ifndef PANOVIEW_MRUNTIME_H
#define PANOVIEW_MRUNTIME_H

#include <cstddef>
#include <cstdint>

#include "ZT5Mutex.h" // MHandle, MMutex*, CZT5Mutex

typedef uint32_t MDWord;
typedef int32_t MLong;
typedef int32_t MRESULT;

#define MNull nullptr

// Results of the handle functions.
#define MERR_NONE 0
#define MERR_FAILED 1
#define MERR_NULL_HANDLE 2

#define M_INFINITE 0xFFFFFFFFu

// Memory.
void *MMemAlloc(size_t size);
void MMemFree(void *p);
void *MMemRealloc(void *p, size_t size);
void MMemCpy(void *dst, const void *src, size_t size);
void MMemSet(void *dst, int value, size_t size);
int MMemCmp(const void *a, const void *b, size_t size);

// Strings of single bytes ending in zero.
size_t MStrLen(const char *s);
char *MStrCpy(char *dst, const char *src);
// A copy of at most maxLength bytes of s, with its zero, from MMemAlloc
// (free with MMemFree); null for a null s or when memory runs out.
char *MStrDup(const char *s, size_t maxLength);
int MSprintf(char *dst, const char *format, ...);

// Events: mode 1 resets itself after releasing one waiter; any other mode
// stays signalled until reset.
MHandle MEventCreate(MDWord mode);
int MEventDestroy(MHandle h);
int MEventSignal(MHandle h);
int MEventReset(MHandle h);
int MEventWait(MHandle h, MDWord timeoutMs); // 0 signalled, 1 time-out, 2 null

// Threads, created suspended.
typedef uintptr_t (*MThreadProc)(void *arg);
MHandle MThreadCreate(MThreadProc routine, void *arg);
int MThreadDestroy(MHandle h);
int MThreadResume(MHandle h);
int MThreadSuspend(MHandle h);
int MThreadSleep(MDWord ms);
int MThreadSetPriority(MHandle h, int level);
// Waits for a resumed thread's routine to return; 0, 1 or 2. Used where the
// Windows code waits on the thread handle.
int MThreadWait(MHandle h, MDWord timeoutMs);
// Identifier of the calling thread, for log lines.
unsigned long MThreadCurrentId();

// Free-running 32-bit clock in units of 0.1 millisecond.
MDWord MGetTickCount();

// Event object; the display object uses mode 0 (manual reset).
class CZT5Event {
public:
    explicit CZT5Event(MDWord mode = 0) : m_hEvent(MEventCreate(mode)) {}
    virtual ~CZT5Event() { MEventDestroy(m_hEvent); }
    int Signal() { return MEventSignal(m_hEvent); }
    int Reset() { return MEventReset(m_hEvent); }
    int Wait(MDWord timeoutMs) { return MEventWait(m_hEvent, timeoutMs); }

private:
    CZT5Event(const CZT5Event &) = delete;
    CZT5Event &operator=(const CZT5Event &) = delete;
    MHandle m_hEvent;
};

// A worker thread object: subclasses override Run and end it by signalling
// pExitEvent through CZT5Thread::Run.
class CZT5Thread {
public:
    CZT5Thread() = default;
    virtual ~CZT5Thread();
    virtual MDWord Run();

    int Create(MDWord priorityWord);
    int Exit();
    int Resume();
    int Suspend();
    int SetPriority(int level);
    int Sleep(MDWord ms);
    int Lock();
    int Unlock();

protected:
    MDWord bExit = 0;
    MHandle hThread = nullptr;
    CZT5Mutex *pMutex = nullptr;
    CZT5Event *pExitEvent = nullptr;
    MDWord dwPriority = 0;

private:
    static uintptr_t Entry(void *arg);
};

#endif

/* The re-entrant mutex that Panoview and its host share: the UI callback
 * record, the YUV buffer and the face list name one by pointer. Header-only,
 * so a host can make one without linking anything. */
#ifndef ZT5_MUTEX_H
#define ZT5_MUTEX_H

#include <mutex>
#include <new>

typedef void *MHandle;

/* A mutex a thread may take again while it holds it; release as often. */
inline MHandle MMutexCreate()
{
    return static_cast<MHandle>(new (std::nothrow) std::recursive_mutex());
}
inline int MMutexDestroy(MHandle h)
{
    delete static_cast<std::recursive_mutex *>(h);
    return 0;
}
inline int MMutexLock(MHandle h)
{
    if (!h) return 2;
    static_cast<std::recursive_mutex *>(h)->lock();
    return 0;
}
inline int MMutexUnlock(MHandle h)
{
    if (!h) return 2;
    static_cast<std::recursive_mutex *>(h)->unlock();
    return 0;
}

class CZT5Mutex {
public:
    CZT5Mutex() : m_hMutex(MMutexCreate()) {}
    virtual ~CZT5Mutex() { MMutexDestroy(m_hMutex); }
    int Lock() { return MMutexLock(m_hMutex); }
    int Unlock() { return MMutexUnlock(m_hMutex); }

private:
    CZT5Mutex(const CZT5Mutex &);
    CZT5Mutex &operator=(const CZT5Mutex &);
    MHandle m_hMutex;
};

#endif

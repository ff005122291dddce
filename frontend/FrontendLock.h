// Scoped hold of a CZT5Mutex.
#ifndef PANOVIEW_FRONTEND_LOCK_H
#define PANOVIEW_FRONTEND_LOCK_H

#include "ZT5Mutex.h"

class FrontendLock {
public:
    explicit FrontendLock(CZT5Mutex &m) : m_m(m) { m_m.Lock(); }
    ~FrontendLock() { m_m.Unlock(); }

private:
    FrontendLock(const FrontendLock &) = delete;
    FrontendLock &operator=(const FrontendLock &) = delete;
    CZT5Mutex &m_m;
};

#endif

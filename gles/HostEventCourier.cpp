#include "HostEventCourier.h"

#include "ZT5Config.h"
#include "ZT5Mutex.h"

HostEventCourier::~HostEventCourier()
{
    {
        std::lock_guard<std::mutex> lk(m_Lock);
        m_bStop = true;
        m_Queue.clear(); // the display is going: the host hears no more of it
    }
    m_Wake.notify_one();
    if (m_Thread.joinable()) m_Thread.join();
}

void HostEventCourier::Post(ZT5UICallbackRecord *pRecord, MDWord dwParamId, MDWord dwValue)
{
    if (!pRecord) return;
    {
        std::lock_guard<std::mutex> lk(m_Lock);
        if (m_bStop) return;
        m_Queue.push_back({pRecord, dwParamId, dwValue});
        if (!m_Thread.joinable()) m_Thread = std::thread([this] { Run(); });
    }
    m_Wake.notify_one();
}

void HostEventCourier::Run()
{
    std::unique_lock<std::mutex> lk(m_Lock);
    for (;;) {
        m_Wake.wait(lk, [this] { return m_bStop || !m_Queue.empty(); });
        if (m_Queue.empty()) return; // stopped, all delivered
        const Event e = m_Queue.front();
        m_Queue.pop_front();
        lk.unlock();
        Deliver(e.pRecord, e.dwParamId, e.dwValue);
        lk.lock();
    }
}

void HostEventCourier::Deliver(ZT5UICallbackRecord *pRecord, MDWord dwParamId, MDWord dwValue)
{
    CZT5Mutex *pRecordMutex = static_cast<CZT5Mutex *>(pRecord->pMutex);
    if (pRecordMutex) pRecordMutex->Lock();
    pRecord->msg.dwEvent = ZT5_UI_EVENT;
    pRecord->msg.dwValue1 = dwValue;
    pRecord->msg.dwValue2 = dwValue;
    pRecord->msg.dwParamID = dwParamId;
    if (pRecord->pfnCallback) pRecord->pfnCallback(&pRecord->msg, pRecord->pArg);
    if (pRecordMutex) pRecordMutex->Unlock();
}

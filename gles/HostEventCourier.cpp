#include "HostEventCourier.h"

#include "ZT5Config.h"
#include "ZT5Mutex.h"

HostEventCourier::~HostEventCourier()
{
    {
        std::lock_guard<std::mutex> lk(m_pState->lock);
        m_pState->bStop = true;
        m_pState->queue.clear(); // the display is going: the host hears no more of it
    }
    m_pState->wake.notify_one();
    if (!m_Thread.joinable()) return;
    // A host that ends the display from inside its callback runs this on
    // the courier's own thread, which can't wait for itself: it is let go,
    // and finds the stop in the state it shares when the callback returns.
    if (m_Thread.get_id() == std::this_thread::get_id())
        m_Thread.detach();
    else
        m_Thread.join();
}

void HostEventCourier::Post(ZT5UICallbackRecord *pRecord, MDWord dwParamId, MDWord dwValue)
{
    if (!pRecord) return;
    {
        std::lock_guard<std::mutex> lk(m_pState->lock);
        if (m_pState->bStop) return;
        m_pState->queue.push_back({pRecord, dwParamId, dwValue});
        if (!m_Thread.joinable()) m_Thread = std::thread(Run, m_pState);
    }
    m_pState->wake.notify_one();
}

void HostEventCourier::Run(std::shared_ptr<State> pState)
{
    std::unique_lock<std::mutex> lk(pState->lock);
    for (;;) {
        pState->wake.wait(lk, [&] { return pState->bStop || !pState->queue.empty(); });
        if (pState->bStop) return;
        const Event e = pState->queue.front();
        pState->queue.pop_front();
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

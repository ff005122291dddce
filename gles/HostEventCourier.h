// Hands the host the UI events that arise on the render thread (a changed
// cruise state, an edge met while drawing) from a thread of its own.
//
// Why not the render thread itself: the host's callback may call the display
// again, and a call that needs the front end's lock can't get it while
// another host thread holds that lock and waits for the render thread (a
// snapshot, a view switch). The courier may wait there; the render thread
// goes on and serves the waiting thread, which then lets go of the lock.
//
// Events keep their order. The thread starts with the first event and ends
// with the courier (the renderer's destruction): never within a rebuild,
// which a callback running on it may have asked for.
#ifndef PANOVIEW_HOSTEVENTCOURIER_H
#define PANOVIEW_HOSTEVENTCOURIER_H

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include "MRuntime.h"
#include "ZT5Records.h"

class HostEventCourier {
public:
    HostEventCourier() = default;
    ~HostEventCourier(); // drops what is still queued and ends the thread
    HostEventCourier(const HostEventCourier &) = delete;
    HostEventCourier &operator=(const HostEventCourier &) = delete;

    // Queues one event for `pRecord` (the host's, alive as long as the
    // display); any thread, never blocks on the host.
    void Post(ZT5UICallbackRecord *pRecord, MDWord dwParamId, MDWord dwValue);
    // Calls the host's callback with one event, under the record's mutex.
    static void Deliver(ZT5UICallbackRecord *pRecord, MDWord dwParamId, MDWord dwValue);

private:
    struct Event {
        ZT5UICallbackRecord *pRecord;
        MDWord dwParamId, dwValue;
    };
    // Shared with the thread, which may outlive the courier (see the
    // destructor).
    struct State {
        std::mutex lock;
        std::condition_variable wake;
        std::deque<Event> queue; // under lock
        bool bStop = false;      // under lock
    };
    static void Run(std::shared_ptr<State> pState);

    std::shared_ptr<State> m_pState = std::make_shared<State>();
    std::thread m_Thread; // started by the first Post, under the state's lock
};

#endif

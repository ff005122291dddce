// Named timers with total, shortest and longest time, in 0.1 ms units.
#ifndef PANOVIEW_CMBENCHMARK_H
#define PANOVIEW_CMBENCHMARK_H

#include "MRuntime.h"

class CMBenchmark {
public:
    enum { kItems = 20 };
    struct Item {
        MDWord dwId;
        MDWord dwStartTime;
        MDWord dwCountLow;
        MDWord dwCountHigh;
        MDWord dwTotalTime;
        MDWord dwTotalCount;
        MDWord dwTotalHigh;
        MDWord dwMinTime;
        MDWord dwMinFrame;
        MDWord dwZero9;
        MDWord dwMaxTime;
        MDWord dwMaxFrame;
        MDWord dwZero12;
    };
    static_assert(sizeof(Item) == 52, "thirteen words an item");

    CMBenchmark();
    virtual ~CMBenchmark() = default;

    int Start(MDWord id);
    int Stop(MDWord id, MDWord count);
    int IsEnabled() const;
    void SetMode(const void *pRecord); // {u32 mode, f32 speed}
    int GetTriple(MDWord id, MDWord index, MDWord *pOut) const;
    void Reset();

    // Clock used by Start and Stop; tests replace it.
    typedef MDWord (*Clock)();
    void SetClock(Clock clock) { m_clock = clock ? clock : MGetTickCount; }

    MDWord m_dwMode = 0;
    float m_fSpeed = 0.0f;
    Item m_Items[kItems];
    MDWord m_dwReserved = 0;

private:
    Item *Find(MDWord id);
    const Item *Find(MDWord id) const;
    Clock m_clock = MGetTickCount;
};

#endif

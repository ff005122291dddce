#include "CMBenchmark.h"

static const MDWord kFreeId = 0xFFFFFFFFu;
static const MDWord kIgnoreLimit = 0xBAD0BAD0u;

CMBenchmark::CMBenchmark()
{
    Reset();
}

void CMBenchmark::Reset()
{
    MMemSet(m_Items, 0, sizeof(m_Items));
    for (Item &it : m_Items) it.dwId = kFreeId;
}

CMBenchmark::Item *CMBenchmark::Find(MDWord id)
{
    for (Item &it : m_Items)
        if (it.dwId == id) return &it;
    return nullptr;
}

const CMBenchmark::Item *CMBenchmark::Find(MDWord id) const
{
    for (const Item &it : m_Items)
        if (it.dwId == id) return &it;
    return nullptr;
}

int CMBenchmark::Start(MDWord id)
{
    Item *it = Find(id);
    if (!it) {
        it = Find(kFreeId);
        if (!it) return 3;
        MMemSet(it, 0, sizeof(*it));
        it->dwId = id;
        it->dwMinTime = 0xFFFFFFFFu;
    }
    it->dwStartTime = m_clock();
    return 0;
}

int CMBenchmark::Stop(MDWord id, MDWord count)
{
    MDWord now = m_clock();
    Item *it = Find(id);
    if (!it || id == kFreeId) return 2;
    MDWord dt = now - it->dwStartTime;
    if (it->dwStartTime == 0 || dt >= kIgnoreLimit) return 0;
    if (dt < it->dwMinTime) {
        it->dwMinTime = dt;
        it->dwMinFrame = it->dwCountLow;
    }
    if (dt > it->dwMaxTime) {
        it->dwMaxTime = dt;
        it->dwMaxFrame = it->dwCountLow;
    }
    if (MDWord(it->dwTotalTime + dt) < it->dwTotalTime) it->dwTotalHigh++;
    MDWord before = it->dwCountLow;
    it->dwCountLow += count;
    if (it->dwCountLow < before) {
        it->dwCountHigh++;
        it->dwTotalHigh = it->dwCountHigh;
    }
    it->dwTotalTime += dt;
    it->dwTotalCount = it->dwCountLow;
    it->dwStartTime = 0;
    return 0;
}

int CMBenchmark::IsEnabled() const
{
    return (m_dwMode == 0 || m_dwMode == 2 || m_dwMode == 3 || m_dwMode == 4) ? 1 : 0;
}

void CMBenchmark::SetMode(const void *pRecord)
{
    if (!pRecord) return;
    const MDWord *w = static_cast<const MDWord *>(pRecord);
    m_dwMode = w[0];
    MMemCpy(&m_fSpeed, &w[1], sizeof(float));
    if (m_dwMode == 4) Reset();
}

int CMBenchmark::GetTriple(MDWord id, MDWord index, MDWord *pOut) const
{
    if (!pOut || index > 2) return 2;
    const Item *it = Find(id);
    if (!it || id == kFreeId) {
        // No measurement under this id (none yet, or the counters were just
        // restarted): the caller reads zeros, not whatever its buffer held.
        pOut[0] = pOut[1] = pOut[2] = 0;
        return 2;
    }
    const MDWord *words = reinterpret_cast<const MDWord *>(it);
    pOut[0] = words[4 + 3 * index];
    pOut[1] = words[5 + 3 * index];
    pOut[2] = words[6 + 3 * index];
    return 0;
}

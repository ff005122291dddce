// Single-word members written on one thread and read on another.
#ifndef PANOVIEW_RELAXED_H
#define PANOVIEW_RELAXED_H

#include <atomic>

// A member that gesture calls store from the host thread while Render reads
// it on the render thread. Each access is one relaxed atomic load or store of
// one aligned word: no lock, no ordering, only freedom from torn values and
// from undefined behaviour. Compound assignments are a load and a store; a
// gesture landing between them may be lost, which the per-frame clamps of
// the views tolerate.
template <typename T>
class Relaxed {
public:
    Relaxed(T v = T()) : m_v(v) {}
    Relaxed(const Relaxed &) = delete;
    Relaxed &operator=(const Relaxed &) = delete;
    operator T() const { return m_v.load(std::memory_order_relaxed); }
    T load() const { return m_v.load(std::memory_order_relaxed); }
    Relaxed &operator=(T v)
    {
        m_v.store(v, std::memory_order_relaxed);
        return *this;
    }
    Relaxed &operator+=(T v) { return *this = T(load() + v); }
    Relaxed &operator-=(T v) { return *this = T(load() - v); }
    // Stores `desired` if the member still holds `expected`; otherwise
    // `expected` receives what it holds. For the read-modify-write steps
    // that must not lose a concurrent writer's change.
    bool CompareExchange(T &expected, T desired)
    {
        return m_v.compare_exchange_strong(expected, desired, std::memory_order_relaxed);
    }

private:
    std::atomic<T> m_v;
};

#endif

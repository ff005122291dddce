#include "FrameMailbox.h"

#include <new>

#include "MLog.h"
#include "ZT5Errors.h"

MRESULT FrameMailbox::Post(const VideoFrame &frame)
{
    if (frame.width == 0 || frame.height == 0 || !frame.PlanesUsable()) return ZT5_ERR_INVALID_PARAM;

    // A slot that is neither the newest nor being read: with three there is
    // always one, and only this (the one posting) thread writes slots.
    int free = -1;
    {
        std::lock_guard<std::mutex> lk(m_Lock);
        for (int i = 0; i < kSlots && free < 0; i++)
            if (i != m_nNewest && i != m_nReading) free = i;
    }
    if (free < 0) return ZT5_ERR_NO_MEMORY;
    Slot &s = m_Slots[free];

    size_t offsets[3] = {0, 0, 0}, total = 0;
    for (int i = 0; i < frame.PlaneCount(); i++) {
        offsets[i] = total;
        total += frame.RowBytes(i) * frame.Shape(i).rows;
    }
    // Grows, never shrinks; the slot is nobody else's while it is written.
    if (s.bytes.size() < total) {
        try {
            s.bytes.resize(total);
        } catch (const std::bad_alloc &) {
            MLogInfo("[%s]FrameMailbox::Post no memory for %zu bytes", MLOG_TAG, total);
            return ZT5_ERR_NO_MEMORY;
        }
    }

    // Rows at the texture's pitch: the planes' own bytes, de-padded, in
    // their own layout (no conversion here).
    VideoFrame copy = frame;
    for (int i = 0; i < frame.PlaneCount(); i++) {
        const size_t row = frame.RowBytes(i);
        const uint32_t rows = frame.Shape(i).rows;
        uint8_t *dst = s.bytes.data() + offsets[i];
        if (frame.plane[i].pitch == row) {
            MMemCpy(dst, frame.plane[i].data, row * rows);
        } else {
            for (uint32_t r = 0; r < rows; r++) MMemCpy(dst + r * row, frame.plane[i].data + r * frame.plane[i].pitch, row);
        }
        copy.plane[i].data = dst;
        copy.plane[i].pitch = row;
    }
    for (int i = frame.PlaneCount(); i < 3; i++) copy.plane[i] = FramePlane();

    std::lock_guard<std::mutex> lk(m_Lock);
    s.frame = copy;
    s.serial = ++m_dwSerial;
    m_nNewest = free;
    return 0;
}

bool FrameMailbox::Recut(const FrameBox &square, const FrameBox &rectangle, const FrameColour &colour)
{
    std::lock_guard<std::mutex> lk(m_Lock);
    if (m_nNewest < 0) return false;
    VideoFrame &f = m_Slots[m_nNewest].frame;
    f.lensSquare = square;
    f.lensRectangle = rectangle;
    f.KeepBoxesInside();
    f.colour = colour;
    return true;
}

bool FrameMailbox::Take(VideoFrame *pFrame, MDWord *pSerial, bool *pbNew)
{
    std::lock_guard<std::mutex> lk(m_Lock);
    if (m_nNewest < 0) return false;
    const Slot &s = m_Slots[m_nNewest];
    *pFrame = s.frame;
    *pSerial = s.serial;
    *pbNew = s.serial != m_dwTaken;
    m_nReading = m_nNewest;
    m_dwTaken = s.serial;
    return true;
}

void FrameMailbox::Release()
{
    std::lock_guard<std::mutex> lk(m_Lock);
    m_nReading = -1;
}

MDWord FrameMailbox::Serial()
{
    std::lock_guard<std::mutex> lk(m_Lock);
    return m_dwSerial;
}

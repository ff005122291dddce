// The frames between the host's thread and the render thread: a few owned
// slots, each holding one frame in its own layout with rows at the
// texture's pitch. The host's thread copies a frame into a free slot and
// publishes it as the newest; the render thread takes the newest and keeps
// it until it takes the next, so that it can upload any part of it again
// (a view that looks at another part of a still frame). Frames are never
// queued: a newer one replaces the one not yet taken, and the poster never
// waits for an upload: of three slots, one is the newest, one at most the
// render thread's, and a third is always free.
#ifndef PANOVIEW_FRAMEMAILBOX_H
#define PANOVIEW_FRAMEMAILBOX_H

#include <mutex>
#include <vector>

#include "MRuntime.h"
#include "VideoFrame.h"

class FrameMailbox {
public:
    // Host's thread (one poster at a time per display). Copies `frame`,
    // reading each plane within PlaneSpan at its pitch, and publishes it.
    // 0, ZT5_ERR_INVALID_PARAM for a frame without usable planes,
    // ZT5_ERR_NO_MEMORY when no slot can be had (the kept frame stays).
    MRESULT Post(const VideoFrame &frame);
    // Host's thread: the kept frame is to be looked at through other boxes
    // and colours (set on a still picture). False when none is kept.
    bool Recut(const FrameBox &square, const FrameBox &rectangle, const FrameColour &colour);

    // Render thread. The newest frame, with the serial it was posted under
    // and whether it is another than the one taken last; false when no frame
    // was ever posted. Its slot is the render thread's, its planes valid,
    // until the next Take or Release.
    bool Take(VideoFrame *pFrame, MDWord *pSerial, bool *pbNew);
    void Release();
    // The serial of the newest frame (0 before the first).
    MDWord Serial();

private:
    struct Slot {
        std::vector<uint8_t> bytes;
        VideoFrame frame;
        MDWord serial = 0;
    };
    static constexpr int kSlots = 3;

    // Guards the indices and the newest frame's boxes; never held while
    // bytes are copied or uploaded.
    std::mutex m_Lock;
    Slot m_Slots[kSlots];
    int m_nNewest = -1;  // published last; never written while it is
    int m_nReading = -1; // the render thread's until its next Take or Release
    MDWord m_dwSerial = 0;
    MDWord m_dwTaken = 0; // serial the render thread took last
};

#endif

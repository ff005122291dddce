// The textures of the frame on screen: up to three, as its layout wants
// them (FrameSampler.h), storage made once per layout and size, texels
// replaced for each new frame. Render thread only, context current.
#ifndef PANOVIEW_FRAMETEXTURES_H
#define PANOVIEW_FRAMETEXTURES_H

#include "FrameSampler.h"
#include "GlObjects.h"
#include "VideoFrame.h"

class FrameTextures {
public:
    // Uploads a frame. Its rows are read at their pitch: a part of a frame
    // cut from a larger one goes up without a copy where the driver reads
    // rows of a longer pitch (RowsAtAnyPitch), else the planes must be
    // tight. False when nothing went up.
    bool Upload(const VideoFrame &frame);
    // Context current: whether the driver reads rows of any pitch (ES 3, or
    // ES 2 with EXT_unpack_subimage). Asked once a context.
    static bool RowsAtAnyPitch();
    // The frame last uploaded is in the textures.
    bool Holds() const { return m_bHolds; }
    const GLuint *Ids() const { return m_Ids; }
    // Drops the GL names (the context is going).
    void Reset();

private:
    GlTexture m_Textures[3];
    GLuint m_Ids[3] = {0, 0, 0};
    TextureSpec m_Specs[3] = {};
    bool m_bHolds = false;
};

#endif

// The picture a display shows, read into a host's buffer in the layout the
// host asks for: planar I420 converted on the GPU (the host gets 1.5 bytes a
// pixel across the bus instead of 4, and no conversion on its processor), or
// RGBA. Rows top-down in both, tightly packed.
//
// Render thread only, context current (the renderer's EGL locks held).
#ifndef PANOVIEW_PICTURECONVERTER_H
#define PANOVIEW_PICTURECONVERTER_H

#include <GLES2/gl2.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "GlObjects.h"
#include "RenderTarget.h"

class PictureConverter {
public:
    // Bytes of a picture of w x h in `layout` (ZT5_FRAME_CS_I420 or
    // ZT5_SNAPSHOT_RGBA); 0 for another layout.
    static size_t Bytes(uint32_t layout, uint32_t w, uint32_t h);

    // Reads the w x h picture at the bottom left corner of `source` (a
    // texture, or 0 for the framebuffer bound now, which is copied to a
    // texture first) into dst, which holds Bytes(layout, w, h). The colours
    // become Y'CbCr with the matrix and range of `yuvMatrix`, a
    // ZT5_CFG_DISPLAY_YUV_MATRIX word. Every GL state it changes is put
    // back. False when GL failed (dst then holds nothing of use).
    bool Read(GLuint source, GLsizei sourceWidth, GLsizei sourceHeight, uint32_t w, uint32_t h, uint32_t layout,
              uint32_t yuvMatrix, uint8_t *dst);
    // Context current: the GL objects go; the next Read makes them again.
    void Release();

private:
    bool Build();
    bool PrepareOutput(GLsizei w, GLsizei h);
    // One pass into the region of the output at (x, y) of w x h texels.
    void Pass(GLint position, GLint x, GLint y, GLsizei w, GLsizei h);
    // The region read into rows of rowBytes bytes at dst (through the
    // scratch buffer when the region's rows are longer).
    void ReadRegion(GLint x, GLint y, GLsizei w, GLsizei h, size_t rowBytes, uint8_t *dst);

    GlProgram m_Pack;  // four Y', Cb or Cr samples a texel
    GlProgram m_Flip;  // RGBA, turned top-down
    GLint m_PackPosition = -1, m_PackSource = -1, m_PackOrigin = -1, m_PackSize = -1, m_PackTop = -1;
    GLint m_PackStep = -1, m_PackWeights = -1;
    GLint m_FlipPosition = -1, m_FlipSource = -1, m_FlipOrigin = -1, m_FlipSize = -1, m_FlipTop = -1;
    GlBuffer m_Quad;
    GlTexture m_Copy; // the window's picture, for a source that is no texture
    GLsizei m_CopyWidth = 0, m_CopyHeight = 0;
    GlTexture m_Output;
    GlFramebuffer m_OutputFbo;
    GLsizei m_OutputWidth = 0, m_OutputHeight = 0;
    std::vector<uint8_t> m_Scratch;
    bool m_bBuilt = false;
    bool m_bFailed = false; // the programs can't be made: no picture, no retry every call
};

#endif

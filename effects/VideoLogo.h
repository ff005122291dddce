// A picture drawn over the plain view as one textured quad: the host's BMP
// logo at its placement, or the built-in mark in a quad the view gives.
// Render thread only, context current (construction and destruction too).
#ifndef PANOVIEW_VIDEOLOGO_H
#define PANOVIEW_VIDEOLOGO_H

#include "GlObjects.h"
#include "OverlayQuad.h"
#include "MRuntime.h"

class VideoLogo {
public:
    // Builds the program; false when it failed (nothing will be drawn).
    bool Create();

    // Loads a BMP file to be drawn at `placement`: left, top, width, height
    // in fractions of the picture, y downward. On a refused file the picture
    // shown so far stays. True when the new picture was taken.
    bool Load(const char *pFileName, const float placement[4]);

    // The built-in mark (white on transparent), drawn in a quad the caller
    // gives at each draw.
    bool LoadMark();

    bool Loaded() const { return m_dwState != kEmpty; }

    // Draws the picture with the picture's matrix: at its placement when
    // loaded from a file, else in `quad` (left, bottom, right, top in the
    // picture's -1..1 square). Blending is on for the draw only.
    void Draw(const float *mvp, const float *quad = nullptr) const;

private:
    // Row order of the texture: the first row uploaded is the top or the
    // bottom of the picture.
    enum : MDWord { kEmpty = 0, kTopDown = 1, kBottomUp = 2 };
    bool Upload(const unsigned char *pixels, MLong width, MLong height, GLenum format, MDWord state);

    OverlayQuad m_Quad;
    GlTexture m_Texture;
    MDWord m_dwState = kEmpty;
    bool m_bPlaced = false;
    float m_fPlacement[4] = {0, 0, 0, 0};
};

#endif

// Face rectangles over the plain view's picture, coloured by gender, with up
// to three label lines beside each: name, gender word, age. Rectangles and
// labels are placed in the same space, the picture's -1..1 square as the
// frame's rotation turns it, and drawn with the picture's matrix, so that
// they stay on their faces through rotation, zoom and pan. Render thread
// only, context current (destruction too).
#ifndef PANOVIEW_AIRECTRENDER_H
#define PANOVIEW_AIRECTRENDER_H

#include "GlObjects.h"
#include "GlyphText.h"
#include "MRuntime.h"
#include "ZT5Records.h"

// m_dwFaceOption bits.
enum : MDWord {
    FACE_OPTION_RECTS = 1,
    FACE_OPTION_GENDER = 2,
    FACE_OPTION_AGE = 4,
    FACE_OPTION_NAME = 8,
};

class AiRectRender {
public:
    // Builds the rectangle program. 0, or -1 when it failed (no rectangles).
    MRESULT Init_rect();
    // Renders the font's glyphs for the labels (GlyphText::Init).
    MRESULT Init_font(const char *pFontPath) { return m_Text.Init(pFontPath); }
    bool TextReady() const { return m_Text.Ready(); }

    // Takes the faces to draw from now on, their coordinates in pixels of a
    // video of videoWidth x videoHeight. More than ZT5_FACE_LIST_MAX: -1,
    // and the list taken before stays.
    MRESULT SetFaceList(const ZT5FaceRect *pRecords, MLong lCount, MLong lVideoWidth, MLong lVideoHeight,
                        MDWord dwOption);

    // Draws the faces taken last. texCoords: the picture's coordinates (0..1,
    // v = 0 the top row of the frame) at the corners of its square, bottom
    // left, bottom right, top left, top right, as the rotation sets them;
    // pictureRatio: the square's width by height on the screen.
    void Render(const float *mvp, const float *texCoords, float pictureRatio);

    // The label lines of one face the option asks for (name, gender word,
    // age), as a block centred on `middle`, left-aligned at x, each line
    // `lineHeight` high, in the space of `mvp` (y up); a unit across is
    // `unitRatio` times one up on the screen.
    void DrawLabels(const ZT5FaceRect &face, const float colour[3], float x, float middle, float lineHeight,
                    float unitRatio, const float *mvp);

private:
    // Face pixels to the square: the inverse of the corners' mapping.
    struct Placement {
        bool ok;
        float m[4];    // square offset per unit of (u, v)
        float bl[2];   // (u, v) at the bottom left corner
        void ToSquare(float u, float v, float *x, float *y) const;
    };
    static Placement PlacementFor(const float *texCoords);

    GlProgram m_RectProgram;
    GLint m_aPosition = -1;
    GLint m_uMVPMatrix = -1;
    GLint m_uColor = -1;
    float m_fLineWidth = 1.0f;

    ZT5FaceRect m_Faces[ZT5_FACE_LIST_MAX] = {};
    MLong m_lFaceCount = 0;
    MLong m_lVideoWidth = 0;
    MLong m_lVideoHeight = 0;
    MDWord m_dwOption = 0;

    GlyphText m_Text;
};

#endif

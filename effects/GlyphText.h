// Labels without any text facility of the platform: the 94 printable ASCII
// characters are rendered once by FreeType from the host's font; a label is
// composed from those bitmaps on the processor into one alpha texture and
// drawn as one quad in a colour. Render thread only, context current
// (destruction too).
#ifndef PANOVIEW_GLYPHTEXT_H
#define PANOVIEW_GLYPHTEXT_H

#include <string>
#include <unordered_map>

#include "GlObjects.h"
#include "OverlayQuad.h"
#include "MRuntime.h"

class GlyphText {
public:
    GlyphText() = default;
    ~GlyphText();

    // Renders the glyphs at 48 pixels to the em and builds the program.
    // 0, or -1 for a font FreeType can't read or a failed program: the
    // object then composes nothing.
    MRESULT Init(const char *pFontPath);
    bool Ready() const { return m_bReady; }

    // Makes `text` the line drawn next: composed into a texture of its own
    // the first time, taken as it is afterwards (labels stay the same from
    // draw to draw; the last lines used are kept). Refused (false, nothing
    // drawn next): more than kMaxChars characters, or a byte outside
    // 0x20..0x7E. *pAspect receives the line's width by its height, in
    // texels.
    bool Compose(const char *text, float *pAspect);

    // Draws the line composed last as the quad (x, y)-(x + w, y + h) with
    // `mvp`, in `colour` (r, g, b, 0..1) where the glyphs have ink.
    void Draw(const float *mvp, const float colour[3], float x, float y, float w, float h) const;

    static const int kMaxChars = 50;

private:
    GlyphText(const GlyphText &) = delete;
    GlyphText &operator=(const GlyphText &) = delete;

    // One character's ink as FreeType rendered it: one byte a pixel, rows
    // `pitch` bytes apart, top row first.
    struct Glyph {
        int left = 0;  // pen to the first ink column; may be negative
        int top = 0;   // baseline to the top ink row
        int width = 0;
        int rows = 0;
        unsigned char *pInk = nullptr; // width * rows bytes, owned
    };
    static const int kGlyphCount = 94; // '!' .. '~'
    static const int kBaseMargin = 10; // rows kept free under the baseline

    void ReleaseGlyphs();
    // Columns a character moves the pen by.
    int Advance(unsigned char c) const;

    Glyph m_Glyphs[kGlyphCount];
    int m_nLineHeight = 0;
    int m_nSpaceWidth = 0;
    bool m_bReady = false;

    unsigned char *m_pLine = nullptr; // composed line, grows, never shrinks
    size_t m_nLineSize = 0;

    // A composed line: its texture and width by height.
    struct Line {
        GlTexture texture;
        float aspect = 1.0f;
    };
    static const size_t kMaxLines = 200; // all lines of a full face list, with room
    bool ComposeLine(const char *text, size_t length, Line *pLine);

    OverlayQuad m_Quad;
    GLint m_uColor = -1;
    std::unordered_map<std::string, Line> m_Lines;
    GLuint m_CurrentTexture = 0;
};

#endif

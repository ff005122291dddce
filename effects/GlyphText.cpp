#include <algorithm>
#include "GlyphText.h"

#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_GLYPH_H

#include <cstring>

#include "GlesRenderEffect.h"
#include "MLog.h"

namespace {

const char kFragmentShader[] = "precision mediump float;\n"
                               "uniform sampler2D uTexture;\n"
                               "uniform vec3 uColor;\n"
                               "varying vec2 vTexCoor;\n"
                               "void main() {\n"
                               "  gl_FragColor = vec4(uColor, texture2D(uTexture, vTexCoor).a);\n"
                               "}\n";

// FreeType's objects for the time of Init only: the glyphs are copied out.
struct FreeTypeFace {
    FT_Library library = nullptr;
    FT_Face face = nullptr;
    ~FreeTypeFace()
    {
        if (face) FT_Done_Face(face);
        if (library) FT_Done_FreeType(library);
    }
};

// The ink of a rendered glyph as one byte a pixel, top row first, whatever
// the bitmap's pitch (negative for a bitmap that runs upward) and pixel
// mode: grey levels, or one bit a pixel. Zero is no ink.
bool CopyInk(const FT_Bitmap &bm, unsigned char *out)
{
    const int pitch = bm.pitch < 0 ? -bm.pitch : bm.pitch;
    for (unsigned r = 0; r < bm.rows; r++) {
        // With a negative pitch the buffer's first row is the bottom one.
        const unsigned char *src = bm.buffer + size_t(bm.pitch < 0 ? bm.rows - 1 - r : r) * size_t(pitch);
        unsigned char *dst = out + size_t(r) * bm.width;
        for (unsigned c = 0; c < bm.width; c++) {
            if (bm.pixel_mode == FT_PIXEL_MODE_GRAY)
                dst[c] = src[c];
            else if (bm.pixel_mode == FT_PIXEL_MODE_MONO)
                dst[c] = (src[c >> 3] & (0x80 >> (c & 7))) ? 0xff : 0;
            else
                return false;
        }
    }
    return true;
}

} // namespace

GlyphText::~GlyphText()
{
    ReleaseGlyphs();
    MMemFree(m_pLine);
}

void GlyphText::ReleaseGlyphs()
{
    for (Glyph &g : m_Glyphs) {
        MMemFree(g.pInk);
        g = Glyph();
    }
    m_Lines.clear();
    m_CurrentTexture = 0;
    m_bReady = false;
}

MRESULT GlyphText::Init(const char *pFontPath)
{
    ReleaseGlyphs();
    if (!pFontPath || !pFontPath[0]) return -1;
    FreeTypeFace ft;
    if (FT_Init_FreeType(&ft.library) != 0) return -1;
    if (FT_New_Face(ft.library, pFontPath, 0, &ft.face) != 0) {
        MLogInfo("[%s] GlyphText::Init no font in %s", MLOG_TAG, pFontPath);
        return -1;
    }
    // 48 points at 72 dots per inch: 48 pixels to the em (26.6 fixed point).
    if (FT_Set_Char_Size(ft.face, 48 * 64, 48 * 64, 72, 72) != 0) return -1;

    for (int i = 0; i < kGlyphCount; i++) {
        FT_Glyph glyph = nullptr;
        if (FT_Load_Glyph(ft.face, FT_Get_Char_Index(ft.face, FT_ULong(0x21 + i)), FT_LOAD_DEFAULT) != 0 ||
            FT_Get_Glyph(ft.face->glyph, &glyph) != 0) {
            ReleaseGlyphs();
            return -1;
        }
        if (FT_Glyph_To_Bitmap(&glyph, FT_RENDER_MODE_NORMAL, nullptr, 1) != 0) {
            FT_Done_Glyph(glyph);
            ReleaseGlyphs();
            return -1;
        }
        const FT_BitmapGlyph bg = reinterpret_cast<FT_BitmapGlyph>(glyph);
        Glyph &g = m_Glyphs[i];
        g.left = bg->left;
        g.top = bg->top;
        g.width = int(bg->bitmap.width);
        g.rows = int(bg->bitmap.rows);
        bool ok = true;
        if (g.width > 0 && g.rows > 0) {
            g.pInk = static_cast<unsigned char *>(MMemAlloc(size_t(g.width) * size_t(g.rows)));
            ok = g.pInk && CopyInk(bg->bitmap, g.pInk);
        }
        FT_Done_Glyph(glyph);
        if (!ok) {
            ReleaseGlyphs();
            return -1;
        }
    }
    // A space is as wide as an 'a'; a line is the vertical advance of the
    // last glyph loaded, plus the rows kept under the baseline.
    m_nSpaceWidth = m_Glyphs['a' - 0x21].width;
    m_nLineHeight = int(ft.face->glyph->metrics.vertAdvance >> 6) + kBaseMargin;
    if (m_nLineHeight <= kBaseMargin) m_nLineHeight = 48 + kBaseMargin;

    if (!m_Quad.Build(kFragmentShader)) {
        ReleaseGlyphs();
        return -1;
    }
    m_uColor = m_Quad.Uniform("uColor");
    m_Lines.clear();
    m_bReady = true;
    return 0;
}

int GlyphText::Advance(unsigned char c) const
{
    if (c == ' ') return m_nSpaceWidth;
    // A glyph's own bearing and ink set the pen: there is no right bearing.
    // A negative bearing pulls the ink back over the pen, never the pen
    // back behind where it was.
    const Glyph &g = m_Glyphs[c - 0x21];
    const int advance = g.left + g.width;
    return advance > 0 ? advance : 0;
}

bool GlyphText::Compose(const char *text, float *pAspect)
{
    if (!m_bReady || !text) return false;
    const size_t length = strnlen(text, size_t(kMaxChars) + 1);
    if (length > size_t(kMaxChars)) return false;
    const std::string key(text, length);
    auto it = m_Lines.find(key);
    if (it == m_Lines.end()) {
        Line line;
        if (!ComposeLine(text, length, &line)) return false;
        // A host that changes its names all the time fills the cache: it
        // starts again rather than grow.
        if (m_Lines.size() >= kMaxLines) m_Lines.clear();
        it = m_Lines.emplace(key, std::move(line)).first;
    }
    m_CurrentTexture = it->second.texture.id();
    *pAspect = it->second.aspect;
    return true;
}

bool GlyphText::ComposeLine(const char *text, size_t length, Line *pLine)
{
    // The ink's extent: a glyph may reach before its pen (a negative left
    // bearing: J, T, Y, j), the first one before the line's start; the line
    // begins at the leftmost ink so that nothing is cut.
    int pen = 0, inkLeft = 0, inkRight = 0;
    for (size_t i = 0; i < length; i++) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c < 0x20 || c > 0x7e) return false;
        if (c != ' ') {
            const Glyph &g = m_Glyphs[c - 0x21];
            inkLeft = std::min(inkLeft, pen + g.left);
            inkRight = std::max(inkRight, pen + g.left + g.width);
        }
        pen += Advance(c);
        inkRight = std::max(inkRight, pen);
    }
    // Rounded up to 4 columns: the texture's width and its row pitch.
    int64_t width = ((int64_t(inkRight) - inkLeft) + 3) & ~int64_t(3);
    GLint maxSide = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &maxSide);
    if (width > maxSide) return false;

    const int w = int(width), h = m_nLineHeight;
    const size_t need = size_t(w) * size_t(h);
    if (need > m_nLineSize || !m_pLine) {
        unsigned char *line = static_cast<unsigned char *>(MMemAlloc(need ? need : 1));
        if (!line) return false;
        MMemFree(m_pLine);
        m_pLine = line;
        m_nLineSize = need;
    }
    MMemSet(m_pLine, 0, need);

    // Ink is one bit: the glyph's grey levels are dropped and the texture's
    // filtering smooths the edges. Every write is clipped to the line.
    pen = -inkLeft;
    for (size_t i = 0; i < length; i++) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c != ' ') {
            const Glyph &g = m_Glyphs[c - 0x21];
            const int firstRow = h - g.top - kBaseMargin;
            for (int r = 0; r < g.rows; r++) {
                const int y = firstRow + r;
                if (y < 0 || y >= h) continue;
                const unsigned char *ink = g.pInk + size_t(r) * size_t(g.width);
                unsigned char *dst = m_pLine + size_t(y) * size_t(w);
                for (int col = 0; col < g.width; col++) {
                    const int x = pen + g.left + col;
                    if (x >= 0 && x < w && ink[col]) dst[x] = 0xff;
                }
            }
        }
        pen += Advance(c);
    }

    pLine->texture = GlTexture::Create();
    if (!pLine->texture) return false;
    glBindTexture(GL_TEXTURE_2D, pLine->texture.id());
    GLint alignment = 4;
    glGetIntegerv(GL_UNPACK_ALIGNMENT, &alignment);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_ALPHA, w, h, 0, GL_ALPHA, GL_UNSIGNED_BYTE, m_pLine);
    glPixelStorei(GL_UNPACK_ALIGNMENT, alignment);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    pLine->aspect = float(w) / float(h);
    return true;
}

void GlyphText::Draw(const float *mvp, const float colour[3], float x, float y, float w, float h) const
{
    if (!m_bReady || w <= 0.0f) return;
    // Strip: bottom left, bottom right, top left, top right; texture row 0
    // is the top of the line.
    const float positions[12] = {x, y, 0.0f, x + w, y, 0.0f, x, y + h, 0.0f, x + w, y + h, 0.0f};
    const float texCoords[8] = {0, 1, 1, 1, 0, 0, 1, 0};
    m_Quad.Begin();
    glUniform3fv(m_uColor, 1, colour);
    m_Quad.Draw(mvp, positions, texCoords, m_CurrentTexture);
}

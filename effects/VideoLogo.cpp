#include "VideoLogo.h"

#include "BmpFile.h"
#include "BuiltinMark.h"
#include "GlesRenderEffect.h"
#include "MLog.h"

namespace {

// The texture holds the file's bytes as they are, B, G, R (A): the swizzle
// puts red back in front. The mark, being white, doesn't care.
const char kFragmentShader[] = "precision mediump float;\n"
                               "uniform sampler2D uTexture;\n"
                               "varying vec2 vTexCoor;\n"
                               "void main() {\n"
                               "  gl_FragColor = texture2D(uTexture, vTexCoor).bgra;\n"
                               "}\n";

} // namespace

bool VideoLogo::Create()
{
    if (!m_Quad.Build(kFragmentShader)) {
        MLogInfo("[%s] VideoLogo::Create buildProgram error", MLOG_TAG);
        return false;
    }
    m_Texture = GlTexture::Create();
    if (!m_Texture) {
        m_Quad.Reset();
        return false;
    }
    return true;
}

bool VideoLogo::Upload(const unsigned char *pixels, MLong width, MLong height, GLenum format, MDWord state)
{
    if (!m_Quad || !m_Texture) return false;
    GLint maxSide = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &maxSide);
    if (width <= 0 || height <= 0 || width > maxSide || height > maxSide) return false;
    // Rows are tightly packed: a 24-bit row need not be a multiple of 4
    // bytes, and the default alignment would read past the last row.
    GLint alignment = 4;
    glGetIntegerv(GL_UNPACK_ALIGNMENT, &alignment);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    glBindTexture(GL_TEXTURE_2D, m_Texture.id());
    glTexImage2D(GL_TEXTURE_2D, 0, GLint(format), width, height, 0, format, GL_UNSIGNED_BYTE, pixels);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    glPixelStorei(GL_UNPACK_ALIGNMENT, alignment);
    checkGlError("VideoLogo::Upload");
    m_dwState = state;
    return true;
}

bool VideoLogo::Load(const char *pFileName, const float placement[4])
{
    BmpFile bmp;
    if (!pFileName || !placement || !bmp.Load(pFileName)) {
        MLogInfo("[%s] VideoLogo::Load refused %s", MLOG_TAG, pFileName ? pFileName : "(null)");
        return false;
    }
    if (!Upload(bmp.Pixels(), bmp.Width(), bmp.Height(), bmp.BytesPerPixel() == 3 ? GL_RGB : GL_RGBA,
                bmp.TopDown() ? kTopDown : kBottomUp))
        return false;
    for (int i = 0; i < 4; i++) m_fPlacement[i] = placement[i];
    m_bPlaced = true;
    return true;
}

bool VideoLogo::LoadMark()
{
    if (kBuiltinMarkWords < 2) return false;
    const size_t w = kBuiltinMark[0], h = kBuiltinMark[1], n = w * h;
    // B, G, R, A bytes; white pixels are the same in any byte order.
    unsigned char *pixels = static_cast<unsigned char *>(MMemAlloc(n * 4));
    if (!pixels) return false;
    MMemSet(pixels, 0, n * 4);
    for (size_t i = 2; i + 1 < kBuiltinMarkWords; i += 2) {
        const size_t start = kBuiltinMark[i], length = kBuiltinMark[i + 1];
        for (size_t k = start; k < start + length && k < n; k++) MMemSet(pixels + k * 4, 0xff, 4);
    }
    const bool ok = Upload(pixels, MLong(w), MLong(h), GL_RGBA, kTopDown);
    MMemFree(pixels);
    m_bPlaced = false;
    return ok;
}

void VideoLogo::Draw(const float *mvp, const float *quad) const
{
    if (!m_Quad || m_dwState == kEmpty) return;
    float l, b, r, t;
    if (m_bPlaced) {
        // Fractions of the picture, y downward, into its -1..1 square.
        l = 2.0f * (m_fPlacement[0] - 0.5f);
        t = 2.0f * (0.5f - m_fPlacement[1]);
        r = l + 2.0f * m_fPlacement[2];
        b = t - 2.0f * m_fPlacement[3];
    } else if (quad) {
        l = quad[0], b = quad[1], r = quad[2], t = quad[3];
    } else {
        return;
    }
    // Strip: bottom left, bottom right, top left, top right. Texture row 0
    // is the first row uploaded: the top of a top-down picture.
    const float positions[12] = {l, b, 0.0f, r, b, 0.0f, l, t, 0.0f, r, t, 0.0f};
    const float topDown[8] = {0, 1, 1, 1, 0, 0, 1, 0};
    const float bottomUp[8] = {0, 0, 1, 0, 0, 1, 1, 1};
    m_Quad.Begin();
    m_Quad.Draw(mvp, positions, m_dwState == kTopDown ? topDown : bottomUp, m_Texture.id());
}

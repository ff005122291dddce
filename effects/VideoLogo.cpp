#include "VideoLogo.h"

#include "BmpFile.h"
#include "BuiltinMark.h"
#include "GlesRenderEffect.h"
#include "MLog.h"

namespace {

const char kVertexShader[] = "attribute vec4 aPosition;\n"
                             "attribute vec2 aTexCoor;\n"
                             "uniform mat4 uMVPMatrix;\n"
                             "varying vec2 vTexCoor;\n"
                             "void main() {\n"
                             "  gl_Position = uMVPMatrix * aPosition;\n"
                             "  vTexCoor = aTexCoor;\n"
                             "}\n";

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
    m_Program = GlProgram::Adopt(buildProgram(kVertexShader, kFragmentShader));
    if (!m_Program) {
        MLogInfo("[%s] VideoLogo::Create buildProgram error", MLOG_TAG);
        return false;
    }
    m_aPosition = glGetAttribLocation(m_Program.id(), "aPosition");
    m_aTexCoor = glGetAttribLocation(m_Program.id(), "aTexCoor");
    m_uMVPMatrix = glGetUniformLocation(m_Program.id(), "uMVPMatrix");
    m_uTexture = glGetUniformLocation(m_Program.id(), "uTexture");
    m_Texture = GlTexture::Create();
    if (m_aPosition < 0 || m_aTexCoor < 0 || !m_Texture) {
        m_Program.reset();
        return false;
    }
    return true;
}

bool VideoLogo::Upload(const unsigned char *pixels, MLong width, MLong height, GLenum format, MDWord state)
{
    if (!m_Program || !m_Texture) return false;
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
    if (!m_Program || m_dwState == kEmpty) return;
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
    glUseProgram(m_Program.id());
    glVertexAttribPointer(GLuint(m_aPosition), 3, GL_FLOAT, GL_FALSE, 0, positions);
    glEnableVertexAttribArray(GLuint(m_aPosition));
    glVertexAttribPointer(GLuint(m_aTexCoor), 2, GL_FLOAT, GL_FALSE, 0, m_dwState == kTopDown ? topDown : bottomUp);
    glEnableVertexAttribArray(GLuint(m_aTexCoor));
    glUniformMatrix4fv(m_uMVPMatrix, 1, GL_FALSE, mvp);
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, m_Texture.id());
    glUniform1i(m_uTexture, 0);
    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
    glDisable(GL_BLEND);
    // The arrays point at this frame's stack: no later draw may read them.
    glDisableVertexAttribArray(GLuint(m_aPosition));
    glDisableVertexAttribArray(GLuint(m_aTexCoor));
}

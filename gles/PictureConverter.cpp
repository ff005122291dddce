#include "PictureConverter.h"

#include <algorithm>
#include <cstring>

#include "GlesRenderEffect.h"
#include "MLog.h"
#include "ZT5Config.h"

namespace {

// A quad over the viewport; fragments find their place from gl_FragCoord.
const char kVertex[] = "attribute vec2 aPosition;\n"
                       "void main() { gl_Position = vec4(aPosition, 0.0, 1.0); }\n";

// Output texel (i, j) of a region (j counted from the region's first row,
// which glReadPixels returns first) holds four samples of output row j,
// columns 4i .. 4i+3. A sample of step s (1 for luma, 2 for chroma) covers
// source columns s*x .. s*x+s-1 and top-down source rows s*j .. s*j+s-1;
// GL counts rows from the bottom, so its centre is at
//     (s*x + s/2, H - s*j - s/2)
// in source pixels (H, uTop, is the picture's top edge; uSize the
// source's size, which normalises). For s = 1 that is a texel's centre,
// fetched nearest: the texel itself. For s = 2 it is the corner the four
// texels share: linear filtering returns their mean, the 2x2 box of 4:2:0
// chroma, in one fetch. Past the right or top edge of an odd size the clamp repeats
// the last column or row. Each sample is dot(weights.rgb, colour) +
// weights.a: one row of the RGB -> Y'CbCr matrix.
const char kPack[] = "precision highp float;\n"
                     "uniform sampler2D uSource;\n"
                     "uniform vec2 uOrigin;\n"
                     "uniform vec2 uSize;\n"
                     "uniform float uTop;\n"
                     "uniform float uStep;\n"
                     "uniform vec4 uWeights;\n"
                     "float sampleAt(float x, float y) {\n"
                     "    vec3 c = texture2D(uSource, vec2(x, y) / uSize).rgb;\n"
                     "    return dot(c, uWeights.rgb) + uWeights.a;\n"
                     "}\n"
                     "void main() {\n"
                     "    vec2 o = floor(gl_FragCoord.xy - uOrigin);\n"
                     "    float mid = 0.5 * uStep;\n"
                     "    float y = uTop - uStep * o.y - mid;\n"
                     "    float x = uStep * 4.0 * o.x + mid;\n"
                     "    gl_FragColor = vec4(sampleAt(x, y), sampleAt(x + uStep, y),\n"
                     "                        sampleAt(x + 2.0 * uStep, y), sampleAt(x + 3.0 * uStep, y));\n"
                     "}\n";

// Output texel (i, j) is source texel (i, H-1-j): the picture top-down.
const char kFlip[] = "precision highp float;\n"
                     "uniform sampler2D uSource;\n"
                     "uniform vec2 uOrigin;\n"
                     "uniform vec2 uSize;\n"
                     "uniform float uTop;\n"
                     "void main() {\n"
                     "    vec2 o = floor(gl_FragCoord.xy - uOrigin);\n"
                     "    gl_FragColor = texture2D(uSource, vec2(o.x + 0.5, uTop - o.y - 0.5) / uSize);\n"
                     "}\n";

inline uint32_t Quarter(uint32_t n) { return (n + 3) / 4; } // texels of four samples for n samples
inline uint32_t HalfUp(uint32_t n) { return (n + 1) / 2; }  // chroma samples for n pixels

// The three rows of RGB -> Y'CbCr for a ZT5_CFG_DISPLAY_YUV_MATRIX word, on
// 0..1 values, as the store into an 8-bit texel scales them by 255:
//   Y' = Kr R + Kg G + Kb B
//   Y  = ly Y' + y0,  Cb = cs (B - Y') / (2 (1 - Kb)) + 128/255,
//                     Cr = cs (R - Y') / (2 (1 - Kr)) + 128/255
// with ly = 219/255, y0 = 16/255, cs = 224/255 in video range and ly = cs
// = 1, y0 = 0 in full range. The exact inverse of the views' conversion.
void Weights(uint32_t word, float rows[3][4])
{
    static const float kWeights[3][2] = {{0.299f, 0.114f}, {0.2126f, 0.0722f}, {0.2627f, 0.0593f}};
    const uint32_t m = (word & 0xff) < 3 ? (word & 0xff) : 0;
    const bool bFull = (word & ZT5_YUV_RANGE_FULL) != 0;
    const float kr = kWeights[m][0], kb = kWeights[m][1], kg = 1.0f - kr - kb;
    const float ly = bFull ? 1.0f : 219.0f / 255.0f, y0 = bFull ? 0.0f : 16.0f / 255.0f;
    const float cs = bFull ? 1.0f : 224.0f / 255.0f, c0 = 128.0f / 255.0f;
    const float cb = cs * 0.5f / (1.0f - kb), cr = cs * 0.5f / (1.0f - kr);
    const float y[4] = {ly * kr, ly * kg, ly * kb, y0};
    const float u[4] = {-cb * kr, -cb * kg, cb * (1.0f - kb), c0};
    const float v[4] = {cr * (1.0f - kr), -cr * kg, -cr * kb, c0};
    std::memcpy(rows[0], y, sizeof(y));
    std::memcpy(rows[1], u, sizeof(u));
    std::memcpy(rows[2], v, sizeof(v));
}

// GL state a read changes, put back on every way out: the views and the
// snapshot rely on the viewport, the framebuffer and the switches they left.
class SavedGlState {
public:
    SavedGlState()
    {
        glGetIntegerv(GL_FRAMEBUFFER_BINDING, &m_Fbo);
        glGetIntegerv(GL_VIEWPORT, m_Viewport);
        glGetIntegerv(GL_CURRENT_PROGRAM, &m_Program);
        glGetIntegerv(GL_ACTIVE_TEXTURE, &m_ActiveTexture);
        glActiveTexture(GL_TEXTURE0);
        glGetIntegerv(GL_TEXTURE_BINDING_2D, &m_Texture);
        glGetIntegerv(GL_PACK_ALIGNMENT, &m_PackAlignment);
        for (int i = 0; i < kSwitches; i++) {
            m_bOn[i] = glIsEnabled(kSwitch[i]);
            glDisable(kSwitch[i]);
        }
    }
    ~SavedGlState()
    {
        for (int i = 0; i < kSwitches; i++)
            if (m_bOn[i]) glEnable(kSwitch[i]);
        glPixelStorei(GL_PACK_ALIGNMENT, m_PackAlignment);
        glBindTexture(GL_TEXTURE_2D, GLuint(m_Texture));
        glActiveTexture(GLenum(m_ActiveTexture));
        glUseProgram(GLuint(m_Program));
        glViewport(m_Viewport[0], m_Viewport[1], m_Viewport[2], m_Viewport[3]);
        glBindFramebuffer(GL_FRAMEBUFFER, GLuint(m_Fbo));
    }

private:
    static constexpr int kSwitches = 5;
    static constexpr GLenum kSwitch[kSwitches] = {GL_DEPTH_TEST, GL_BLEND, GL_SCISSOR_TEST, GL_CULL_FACE,
                                                  GL_STENCIL_TEST};
    GLint m_Fbo = 0, m_Viewport[4] = {0, 0, 0, 0}, m_Program = 0, m_ActiveTexture = GL_TEXTURE0, m_Texture = 0;
    GLint m_PackAlignment = 4;
    GLboolean m_bOn[kSwitches] = {};
};
constexpr GLenum SavedGlState::kSwitch[];

void SetTextureParameters()
{
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
}

// The filter of the texture bound to unit 0. Samples at texel centres read
// the same texel either way, and nearest is the cheaper fetch (a software
// rasteriser spends most of a pass there); the 2x2 chroma mean needs linear.
void SetFilter(GLint filter)
{
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, filter);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, filter);
}

} // namespace

size_t PictureConverter::Bytes(uint32_t layout, uint32_t w, uint32_t h)
{
    if (layout == ZT5_SNAPSHOT_RGBA) return size_t(w) * h * 4;
    if (layout == ZT5_FRAME_CS_I420) return size_t(w) * h + 2 * size_t(HalfUp(w)) * HalfUp(h);
    return 0;
}

bool PictureConverter::Build()
{
    if (m_bBuilt) return true;
    if (m_bFailed) return false;
    m_Pack = GlProgram::Adopt(buildProgram(kVertex, kPack));
    m_Flip = GlProgram::Adopt(buildProgram(kVertex, kFlip));
    m_Quad = GlBuffer::Create();
    if (!m_Pack || !m_Flip || !m_Quad || glGetAttribLocation(m_Pack.id(), "aPosition") < 0 ||
        glGetAttribLocation(m_Flip.id(), "aPosition") < 0) {
        MLogInfo("[%s] PictureConverter: programs not made", MLOG_TAG);
        m_bFailed = true;
        return false;
    }
    // Locations once; the sampler is unit 0 for good.
    m_PackPosition = glGetAttribLocation(m_Pack.id(), "aPosition");
    m_FlipPosition = glGetAttribLocation(m_Flip.id(), "aPosition");
    m_PackTop = glGetUniformLocation(m_Pack.id(), "uTop");
    m_FlipTop = glGetUniformLocation(m_Flip.id(), "uTop");
    m_PackSource = glGetUniformLocation(m_Pack.id(), "uSource");
    m_PackOrigin = glGetUniformLocation(m_Pack.id(), "uOrigin");
    m_PackSize = glGetUniformLocation(m_Pack.id(), "uSize");
    m_PackStep = glGetUniformLocation(m_Pack.id(), "uStep");
    m_PackWeights = glGetUniformLocation(m_Pack.id(), "uWeights");
    m_FlipSource = glGetUniformLocation(m_Flip.id(), "uSource");
    m_FlipOrigin = glGetUniformLocation(m_Flip.id(), "uOrigin");
    m_FlipSize = glGetUniformLocation(m_Flip.id(), "uSize");
    GLint program = 0;
    glGetIntegerv(GL_CURRENT_PROGRAM, &program);
    glUseProgram(m_Pack.id());
    glUniform1i(m_PackSource, 0);
    glUseProgram(m_Flip.id());
    glUniform1i(m_FlipSource, 0);
    glUseProgram(GLuint(program));
    const GLfloat quad[] = {-1.0f, -1.0f, 1.0f, -1.0f, -1.0f, 1.0f, 1.0f, 1.0f};
    glBindBuffer(GL_ARRAY_BUFFER, m_Quad.id());
    glBufferData(GL_ARRAY_BUFFER, sizeof(quad), quad, GL_STATIC_DRAW);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    m_bBuilt = true;
    return true;
}

bool PictureConverter::PrepareOutput(GLsizei w, GLsizei h)
{
    // Grows only: a picture of another size reuses a larger texture.
    if (m_OutputFbo && w <= m_OutputWidth && h <= m_OutputHeight) {
        glBindFramebuffer(GL_FRAMEBUFFER, m_OutputFbo.id());
        return true;
    }
    w = std::max(w, m_OutputWidth);
    h = std::max(h, m_OutputHeight);
    if (!m_Output) m_Output = GlTexture::Create();
    if (!m_OutputFbo) m_OutputFbo = GlFramebuffer::Create();
    glBindTexture(GL_TEXTURE_2D, m_Output.id());
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, w, h, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    SetTextureParameters();
    glBindFramebuffer(GL_FRAMEBUFFER, m_OutputFbo.id());
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, m_Output.id(), 0);
    if (glCheckFramebufferStatus(GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE) {
        MLogInfo("[%s] PictureConverter: output of %dx%d incomplete", MLOG_TAG, int(w), int(h));
        m_OutputWidth = m_OutputHeight = 0;
        return false;
    }
    m_OutputWidth = w;
    m_OutputHeight = h;
    return true;
}

void PictureConverter::Pass(GLint position, GLint x, GLint y, GLsizei w, GLsizei h)
{
    glViewport(x, y, w, h);
    glBindBuffer(GL_ARRAY_BUFFER, m_Quad.id());
    glVertexAttribPointer(GLuint(position), 2, GL_FLOAT, GL_FALSE, 0, nullptr);
    glEnableVertexAttribArray(GLuint(position));
    glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
    glDisableVertexAttribArray(GLuint(position));
    glBindBuffer(GL_ARRAY_BUFFER, 0);
}

void PictureConverter::ReadRegion(GLint x, GLint y, GLsizei w, GLsizei h, size_t rowBytes, uint8_t *dst)
{
    const size_t regionRow = size_t(w) * 4;
    if (regionRow == rowBytes) {
        glReadPixels(x, y, w, h, GL_RGBA, GL_UNSIGNED_BYTE, dst);
        return;
    }
    m_Scratch.resize(regionRow * size_t(h));
    glReadPixels(x, y, w, h, GL_RGBA, GL_UNSIGNED_BYTE, m_Scratch.data());
    for (GLsizei r = 0; r < h; r++) std::memcpy(dst + size_t(r) * rowBytes, &m_Scratch[size_t(r) * regionRow], rowBytes);
}

bool PictureConverter::Read(GLuint source, GLsizei sourceWidth, GLsizei sourceHeight, uint32_t w, uint32_t h,
                            uint32_t layout, uint32_t yuvMatrix, uint8_t *dst)
{
    if (w == 0 || h == 0 || !dst || Bytes(layout, w, h) == 0) return false;
    SavedGlState saved;
    if (!Build()) return false;
    // Errors left by earlier calls are not this read's: the check at the end
    // looks at its own calls only.
    for (int i = 0; i < 8 && glGetError() != GL_NO_ERROR; i++) {
    }

    // A window's picture is not a texture: one copy makes it one.
    if (source == 0) {
        if (!m_Copy) m_Copy = GlTexture::Create();
        glBindTexture(GL_TEXTURE_2D, m_Copy.id());
        if (m_CopyWidth != GLsizei(w) || m_CopyHeight != GLsizei(h)) {
            glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, GLsizei(w), GLsizei(h), 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
            SetTextureParameters();
            m_CopyWidth = GLsizei(w);
            m_CopyHeight = GLsizei(h);
        }
        glCopyTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, 0, 0, GLsizei(w), GLsizei(h));
        source = m_Copy.id();
        sourceWidth = GLsizei(w);
        sourceHeight = GLsizei(h);
    }

    // Regions of the output: RGBA, w x h; or Y' (w/4 texels by h rows)
    // with Cb and Cr side by side above it (each (w/2)/4 by h/2).
    const uint32_t cw = HalfUp(w), ch = HalfUp(h);
    const GLsizei yq = GLsizei(Quarter(w)), cq = GLsizei(Quarter(cw));
    const bool bRgba = layout == ZT5_SNAPSHOT_RGBA;
    const GLsizei outW = bRgba ? GLsizei(w) : std::max(yq, 2 * cq);
    const GLsizei outH = bRgba ? GLsizei(h) : GLsizei(h + ch);
    if (!PrepareOutput(outW, outH)) return false;
    glBindTexture(GL_TEXTURE_2D, source); // unit 0, after the output's texture was made

    // The source's size, not the picture's: a picture smaller than its
    // framebuffer (a window that shrank) reads its bottom left part.
    const GLfloat size[2] = {GLfloat(sourceWidth), GLfloat(sourceHeight)};
    const GLfloat top = GLfloat(h); // the picture's top edge in source rows
    if (bRgba) {
        glUseProgram(m_Flip.id());
        glUniform2f(m_FlipSize, size[0], size[1]);
        glUniform1f(m_FlipTop, top);
        glUniform2f(m_FlipOrigin, 0.0f, 0.0f);
        SetFilter(GL_NEAREST);
        Pass(m_FlipPosition, 0, 0, GLsizei(w), GLsizei(h));
    } else {
        float rows[3][4];
        Weights(yuvMatrix, rows);
        glUseProgram(m_Pack.id());
        glUniform2f(m_PackSize, size[0], size[1]);
        glUniform1f(m_PackTop, top);
        struct Region {
            GLint x, y;
            GLsizei w, h;
            float step;
        } regions[3] = {{0, 0, yq, GLsizei(h), 1.0f}, {0, GLint(h), cq, GLsizei(ch), 2.0f},
                        {cq, GLint(h), cq, GLsizei(ch), 2.0f}};
        for (int i = 0; i < 3; i++) {
            const Region &r = regions[i];
            glUniform2f(m_PackOrigin, GLfloat(r.x), GLfloat(r.y));
            glUniform1f(m_PackStep, r.step);
            glUniform4fv(m_PackWeights, 1, rows[i]);
            SetFilter(r.step == 1.0f ? GL_NEAREST : GL_LINEAR);
            Pass(m_PackPosition, r.x, r.y, r.w, r.h);
        }
    }
    SetFilter(GL_LINEAR); // as the source was made

    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    if (bRgba) {
        ReadRegion(0, 0, GLsizei(w), GLsizei(h), size_t(w) * 4, dst);
    } else {
        uint8_t *u = dst + size_t(w) * h;
        uint8_t *v = u + size_t(cw) * ch;
        ReadRegion(0, 0, yq, GLsizei(h), w, dst);
        ReadRegion(0, GLint(h), cq, GLsizei(ch), cw, u);
        ReadRegion(cq, GLint(h), cq, GLsizei(ch), cw, v);
    }
    return glGetError() == GL_NO_ERROR;
}

void PictureConverter::Release()
{
    m_Pack.reset();
    m_Flip.reset();
    m_Quad.reset();
    m_Copy.reset();
    m_Output.reset();
    m_OutputFbo.reset();
    m_CopyWidth = m_CopyHeight = m_OutputWidth = m_OutputHeight = 0;
    m_bBuilt = false;
    m_bFailed = false;
    m_Scratch.clear();
    m_Scratch.shrink_to_fit();
}

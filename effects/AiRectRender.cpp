#include "AiRectRender.h"

#include <cmath>
#include <cstdio>

#include "GlesRenderEffect.h"
#include "MLog.h"

namespace {

const char kVertexShader[] = "attribute vec4 aPosition;\n"
                             "uniform mat4 uMVPMatrix;\n"
                             "void main() {\n"
                             "  gl_Position = uMVPMatrix * aPosition;\n"
                             "}\n";

const char kFragmentShader[] = "precision mediump float;\n"
                               "uniform vec3 uColor;\n"
                               "void main() {\n"
                               "  gl_FragColor = vec4(uColor, 1.0);\n"
                               "}\n";

// A rectangle grows by this share of its size on each side.
const float kMargin = 0.2f;
// Label lines: height in the square's units, gap to the rectangle.
const float kLineHeight = 0.1f;
const float kLabelGap = 0.01f;
const float kRectWidthPixels = 3.0f;

} // namespace

MRESULT AiRectRender::Init_rect()
{
    m_RectProgram = GlProgram::Adopt(buildProgram(kVertexShader, kFragmentShader));
    if (!m_RectProgram) return -1;
    m_aPosition = glGetAttribLocation(m_RectProgram.id(), "aPosition");
    m_uMVPMatrix = glGetUniformLocation(m_RectProgram.id(), "uMVPMatrix");
    m_uColor = glGetUniformLocation(m_RectProgram.id(), "uColor");
    // Three pixels wide where the driver draws wide lines, else its widest.
    GLfloat range[2] = {1.0f, 1.0f};
    glGetFloatv(GL_ALIASED_LINE_WIDTH_RANGE, range);
    m_fLineWidth = kRectWidthPixels < range[1] ? kRectWidthPixels : range[1];
    if (m_fLineWidth < 1.0f) m_fLineWidth = 1.0f;
    return m_aPosition >= 0 ? 0 : -1;
}

MRESULT AiRectRender::SetFaceList(const ZT5FaceRect *pRecords, MLong lCount, MLong lVideoWidth, MLong lVideoHeight,
                                  MDWord dwOption)
{
    if (lCount < 0 || lCount > ZT5_FACE_LIST_MAX) return -1;
    m_lFaceCount = pRecords ? lCount : 0;
    if (m_lFaceCount) {
        MMemCpy(m_Faces, pRecords, sizeof(ZT5FaceRect) * size_t(m_lFaceCount));
        m_lVideoWidth = lVideoWidth;
        m_lVideoHeight = lVideoHeight;
    }
    m_dwOption = dwOption;
    return 0;
}

// The corners' mapping is (u, v) = bl + A s, s in 0..1 across the square
// from its bottom left corner, A's columns the steps to the bottom right
// and top left corners. Every rotation's A is a quarter turn or a mirror,
// so it is inverted exactly; a degenerate table places nothing.
AiRectRender::Placement AiRectRender::PlacementFor(const float *t)
{
    Placement p = {};
    const float a = t[2] - t[0], c = t[3] - t[1]; // to the bottom right corner
    const float b = t[4] - t[0], d = t[5] - t[1]; // to the top left corner
    const float det = a * d - b * c;
    if (std::fabs(det) < 1e-6f) return p;
    p.m[0] = d / det;
    p.m[1] = -b / det;
    p.m[2] = -c / det;
    p.m[3] = a / det;
    p.bl[0] = t[0];
    p.bl[1] = t[1];
    p.ok = true;
    return p;
}

void AiRectRender::Placement::ToSquare(float u, float v, float *x, float *y) const
{
    const float du = u - bl[0], dv = v - bl[1];
    *x = 2.0f * (m[0] * du + m[1] * dv) - 1.0f;
    *y = 2.0f * (m[2] * du + m[3] * dv) - 1.0f;
}

void AiRectRender::Render(const float *mvp, const float *texCoords, float pictureRatio)
{
    if (!m_lFaceCount || m_lVideoWidth <= 0 || m_lVideoHeight <= 0 || !texCoords) return;
    const Placement place = PlacementFor(texCoords);
    if (!place.ok) return;
    const double W = m_lVideoWidth, H = m_lVideoHeight;
    for (MLong i = 0; i < m_lFaceCount; i++) {
        const ZT5FaceRect &f = m_Faces[i];
        // The rectangle grown by its margin, in picture coordinates, then
        // its two corners in the square: after a quarter turn or a mirror it
        // is still upright there, between the smaller and larger values.
        const double u0 = (double(f.left) - kMargin * double(f.width)) / W;
        const double v0 = (double(f.top) - kMargin * double(f.height)) / H;
        const double u1 = u0 + (1.0 + 2.0 * kMargin) * double(f.width) / W;
        const double v1 = v0 + (1.0 + 2.0 * kMargin) * double(f.height) / H;
        float xa, ya, xb, yb;
        place.ToSquare(float(u0), float(v0), &xa, &ya);
        place.ToSquare(float(u1), float(v1), &xb, &yb);
        if (!std::isfinite(xa) || !std::isfinite(ya) || !std::isfinite(xb) || !std::isfinite(yb)) continue;
        const float L = std::fmin(xa, xb), R = std::fmax(xa, xb);
        const float B = std::fmin(ya, yb), T = std::fmax(ya, yb);
        const float colour[3] = {f.dwGender ? 0.0f : 1.0f, f.dwGender ? 1.0f : 0.0f, 0.0f};

        if ((m_dwOption & FACE_OPTION_RECTS) && m_RectProgram) {
            const float lines[16] = {L, T, R, T, L, B, R, B, L, T, L, B, R, T, R, B};
            glUseProgram(m_RectProgram.id());
            glVertexAttribPointer(GLuint(m_aPosition), 2, GL_FLOAT, GL_FALSE, 0, lines);
            glEnableVertexAttribArray(GLuint(m_aPosition));
            glUniformMatrix4fv(m_uMVPMatrix, 1, GL_FALSE, mvp);
            glUniform3fv(m_uColor, 1, colour);
            glLineWidth(m_fLineWidth);
            glDrawArrays(GL_LINES, 0, 8);
            glDisableVertexAttribArray(GLuint(m_aPosition));
        }
        if (m_dwOption >= FACE_OPTION_GENDER && m_Text.Ready())
            DrawLabels(f, colour, R + kLabelGap, 0.5f * (T + B), kLineHeight, pictureRatio, mvp);
    }
}

// The lines stand right of the rectangle, as a block centred on its middle:
// name, gender word, age, those the option asks for.
void AiRectRender::DrawLabels(const ZT5FaceRect &face, const float colour[3], float x, float middle,
                              float lineHeight, float unitRatio, const float *mvp)
{
    char age[16];
    std::snprintf(age, sizeof(age), "%d", int(face.dwAge));
    const char *lines[3];
    int n = 0;
    if ((m_dwOption & FACE_OPTION_NAME) && face.name[0]) lines[n++] = face.name;
    if (m_dwOption & FACE_OPTION_GENDER) lines[n++] = face.dwGender ? "male" : "female";
    if (m_dwOption & FACE_OPTION_AGE) lines[n++] = age;
    // Lower edge of the first line: the block's top is half its height
    // above the middle.
    float y = middle + 0.5f * lineHeight * float(n) - lineHeight;
    for (int i = 0; i < n; i++, y -= lineHeight) {
        float aspect = 0.0f;
        if (!m_Text.Compose(lines[i], &aspect)) continue; // a refused line leaves its place empty
        // Width keeps the glyphs' proportions on the screen, whatever the
        // picture's: a unit across is unitRatio times one up.
        const float w = lineHeight * aspect / (unitRatio > 0.0f ? unitRatio : 1.0f);
        m_Text.Draw(mvp, colour, x, y, w, lineHeight);
    }
}

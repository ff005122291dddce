#include "GlesRenderEffect.h"

#include <cmath>

#include "GlObjects.h"
#include "MLog.h"

// ------------------------------------------------------- GlesRenderEffect

void GlesRenderEffect::clearBackground()
{
    // The clear colour is state of the whole context, which every view
    // shares: set at each draw, it can be neither another view's nor GL's
    // initial black when the wanted colour is one a cache thought was set.
    const MDWord c = m_dwBackColor.load(std::memory_order_relaxed);
    glClearColor(((c >> 16) & 0xff) / 255.0f, ((c >> 8) & 0xff) / 255.0f, (c & 0xff) / 255.0f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
}

MRESULT GlesRenderEffect::setConfig(MDWord dwID, void *pValue)
{
    if (!pValue) return 0;
    if (dwID == ZT5_CFG_DISPLAY_BACK_COLOR)
        m_dwBackColor.store(*static_cast<const MDWord *>(pValue), std::memory_order_relaxed);
    // ZT5_CFG_DISPLAY_LOGO_DATA is taken by the views that own a logo.
    return 0;
}

// ----------------------------------------------------------- RotTranMatrix

void RotTranMatrix::identity(float *m)
{
    for (int i = 0; i < 16; i++) m[i] = (i % 5 == 0) ? 1.0f : 0.0f;
}

void RotTranMatrix::pushMatrix()
{
    mStackTop++;
    MMemCpy(mStack[mStackTop], mCurrMatrix, sizeof(mCurrMatrix));
}

void RotTranMatrix::popMatrix()
{
    MMemCpy(mCurrMatrix, mStack[mStackTop], sizeof(mCurrMatrix));
    mStackTop--;
}

void RotTranMatrix::setProjectFrustum(float left, float right, float bottom, float top, float nearZ, float farZ)
{
    float *m = mProjMatrix;
    for (int i = 0; i < 16; i++) m[i] = 0.0f;
    m[0] = 2.0f * nearZ / (right - left);
    m[5] = 2.0f * nearZ / (top - bottom);
    m[8] = (right + left) / (right - left);
    m[9] = (top + bottom) / (top - bottom);
    m[10] = (nearZ + farZ) / (nearZ - farZ);
    m[11] = -1.0f;
    m[14] = 2.0f * nearZ * farZ / (nearZ - farZ);
}

void RotTranMatrix::setLookAt(float eyeX, float eyeY, float eyeZ, float centerX, float centerY, float centerZ,
                              float upX, float upY, float upZ)
{
    float fx = centerX - eyeX, fy = centerY - eyeY, fz = centerZ - eyeZ;
    float rlf = 1.0f / std::sqrt(fx * fx + fy * fy + fz * fz);
    fx *= rlf;
    fy *= rlf;
    fz *= rlf;
    float sx = fy * upZ - fz * upY;
    float sy = fz * upX - fx * upZ;
    float sz = fx * upY - fy * upX;
    float rls = 1.0f / std::sqrt(sx * sx + sy * sy + sz * sz);
    sx *= rls;
    sy *= rls;
    sz *= rls;
    float ux = sy * fz - sz * fy;
    float uy = sz * fx - sx * fz;
    float uz = sx * fy - sy * fx;
    float *m = mVMatrix;
    m[0] = sx;
    m[1] = ux;
    m[2] = -fx;
    m[3] = 0.0f;
    m[4] = sy;
    m[5] = uy;
    m[6] = -fy;
    m[7] = 0.0f;
    m[8] = sz;
    m[9] = uz;
    m[10] = -fz;
    m[11] = 0.0f;
    m[12] = 0.0f;
    m[13] = 0.0f;
    m[14] = 0.0f;
    m[15] = 1.0f;
    translate(m, -eyeX, -eyeY, -eyeZ);
}

void RotTranMatrix::translate(float *m, float x, float y, float z)
{
    for (int i = 0; i < 4; i++) m[12 + i] += m[i] * x + m[4 + i] * y + m[8 + i] * z;
}

void RotTranMatrix::rotate(float *m, float angle, float x, float y, float z)
{
    float rad = angle * 3.14159f / 180.0f;
    float s = std::sin(rad), c = std::cos(rad), nc = 1.0f - c;
    float r[16] = {0};
    r[0] = x * x * nc + c;
    r[1] = x * y * nc - z * s;
    r[2] = x * z * nc + y * s;
    r[4] = x * y * nc + z * s;
    r[5] = y * y * nc + c;
    r[6] = y * z * nc - x * s;
    r[8] = x * z * nc - y * s;
    r[9] = y * z * nc + x * s;
    r[10] = z * z * nc + c;
    r[15] = 1.0f;
    multiply(m, m, r);
}

void RotTranMatrix::scale(float sx, float sy, float sz)
{
    for (int i = 0; i < 4; i++) {
        mCurrMatrix[i] *= sx;
        mCurrMatrix[4 + i] *= sy;
        mCurrMatrix[8 + i] *= sz;
    }
}

void RotTranMatrix::multiply(float *result, const float *lhs, const float *rhs)
{
    float a[16], b[16];
    for (int i = 0; i < 16; i++) {
        a[i] = lhs[i];
        b[i] = rhs[i];
    }
    for (int col = 0; col < 4; col++) {
        for (int row = 0; row < 4; row++) {
            double sum = 0.0;
            for (int k = 0; k < 4; k++) sum += double(a[k * 4 + row]) * double(b[col * 4 + k]);
            result[col * 4 + row] = float(sum);
        }
    }
}

void RotTranMatrix::getFinalMatrix()
{
    multiply(mMVPMatrix, mVMatrix, mCurrMatrix);
    multiply(mMVPMatrix, mProjMatrix, mMVPMatrix);
}

// ------------------------------------------------------------- GL helpers

void checkGlError(const char *op)
{
    for (GLenum err = glGetError(); err != GL_NO_ERROR; err = glGetError())
        MLogInfo("[%s] checkGlError, error::after %s glError (0x%x)\n", MLOG_TAG, op, err);
}

GLuint buildShader(const char *source, GLenum type)
{
    GLuint shader = glCreateShader(type);
    checkGlError("glCreateShader");
    if (!shader) return 0;
    glShaderSource(shader, 1, &source, nullptr);
    checkGlError("glShaderSource");
    glCompileShader(shader);
    GLint compiled = 0;
    glGetShaderiv(shader, GL_COMPILE_STATUS, &compiled);
    checkGlError("glGetShaderiv");
    if (!compiled) {
        GLint len = 0;
        glGetShaderiv(shader, GL_INFO_LOG_LENGTH, &len);
        if (len) {
            char *buf = static_cast<char *>(MMemAlloc(size_t(len) + 1));
            if (buf) {
                glGetShaderInfoLog(shader, len, nullptr, buf);
                buf[len] = 0;
                MLogInfo("[%s] buildShader, error::Could not compile shader %d:\n%s\n", MLOG_TAG, int(type), buf);
                MMemFree(buf);
            }
            glDeleteShader(shader);
            shader = 0;
        }
    }
    return shader;
}

GLuint buildProgram(const char *vertexSource, const char *fragmentSource)
{
    // The shaders go when this returns, linked into the program or not.
    const GlShader vs = GlShader::Adopt(buildShader(vertexSource, GL_VERTEX_SHADER));
    const GlShader fs = GlShader::Adopt(buildShader(fragmentSource, GL_FRAGMENT_SHADER));
    GLuint program = glCreateProgram();
    if (program) {
        glAttachShader(program, vs.id());
        checkGlError("glAttachShader, vertexShader");
        glAttachShader(program, fs.id());
        checkGlError("glAttachShader fragmentShader");
        glLinkProgram(program);
        GLint linked = GL_FALSE;
        glGetProgramiv(program, GL_LINK_STATUS, &linked);
        if (linked != GL_TRUE) {
            GLint len = 0;
            glGetProgramiv(program, GL_INFO_LOG_LENGTH, &len);
            if (len) {
                char *buf = static_cast<char *>(MMemAlloc(size_t(len) + 1));
                if (buf) {
                    glGetProgramInfoLog(program, len, nullptr, buf);
                    buf[len] = 0;
                    MLogInfo("[%s] buildProgram, error::Could not link program:\n%s\n", MLOG_TAG, buf);
                    MMemFree(buf);
                }
            }
            glDeleteProgram(program);
            program = 0;
        }
    }
    return program;
}

GLuint bindTexture(GLuint texture, const unsigned char *pixels, GLsizei width, GLsizei height)
{
    if (!pixels) {
        MLogInfo("[%s]bindTexture, data buffer error.\r\n", MLOG_TAG);
        return 2;
    }
    glBindTexture(GL_TEXTURE_2D, texture);
    checkGlError("glBindTexture");
    glTexImage2D(GL_TEXTURE_2D, 0, GL_LUMINANCE, width, height, 0, GL_LUMINANCE, GL_UNSIGNED_BYTE, pixels);
    checkGlError("glTexImage2D");
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    checkGlError("glTexParameteri");
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    checkGlError("glTexParameteri");
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    checkGlError("glTexParameteri");
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    checkGlError("glTexParameteri");
    return texture;
}

#include "OverlayQuad.h"

#include "GlesRenderEffect.h"

namespace {

const char kVertexShader[] = "attribute vec4 aPosition;\n"
                             "attribute vec2 aTexCoor;\n"
                             "uniform mat4 uMVPMatrix;\n"
                             "varying vec2 vTexCoor;\n"
                             "void main() {\n"
                             "  gl_Position = uMVPMatrix * aPosition;\n"
                             "  vTexCoor = aTexCoor;\n"
                             "}\n";

} // namespace

bool OverlayQuad::Build(const char *fragment)
{
    m_Program = GlProgram::Adopt(buildProgram(kVertexShader, fragment));
    if (!m_Program) return false;
    const GLuint p = m_Program.id();
    m_aPosition = glGetAttribLocation(p, "aPosition");
    m_aTexCoor = glGetAttribLocation(p, "aTexCoor");
    m_uMVPMatrix = glGetUniformLocation(p, "uMVPMatrix");
    m_uTexture = glGetUniformLocation(p, "uTexture");
    if (m_aPosition < 0 || m_aTexCoor < 0) {
        m_Program.reset();
        return false;
    }
    return true;
}

void OverlayQuad::Draw(const float *mvp, const float positions[12], const float texCoords[8], GLuint texture) const
{
    glVertexAttribPointer(GLuint(m_aPosition), 3, GL_FLOAT, GL_FALSE, 0, positions);
    glEnableVertexAttribArray(GLuint(m_aPosition));
    glVertexAttribPointer(GLuint(m_aTexCoor), 2, GL_FLOAT, GL_FALSE, 0, texCoords);
    glEnableVertexAttribArray(GLuint(m_aTexCoor));
    glUniformMatrix4fv(m_uMVPMatrix, 1, GL_FALSE, mvp);
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, texture);
    glUniform1i(m_uTexture, 0);
    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
    glDisable(GL_BLEND);
    // The arrays point at the caller's stack: no later draw may read them.
    glDisableVertexAttribArray(GLuint(m_aPosition));
    glDisableVertexAttribArray(GLuint(m_aTexCoor));
}

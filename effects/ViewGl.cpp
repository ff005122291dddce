#include "ViewGl.h"

#include "MLog.h"

// ------------------------------------------------------------ ViewProgram

int ViewProgram::Build(const char *viewName, const char *vertexSource, const char *fragmentSource, Inputs inputs)
{
    *this = ViewProgram();
    m_Program = GlProgram::Adopt(buildProgram(vertexSource, fragmentSource));
    if (!m_Program) {
        MLogInfo("[%s] %s:: buildProgram error mProgram:%d. ", MLOG_TAG, viewName, 0);
        return 1;
    }
    const GLuint p = m_Program.id();
    int failures = 0;
    struct {
        GLint *handle;
        const char *name;
        const char *handleName;
        bool attribute;
        bool planesOnly;
    } lookups[] = {
        {&aPosition, "aPosition", "maPositionHandle", true, false},
        {&aTexCoor, "aTexCoor", "maTexCoorHandle", true, true},
        {&uMVPMatrix, "uMVPMatrix", "muMVPMatrixHandle", false, false},
        {&m_Samplers[0], "tex_y", "MYHandle", false, true},
        {&m_Samplers[1], "tex_u", "mUHandle", false, true},
        {&m_Samplers[2], "tex_v", "mVHandle", false, true},
        {&m_YuvMatrix, "yuvMatrix", "mYuvMatrixHandle", false, true},
        {&m_YuvOffset, "yuvOffset", "mYuvOffsetHandle", false, true},
    };
    for (auto &l : lookups) {
        if (l.planesOnly && inputs != kPlanes) continue;
        *l.handle = l.attribute ? glGetAttribLocation(p, l.name) : glGetUniformLocation(p, l.name);
        if (*l.handle < 0) {
            MLogInfo("[%s] %s:: get %s error. ", MLOG_TAG, viewName, l.handleName);
            failures++;
        }
    }
    return failures;
}

GLint ViewProgram::Uniform(const char *viewName, const char *name, const char *handleName) const
{
    GLint loc = m_Program ? glGetUniformLocation(m_Program.id(), name) : -1;
    if (loc < 0) MLogInfo("[%s] %s:: get %s error. ", MLOG_TAG, viewName, handleName);
    return loc;
}

void ViewProgram::Use() const
{
    glUseProgram(m_Program.id());
}

void ViewProgram::Use(const YuvConversion &conversion) const
{
    glUseProgram(m_Program.id());
    glUniformMatrix3fv(m_YuvMatrix, 1, GL_FALSE, conversion.fMatrix);
    glUniform3fv(m_YuvOffset, 1, conversion.fOffset);
}

void ViewProgram::SetMatrix(const float *mvp) const
{
    glUniformMatrix4fv(uMVPMatrix, 1, GL_FALSE, mvp);
}

void ViewProgram::BindPlanes(const GLuint *pTextures) const
{
    for (int i = 0; i < 3; i++) {
        glActiveTexture(GL_TEXTURE0 + GLenum(i));
        glBindTexture(GL_TEXTURE_2D, pTextures ? pTextures[i] : 0);
        glUniform1i(m_Samplers[i], i);
    }
    glActiveTexture(GL_TEXTURE0);
}

// --------------------------------------------------------------- ViewMesh

MRESULT ViewMesh::Upload(const float *positions, const float *texCoords, GLsizei count, GLenum primitive,
                         GLenum usage)
{
    *this = ViewMesh();
    if (count <= 0 || !positions) return 3;
    m_Buffer = GlBuffer::Create();
    if (!m_Buffer) return 3;
    m_bTexCoords = texCoords != nullptr;
    const GLsizeiptr posBytes = GLsizeiptr(sizeof(float)) * 3 * count;
    const GLsizeiptr texBytes = m_bTexCoords ? GLsizeiptr(sizeof(float)) * 2 * count : 0;
    glBindBuffer(GL_ARRAY_BUFFER, m_Buffer.id());
    glBufferData(GL_ARRAY_BUFFER, posBytes + texBytes, nullptr, usage);
    glBufferSubData(GL_ARRAY_BUFFER, 0, posBytes, positions);
    if (m_bTexCoords) glBufferSubData(GL_ARRAY_BUFFER, posBytes, texBytes, texCoords);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    m_nCount = count;
    m_Primitive = primitive;
    return 0;
}

void ViewMesh::UpdatePositions(const float *positions)
{
    if (!m_nCount) return;
    glBindBuffer(GL_ARRAY_BUFFER, m_Buffer.id());
    glBufferSubData(GL_ARRAY_BUFFER, 0, GLsizeiptr(sizeof(float)) * 3 * m_nCount, positions);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
}

void ViewMesh::UpdateTexCoords(const float *texCoords)
{
    if (!m_nCount || !m_bTexCoords) return;
    glBindBuffer(GL_ARRAY_BUFFER, m_Buffer.id());
    glBufferSubData(GL_ARRAY_BUFFER, GLintptr(sizeof(float)) * 3 * m_nCount, GLsizeiptr(sizeof(float)) * 2 * m_nCount,
                    texCoords);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
}

void ViewMesh::Draw(const ViewProgram &program, GLsizei count) const
{
    if (!m_nCount) return;
    if (count < 0 || count > m_nCount) count = m_nCount;
    glBindBuffer(GL_ARRAY_BUFFER, m_Buffer.id());
    const GLint pos = program.aPosition, tex = m_bTexCoords ? program.aTexCoor : -1;
    if (pos >= 0) {
        glVertexAttribPointer(GLuint(pos), 3, GL_FLOAT, GL_FALSE, 0, nullptr);
        glEnableVertexAttribArray(GLuint(pos));
    }
    if (tex >= 0) {
        const GLintptr offset = GLintptr(sizeof(float)) * 3 * m_nCount;
        glVertexAttribPointer(GLuint(tex), 2, GL_FLOAT, GL_FALSE, 0, reinterpret_cast<const void *>(offset));
        glEnableVertexAttribArray(GLuint(tex));
    }
    glDrawArrays(m_Primitive, 0, count);
    if (pos >= 0) glDisableVertexAttribArray(GLuint(pos));
    if (tex >= 0) glDisableVertexAttribArray(GLuint(tex));
    glBindBuffer(GL_ARRAY_BUFFER, 0);
}

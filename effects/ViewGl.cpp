#include "ViewGl.h"

#include "MLog.h"

// ------------------------------------------------------------ ViewProgram

namespace {

// Render thread only: each display's thread builds its own views.
thread_local FrameLayout t_BuildLayout = FrameLayout::I420;
thread_local unsigned t_BuildLaw = 0;
thread_local bool t_BuildFootprint = true;
thread_local bool t_BuildFaces = false;

// The fragment source with the frame's stages in place of the marker.
std::string ComposeFragment(const std::string &source, FrameLayout layout)
{
    const std::string marker = GLSL_FRAME_COLOUR;
    const size_t at = source.find(marker);
    if (at == std::string::npos) return source;
    return source.substr(0, at) + FrameColourSource(layout) + source.substr(at + marker.size());
}

} // namespace

void ViewProgram::SetBuildLayout(FrameLayout layout)
{
    t_BuildLayout = layout;
}

void ViewProgram::SetBuildLens(unsigned law, bool footprint, bool faces)
{
    t_BuildLaw = law < unsigned(kLensFlavours / 4) ? law : 0;
    t_BuildFootprint = footprint;
    t_BuildFaces = faces;
}

int ViewProgram::Build(const char *viewName, const char *vertexSource, const char *fragmentSource, Inputs inputs)
{
    // Other sources than last time: nothing cached is of use.
    if (m_VertexSource != vertexSource || m_FragmentSource != fragmentSource) {
        *this = ViewProgram();
        m_VertexSource = vertexSource;
        m_FragmentSource = fragmentSource;
    }
    aPosition = aTexCoor = uMVPMatrix = -1;
    const FrameLayout layout = inputs == kOwnPicture ? FrameLayout::I420 : t_BuildLayout;
    // Only a program with the lens stage differs by law, footprint and faces.
    const bool bLens = m_FragmentSource.find("LENS_LAW") != std::string::npos;
    const int flavour = bLens ? int(t_BuildLaw) * 4 + (t_BuildFootprint ? 2 : 0) + (t_BuildFaces ? 1 : 0) : 0;
    m_nCurrent = (inputs == kPositionOnly ? 0 : int(layout)) * kLensFlavours + flavour;
    Variant &v = m_Variants[m_nCurrent];
    const bool bFresh = !v.program;
    if (bFresh) {
        v = Variant();
        std::string fragment = ComposeFragment(m_FragmentSource, layout);
        if (bLens)
            fragment = "#define LENS_LAW " + std::to_string(t_BuildLaw) + "\n#define LENS_FOOTPRINT " +
                       (t_BuildFootprint ? "1" : "0") + "\n#define LENS_FACES " + (t_BuildFaces ? "1" : "0") +
                       "\n" + fragment;
        v.program = GlProgram::Adopt(buildProgram(vertexSource, fragment.c_str()));
    }
    if (!v.program) {
        MLogInfo("[%s] %s:: buildProgram error mProgram:%d. ", MLOG_TAG, viewName, 0);
        return 1;
    }
    const GLuint p = v.program.id();
    const bool bPlanes = inputs != kPositionOnly;
    // The third texture unit exists in the planar layouts only.
    const bool bThirdPlane = layout == FrameLayout::I420 || layout == FrameLayout::I010;
    // Only the 16-bit stages interpolate themselves and need the texel counts.
    const bool b16 = layout == FrameLayout::I010 || layout == FrameLayout::P010;
    int failures = 0;
    struct {
        GLint *handle;
        const char *name;
        const char *handleName;
        bool attribute;
        bool wanted;
    } lookups[] = {
        {&aPosition, "aPosition", "maPositionHandle", true, true},
        {&aTexCoor, "aTexCoor", "maTexCoorHandle", true, bPlanes},
        {&uMVPMatrix, "uMVPMatrix", "muMVPMatrixHandle", false, true},
        {&v.samplers[0], "tex_y", "MYHandle", false, bPlanes},
        {&v.samplers[1], "tex_u", "mUHandle", false, bPlanes},
        {&v.samplers[2], "tex_v", "mVHandle", false, bPlanes && bThirdPlane},
        {&v.box, "uFrameBox", "mFrameBoxHandle", false, bPlanes},
        {&v.planeScale, "uPlaneScale", "mPlaneScaleHandle", false, bPlanes},
        {&v.texelCount, "uTexelCount", "mTexelCountHandle", false, bPlanes && b16},
        {&v.yuvMatrix, "yuvMatrix", "mYuvMatrixHandle", false, bPlanes},
        {&v.yuvOffset, "yuvOffset", "mYuvOffsetHandle", false, bPlanes},
    };
    // Only the programs with the face stage have these; no miss to log.
    v.faceRect = glGetUniformLocation(p, "faceRect[0]");
    v.faceCount = glGetUniformLocation(p, "faceCount");
    for (auto &l : lookups) {
        if (!l.wanted) continue;
        *l.handle = l.attribute ? glGetAttribLocation(p, l.name) : glGetUniformLocation(p, l.name);
        if (*l.handle < 0) {
            MLogInfo("[%s] %s:: get %s error. ", MLOG_TAG, viewName, l.handleName);
            failures++;
        }
    }
    if (bPlanes && bFresh) {
        // Units 0, 1, 2 for good: a sampler's unit is program state.
        glUseProgram(p);
        for (int i = 0; i < 3; i++)
            if (v.samplers[i] >= 0) glUniform1i(v.samplers[i], i);
    }
    return failures;
}

GLint ViewProgram::Uniform(const char *viewName, const char *name, const char *handleName) const
{
    GLint loc = id() ? glGetUniformLocation(id(), name) : -1;
    if (loc < 0) MLogInfo("[%s] %s:: get %s error. ", MLOG_TAG, viewName, handleName);
    return loc;
}

void ViewProgram::Use() const
{
    glUseProgram(id());
}

void ViewProgram::Use(const FrameSampling &s) const
{
    glUseProgram(id());
    const Variant *v = Current();
    if (!v) return;
    for (int i = 0; i < 3; i++) {
        glActiveTexture(GL_TEXTURE0 + GLenum(i));
        glBindTexture(GL_TEXTURE_2D, s.textures[i]);
    }
    glActiveTexture(GL_TEXTURE0);
    if (!v->bSent || MMemCmp(v->sentBox, s.box, sizeof(s.box)) != 0) {
        glUniform4fv(v->box, 1, s.box);
        MMemCpy(v->sentBox, s.box, sizeof(s.box));
    }
    if (!v->bSent || MMemCmp(v->sentScale, s.planeScale, sizeof(s.planeScale)) != 0) {
        glUniform4fv(v->planeScale, 1, s.planeScale);
        MMemCpy(v->sentScale, s.planeScale, sizeof(s.planeScale));
    }
    if (v->texelCount >= 0 && (!v->bSent || MMemCmp(v->sentTexels, s.texelCount, sizeof(s.texelCount)) != 0)) {
        glUniform4fv(v->texelCount, 1, s.texelCount);
        MMemCpy(v->sentTexels, s.texelCount, sizeof(s.texelCount));
    }
    if (!v->bSent || MMemCmp(&v->sentConversion, &s.conversion, sizeof(s.conversion)) != 0) {
        glUniformMatrix3fv(v->yuvMatrix, 1, GL_FALSE, s.conversion.fMatrix);
        glUniform3fv(v->yuvOffset, 1, s.conversion.fOffset);
        v->sentConversion = s.conversion;
    }
    if (v->faceCount >= 0) {
        const unsigned generation = s.faces ? s.faces->generation : 0;
        if (!v->bSent || generation != v->sentFaces) {
            const int n = s.faces ? s.faces->count : 0;
            if (n > 0) glUniform4fv(v->faceRect, n, s.faces->rect);
            glUniform1f(v->faceCount, float(n));
            v->sentFaces = generation;
        }
    }
    v->bSent = true;
}

void ViewProgram::SetMatrix(const float *mvp) const
{
    glUniformMatrix4fv(uMVPMatrix, 1, GL_FALSE, mvp);
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

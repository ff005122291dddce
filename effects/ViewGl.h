// The GL pieces every view draws with: a program whose locations are looked
// up once, when it is built, and a mesh held in a buffer object, uploaded
// once. Render thread only, context current.
#ifndef PANOVIEW_VIEWGL_H
#define PANOVIEW_VIEWGL_H

#include "GlObjects.h"
#include "GlesRenderEffect.h"
#include "YuvConversion.h"

// A view's program and its locations. The shaders name their inputs alike
// throughout: attributes aPosition and aTexCoor, the matrix uMVPMatrix, the
// plane samplers tex_y, tex_u, tex_v (texture units 0, 1, 2) and the colour
// conversion yuvMatrix, yuvOffset of GLSL_YUV_TO_RGB.
class ViewProgram {
public:
    enum Inputs {
        kPlanes,       // samples the three planes through GLSL_YUV_TO_RGB
        kPositionOnly, // draws points or flat colour: no texture coordinate, no planes
    };

    // Builds the program and looks up the inputs above. Each missing one is
    // logged as "[VideoRender] <view>:: get <handle> error. " and counted;
    // the lookups go on after a failure. Returns the number of failures (a
    // failed build counts once and leaves every location at -1).
    int Build(const char *viewName, const char *vertexSource, const char *fragmentSource, Inputs inputs = kPlanes);
    // Looks up one more uniform, logging a miss the same way; -1 when absent.
    GLint Uniform(const char *viewName, const char *name, const char *handleName) const;
    void Release() { *this = ViewProgram(); }

    GLuint id() const { return m_Program.id(); }
    explicit operator bool() const { return bool(m_Program); }

    // glUseProgram.
    void Use() const;
    // glUseProgram, and the conversion of the planes into the uniforms.
    void Use(const YuvConversion &conversion) const;
    void SetMatrix(const float *mvp) const;
    // The three plane textures on units 0, 1, 2, the samplers set to them.
    void BindPlanes(const GLuint *pTextures) const;

    GLint aPosition = -1;
    GLint aTexCoor = -1;
    GLint uMVPMatrix = -1;

private:
    GlProgram m_Program;
    GLint m_Samplers[3] = {-1, -1, -1};
    GLint m_YuvMatrix = -1;
    GLint m_YuvOffset = -1;
};

// Vertices in one buffer object: positions (3 floats a vertex), then,
// when the mesh has them, texture coordinates (2 floats a vertex).
class ViewMesh {
public:
    // Uploads `count` vertices drawn as `primitive`. texCoords may be null.
    // A mesh whose coordinates change later is uploaded GL_DYNAMIC_DRAW.
    // Returns 0, or 3 when there is no buffer (the mesh is then empty).
    MRESULT Upload(const float *positions, const float *texCoords, GLsizei count, GLenum primitive,
                   GLenum usage = GL_STATIC_DRAW);
    // Replace all positions or all texture coordinates (same count).
    void UpdatePositions(const float *positions);
    void UpdateTexCoords(const float *texCoords);
    void Release() { *this = ViewMesh(); }

    GLsizei Count() const { return m_nCount; }
    explicit operator bool() const { return m_nCount > 0; }

    // Points the program's attributes into the buffer, draws the first
    // `count` vertices (all by default), and leaves no attribute enabled
    // and no buffer bound: client arrays drawn next on the same slots read
    // their own memory.
    void Draw(const ViewProgram &program, GLsizei count = -1) const;

private:
    GlBuffer m_Buffer;
    GLsizei m_nCount = 0;
    GLenum m_Primitive = GL_TRIANGLES;
    bool m_bTexCoords = false;
};

#endif

// The GL pieces every view draws with: a program whose locations are looked
// up once, when it is built, and a mesh held in a buffer object, uploaded
// once. Render thread only, context current.
#ifndef PANOVIEW_VIEWGL_H
#define PANOVIEW_VIEWGL_H

#include <string>

#include "FrameSampler.h"
#include "GlObjects.h"
#include "GlesRenderEffect.h"

// A view's program and its locations. The shaders name their inputs alike
// throughout: attributes aPosition and aTexCoor, the matrix uMVPMatrix; a
// program that samples the frame puts GLSL_FRAME_COLOUR in its fragment
// shader and calls frameColour(p).
//
// Such a program exists once per frame layout: Build compiles the layout
// the render thread builds for (SetBuildLayout) and keeps every layout it
// compiled, so that a view built again for a layout it has seen (a stream
// that changes layout and back) links nothing. The locations are those of
// that layout's program; a view looks its own uniforms up again whenever it
// is built. A fragment shader with the fisheye lens stage (it names
// LENS_LAW) is likewise compiled and kept once per lens law and with or
// without the footprint sampler, with or without the face stage
// (SetBuildLens): the source gets "#define LENS_LAW n",
// "#define LENS_FOOTPRINT 0 or 1" and "#define LENS_FACES 0 or 1" in front.
class ViewProgram {
public:
    enum Inputs {
        kPlanes,       // samples the frame through GLSL_FRAME_COLOUR
        kPositionOnly, // draws points or flat colour: no texture coordinate, no planes
        kOwnPicture,   // samples a planar 8-bit picture of the view's own, whatever the frame's layout
    };

    // Builds (or takes from the cache) the program and looks up the inputs
    // above. Each missing one is logged as "[VideoRender] <view>:: get
    // <handle> error. " and counted; the lookups go on after a failure.
    // Returns the number of failures (a failed build counts once and leaves
    // every location at -1).
    int Build(const char *viewName, const char *vertexSource, const char *fragmentSource, Inputs inputs = kPlanes);
    // Looks up one more uniform, logging a miss the same way; -1 when absent.
    GLint Uniform(const char *viewName, const char *name, const char *handleName) const;
    void Release() { *this = ViewProgram(); }

    GLuint id() const { return Current() ? Current()->program.id() : 0; }
    explicit operator bool() const { return id() != 0; }

    // glUseProgram.
    void Use() const;
    // glUseProgram, the frame's textures on units 0, 1, 2, and the sampler
    // and colour uniforms that differ from what this program last got.
    void Use(const FrameSampling &sampling) const;
    void SetMatrix(const float *mvp) const;

    // The layout the next Build on this (the render) thread compiles for.
    static void SetBuildLayout(FrameLayout layout);
    // The lens law (ZT5_LENS_*, 0..4), footprint sampler and face stage the
    // next Build on this thread compiles a lens stage with.
    static void SetBuildLens(unsigned law, bool footprint, bool faces);
    // Five laws, with and without the footprint, with and without faces.
    static const int kLensFlavours = 20;

    GLint aPosition = -1;
    GLint aTexCoor = -1;
    GLint uMVPMatrix = -1;

private:
    struct Variant {
        GlProgram program;
        GLint samplers[3] = {-1, -1, -1};
        GLint box = -1, planeScale = -1, texelCount = -1, yuvMatrix = -1, yuvOffset = -1;
        GLint faceRect = -1, faceCount = -1; // the programs that draw faces
        mutable unsigned sentFaces = 0;      // the FaceMarks generation sent (none is 0)
        // What the program's uniforms hold now; sent again only on a change.
        mutable bool bSent = false;
        mutable float sentBox[4] = {}, sentScale[4] = {}, sentTexels[4] = {};
        mutable YuvConversion sentConversion = {};
    };
    const Variant *Current() const { return m_nCurrent >= 0 ? &m_Variants[m_nCurrent] : nullptr; }

    Variant m_Variants[kFrameLayoutCount * kLensFlavours];
    std::string m_VertexSource, m_FragmentSource;
    int m_nCurrent = -1;
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

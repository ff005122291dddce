// The program every textured overlay (label text, logo) draws with: a quad
// placed by uMVPMatrix, one texture coordinate a corner, blended over the
// picture. Each overlay brings its own fragment stage (which reads
// uTexture at vTexCoor) and sets its own extra uniforms between Begin and
// Draw. Render thread only, like every GL call.
#ifndef PANOVIEW_OVERLAYQUAD_H
#define PANOVIEW_OVERLAYQUAD_H

#include "GlObjects.h"

class OverlayQuad {
public:
    // Builds the program around `fragment`; false when it won't link or
    // lacks either attribute.
    bool Build(const char *fragment);
    explicit operator bool() const { return bool(m_Program); }
    void Reset() { m_Program.reset(); }
    GLint Uniform(const char *name) const { return glGetUniformLocation(m_Program.id(), name); }

    // Makes the program current: the caller may set its own uniforms next.
    void Begin() const { glUseProgram(m_Program.id()); }
    // The strip bottom left, bottom right, top left, top right: 4 positions
    // (x, y, z) and 4 texture coordinates, `texture` on unit 0, blended.
    void Draw(const float *mvp, const float positions[12], const float texCoords[8], GLuint texture) const;

private:
    GlProgram m_Program;
    GLint m_aPosition = -1;
    GLint m_aTexCoor = -1;
    GLint m_uMVPMatrix = -1;
    GLint m_uTexture = -1;
};

#endif

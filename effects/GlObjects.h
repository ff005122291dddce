// Owners of GL object names: each holds one name, deletes it when it goes,
// and can be moved but not copied. They are made, used and destroyed on the
// render thread with the context current, as every GL call is.
#ifndef PANOVIEW_GLOBJECTS_H
#define PANOVIEW_GLOBJECTS_H

#include <GLES2/gl2.h>

#include <utility>

template <typename Kind> class GlObject {
public:
    GlObject() = default; // owns nothing
    ~GlObject() { reset(); }
    GlObject(GlObject &&other) noexcept : m_id(std::exchange(other.m_id, 0)) {}
    GlObject &operator=(GlObject &&other) noexcept
    {
        if (this != &other) {
            reset();
            m_id = std::exchange(other.m_id, 0);
        }
        return *this;
    }
    GlObject(const GlObject &) = delete;
    GlObject &operator=(const GlObject &) = delete;

    // A new name of this kind (empty when GL gives none).
    static GlObject Create() { return Adopt(Kind::Make()); }
    // Takes over a name made elsewhere (0 for none).
    static GlObject Adopt(GLuint id)
    {
        GlObject o;
        o.m_id = id;
        return o;
    }

    GLuint id() const { return m_id; }
    explicit operator bool() const { return m_id != 0; }
    void reset()
    {
        if (m_id) Kind::Delete(m_id);
        m_id = 0;
    }

private:
    GLuint m_id = 0;
};

struct GlTextureKind {
    static GLuint Make()
    {
        GLuint id = 0;
        glGenTextures(1, &id);
        return id;
    }
    static void Delete(GLuint id) { glDeleteTextures(1, &id); }
};

struct GlBufferKind {
    static GLuint Make()
    {
        GLuint id = 0;
        glGenBuffers(1, &id);
        return id;
    }
    static void Delete(GLuint id) { glDeleteBuffers(1, &id); }
};

struct GlProgramKind {
    static GLuint Make() { return glCreateProgram(); }
    static void Delete(GLuint id) { glDeleteProgram(id); }
};

struct GlShaderKind {
    static void Delete(GLuint id) { glDeleteShader(id); }
};

struct GlFramebufferKind {
    static GLuint Make()
    {
        GLuint id = 0;
        glGenFramebuffers(1, &id);
        return id;
    }
    static void Delete(GLuint id) { glDeleteFramebuffers(1, &id); }
};

struct GlRenderbufferKind {
    static GLuint Make()
    {
        GLuint id = 0;
        glGenRenderbuffers(1, &id);
        return id;
    }
    static void Delete(GLuint id) { glDeleteRenderbuffers(1, &id); }
};

using GlTexture = GlObject<GlTextureKind>;
using GlBuffer = GlObject<GlBufferKind>;
using GlProgram = GlObject<GlProgramKind>;
using GlFramebuffer = GlObject<GlFramebufferKind>;
using GlRenderbuffer = GlObject<GlRenderbufferKind>;
using GlShader = GlObject<GlShaderKind>; // made by buildShader, taken with Adopt

#endif

#include "FrameTextures.h"

#include <cstring>

#include "GlesRenderEffect.h"

#ifndef GL_UNPACK_ROW_LENGTH_EXT
#define GL_UNPACK_ROW_LENGTH_EXT 0x0CF2
#endif

bool FrameTextures::RowsAtAnyPitch()
{
    const char *version = reinterpret_cast<const char *>(glGetString(GL_VERSION));
    const char *extensions = reinterpret_cast<const char *>(glGetString(GL_EXTENSIONS));
    return (version && std::strncmp(version, "OpenGL ES 3", 11) == 0) ||
           (extensions && std::strstr(extensions, "GL_EXT_unpack_subimage"));
}

bool FrameTextures::Upload(const VideoFrame &frame)
{
    m_bHolds = false;
    if (frame.width == 0 || frame.height == 0 || !frame.PlanesUsable()) return false;
    TextureSpec specs[3];
    TextureSpecsFor(frame, specs);
    // Rows are tight; any width goes up with an alignment of one.
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    for (int i = 0; i < 3; i++) {
        const TextureSpec &s = specs[i];
        if (s.plane < 0 || s.width <= 0 || s.height <= 0) continue;
        if (!m_Textures[i]) {
            m_Textures[i] = GlTexture::Create();
            m_Ids[i] = m_Textures[i].id();
            m_Specs[i] = TextureSpec{-1, 0, 0, 0, 0};
        }
        glBindTexture(GL_TEXTURE_2D, m_Ids[i]);
        if (m_Specs[i].format != s.format || m_Specs[i].width != s.width || m_Specs[i].height != s.height ||
            m_Specs[i].filter != s.filter) {
            // Storage once per layout and size; later frames replace texels.
            glTexImage2D(GL_TEXTURE_2D, 0, GLint(s.format), s.width, s.height, 0, s.format, GL_UNSIGNED_BYTE, nullptr);
            glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GLint(s.filter));
            glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GLint(s.filter));
            glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
            glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
            m_Specs[i] = s;
        }
        // Rows at the plane's pitch, in this texture's texels (a pitch of the
        // tight row needs no word).
        const GLint bytesPerTexel = s.format == GL_RGBA ? 4 : s.format == GL_LUMINANCE_ALPHA ? 2 : 1;
        const size_t pitch = frame.plane[s.plane].pitch;
        const bool bLongRows = pitch != size_t(s.width) * size_t(bytesPerTexel);
        if (bLongRows) glPixelStorei(GL_UNPACK_ROW_LENGTH_EXT, GLint(pitch / size_t(bytesPerTexel)));
        glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, s.width, s.height, s.format, GL_UNSIGNED_BYTE,
                        frame.plane[s.plane].data);
        if (bLongRows) glPixelStorei(GL_UNPACK_ROW_LENGTH_EXT, 0);
    }
    checkGlError("UploadPlanes");
    m_bHolds = true;
    return true;
}

void FrameTextures::Reset()
{
    for (int i = 0; i < 3; i++) {
        m_Textures[i].reset();
        m_Ids[i] = 0;
        m_Specs[i] = TextureSpec{-1, 0, 0, 0, 0};
    }
    m_bHolds = false;
}

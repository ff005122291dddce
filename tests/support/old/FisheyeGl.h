// Drives a fisheye view the way the renderer does, without the renderer: an
// EGL pbuffer context current on the calling thread, the three planes of the
// synthetic lens square in textures, and a read-back of what was drawn.
#ifndef PANOVIEW_TESTS_FISHEYEGL_H
#define PANOVIEW_TESTS_FISHEYEGL_H

#include <GLES2/gl2.h>

#include <cstdint>
#include <string>
#include <vector>

#include "GlesRenderEffect.h"
#include "RgbaImage.h"
#include "SyntheticScene.h"

namespace fisheyegl {

// An EGL context with an 8-bit RGBA pbuffer of the given size, made current
// on the constructing thread. Tries the default display first (needs
// $DISPLAY), then the surfaceless platform.
class GlContext {
public:
    GlContext(int width, int height);
    ~GlContext();
    GlContext(const GlContext &) = delete;
    GlContext &operator=(const GlContext &) = delete;

    bool ok() const { return m_ok; }
    const std::string &error() const { return m_error; }
    int width() const { return m_width; }
    int height() const { return m_height; }

private:
    void *m_display = nullptr;
    void *m_surface = nullptr;
    void *m_context = nullptr;
    int m_width = 0, m_height = 0;
    bool m_ok = false;
    std::string m_error;
};

// The lens square of a synthetic frame, cut out as the display manager
// does: the view's textures hold exactly the square around the lens circle.
struct LensPlanes {
    int side = 0;
    std::vector<uint8_t> y, u, v;
};
LensPlanes CropLensSquare(const synthetic::LensFrame &lens, const std::vector<uint8_t> &i420);
// Shorthand: frame `frame` of the default 1920x1080 scene, cropped.
LensPlanes SyntheticLens(int frame = 0);

// Three luminance textures, Y, U, V, as the renderer keeps them.
class PlaneTextures {
public:
    PlaneTextures();
    ~PlaneTextures();
    void Upload(const LensPlanes &planes);
    const GLuint *names() const { return m_tex; }

private:
    GLuint m_tex[3] = {0, 0, 0};
};

// glReadPixels of the current surface, top row first.
// Draws `frames` frames of a view from the lens textures into a window of
// width x height, as the renderer calls it (video size: the 1080 lens square).
void RenderFrames(GlesRenderEffect &view, const PlaneTextures &tex, int frames, int width, int height);

// The view's saved state record, filled with `fill` before the view writes it
// (so fields the view leaves alone can be told apart).
FECurrentStatusData SaveState(GlesRenderEffect &view, unsigned char fill);

harness::RgbaImage ReadBack(int width, int height);

// Writes `image` to <test output dir>/<name>.png; returns the path.
std::string SaveSnapshot(const std::string &name, const harness::RgbaImage &image);

// Sector index (0..7) whose colour is nearest to `c`, or -1 when none is
// within `tolerance` per channel.
int NearestSector(synthetic::Rgb c, int tolerance = 40);
bool IsHorizonWhite(synthetic::Rgb c, int tolerance = 40);

} // namespace fisheyegl

#endif

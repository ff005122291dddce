// The sampler stage: one GLSL function, frameColour(p), that every view
// calls for the colour at a point p of the lens box (the unit square: (0, 0)
// its top left as the frame is stored, (1, 1) its bottom right). It is made
// of a stage per frame layout (which textures, which channels, how 10-bit
// words are rebuilt) and the colour stage (YuvConversion.h), composed when a
// view's program is built for a layout.
//
// A fragment shader puts GLSL_FRAME_COLOUR after its precision statement;
// ViewProgram replaces it by the stages of the layout it builds for.
#ifndef PANOVIEW_FRAMESAMPLER_H
#define PANOVIEW_FRAMESAMPLER_H

#include <GLES2/gl2.h>

#include <string>

#include "VideoFrame.h"
#include "ZT5Records.h"
#include "YuvConversion.h"

#define GLSL_FRAME_COLOUR "//<frame colour>\n"

// How one texture unit sees the frame's memory: which plane, as which
// texels. Packed 4:2:2 goes up twice from the same bytes: as luminance-alpha
// texels of one pixel each (Y and a chroma byte) and as RGBA texels of a
// pixel pair each (both chroma bytes), so that linear filtering of each
// blends only samples of one kind. 16-bit samples go up as luminance-alpha
// (low byte, high byte) and the sampler stage puts them together again;
// filtering each byte alone and adding them is exact, the sum being linear.
struct TextureSpec {
    int plane;      // -1: the unit is unused
    GLenum format;  // GL_LUMINANCE, GL_LUMINANCE_ALPHA or GL_RGBA
    GLsizei width;  // texels
    GLsizei height;
    GLenum filter;  // GL_LINEAR, or GL_NEAREST where the sampler stage interpolates
};

// The three units' textures of a frame of this layout and size.
void TextureSpecsFor(const VideoFrame &frame, TextureSpec specs[3]);

// The sampler and colour stages of a layout, GLSL to stand after a
// precision statement; defines frameColour(p).
std::string FrameColourSource(FrameLayout layout);

// The face rectangles the fisheye views draw over the picture, in the lens
// box's unit square (a view's p), each grown by a fifth of its size on
// every side as the plain view draws it: x0, y0, x1, y1, with x0 above x1
// for a face drawn green (dwGender set), else red. The generation changes
// with the list or the lens box, so that a program sends it only then.
struct FaceMarks {
    int count = 0;
    unsigned generation = 0;
    float rect[4 * ZT5_FACE_LIST_MAX] = {};
};

// Everything a view's draw needs to sample the frame: the layout its program
// is built for, the textures, the lens box and the plane scales as
// uniforms, and the colour stage's numbers. Made by the renderer once per
// draw; a view's own picture (the half sphere's cloud) makes its own.
struct FrameSampling {
    FrameLayout layout = FrameLayout::I420;
    GLuint textures[3] = {0, 0, 0};
    // The lens box in units of the frame (origin, size), and how frame
    // units become texture units: x, y for the luma texture, then for the
    // chroma one (textures may be wider than the picture).
    float box[4] = {0.0f, 0.0f, 1.0f, 1.0f};
    float planeScale[4] = {1.0f, 1.0f, 1.0f, 1.0f};
    // Texels across and down of the luma and the chroma texture.
    float texelCount[4] = {1.0f, 1.0f, 1.0f, 1.0f};
    YuvConversion conversion = DefaultYuvConversion();
    // The lens box in pixels of the whole frame as pushed (the textures may
    // hold a part of it): where a point of the box lies in the frame.
    FrameBox frameBox;
    // The faces over the picture, for the programs that draw them (null:
    // none).
    const FaceMarks *faces = nullptr;
};

// The sampling of `frame` uploaded into `textures`, looking at `box`.
FrameSampling SamplingFor(const VideoFrame &frame, const FrameBox &box, const GLuint textures[3]);

// A planar 8-bit picture of a view's own (w by h luma, w/2 by h/2 chroma
// textures), looked at whole, in the stream default's colours.
FrameSampling PictureSampling(const GLuint textures[3]);

#endif

#include "FrameSampler.h"

namespace {

// Shared head of every layout: the textures, the lens box and plane scales,
// the colour stage's numbers. Coordinates and the rebuilt 16-bit values
// need the most precision the fragment stage has: a coordinate across a
// 1920-texel row at low precision lands texels off.
const char kHead[] = "#ifdef GL_FRAGMENT_PRECISION_HIGH\n"
                     "#define PV_HIGHP highp\n"
                     "#else\n"
                     "#define PV_HIGHP mediump\n"
                     "#endif\n"
                     "uniform sampler2D tex_y;\n"
                     "uniform sampler2D tex_u;\n"
                     "uniform sampler2D tex_v;\n"
                     "uniform PV_HIGHP vec4 uFrameBox;\n"
                     "uniform PV_HIGHP vec4 uPlaneScale;\n"
                     "uniform PV_HIGHP vec4 uTexelCount;\n"
                     "uniform mat3 yuvMatrix;\n"
                     "uniform vec3 yuvOffset;\n";

// Each layout's stage: Y, U, V at frame point f (units of the frame), in
// 8-bit units over 255. l is the luma texture point, c the chroma one.
const char *LayoutStage(FrameLayout layout)
{
    switch (layout) {
    case FrameLayout::I420:
        return "    return vec3(texture2D(tex_y, l).r, texture2D(tex_u, c).r, texture2D(tex_v, c).r);\n";
    case FrameLayout::NV12:
        // Luminance-alpha pairs: U in the luminance, V in the alpha.
        return "    vec4 uv = texture2D(tex_u, c);\n"
               "    return vec3(texture2D(tex_y, l).r, uv.r, uv.a);\n";
    case FrameLayout::NV21:
        return "    vec4 vu = texture2D(tex_u, c);\n"
               "    return vec3(texture2D(tex_y, l).r, vu.a, vu.r);\n";
    case FrameLayout::YUYV:
        // Unit 0: Y0 U | Y1 V as luminance-alpha pixels (Y in the
        // luminance); unit 1: Y0 U Y1 V as one RGBA pair.
        return "    vec4 p = texture2D(tex_u, c);\n"
               "    return vec3(texture2D(tex_y, l).r, p.g, p.a);\n";
    case FrameLayout::UYVY:
        // Unit 0: U Y0 | V Y1 (Y in the alpha); unit 1: U Y0 V Y1.
        return "    vec4 p = texture2D(tex_u, c);\n"
               "    return vec3(texture2D(tex_y, l).a, p.r, p.b);\n";
    case FrameLayout::I010:
        // A word of 10 bits in its low bits: (lo + 256 hi) / 4 in 8-bit units,
        // over 255: (L + 256 A) / 4 with L, A the bytes over 255. Filtering
        // the two bytes apart is exact only in exact arithmetic; texture
        // units interpolate bytes at 8 bits, and a high byte rounded by half
        // a step would be 32 levels off. So the words are fetched at texel
        // centres (nearest), rebuilt, then interpolated here.
        return "    PV_HIGHP vec4 ly = bilinear16(tex_y, l, uTexelCount.xy);\n"
               "    PV_HIGHP vec4 lu = bilinear16(tex_u, c, uTexelCount.zw);\n"
               "    PV_HIGHP vec4 lv = bilinear16(tex_v, c, uTexelCount.zw);\n"
               "    return vec3(ly.r + 256.0 * ly.a, lu.r + 256.0 * lu.a, lv.r + 256.0 * lv.a) * 0.25;\n";
    case FrameLayout::P010:
        // 10 bits in the top of the word: the word over 256 is the sample in
        // 8-bit units, (L + 256 A) / 256 = L / 256 + A over 255. The pair
        // texel holds U as red (low) and green (high), V as blue and alpha.
        // Rebuilt before interpolation, as above.
        return "    PV_HIGHP vec4 ly = bilinear16(tex_y, l, uTexelCount.xy);\n"
               "    PV_HIGHP vec4 uv = bilinear16(tex_u, c, uTexelCount.zw);\n"
               "    return vec3(ly.r / 256.0 + ly.a, uv.r / 256.0 + uv.g, uv.b / 256.0 + uv.a);\n";
    }
    return "    return vec3(0.0, 0.5, 0.5);\n";
}

// Bilinear interpolation of whole 16-bit words: four texel-centre fetches
// (the texture filters nearest) and the blend of their rebuilt values. Each
// channel is blended on its own and the word rebuilt after: the blend being
// linear, that is the blend of the words, in full float precision.
const char kBilinear16[] = "PV_HIGHP vec4 bilinear16(sampler2D t, PV_HIGHP vec2 tc, PV_HIGHP vec2 n) {\n"
                           "    PV_HIGHP vec2 p = tc * n - 0.5;\n"
                           "    PV_HIGHP vec2 i = floor(p);\n"
                           "    PV_HIGHP vec2 f = p - i;\n"
                           "    PV_HIGHP vec2 a = (i + 0.5) / n, b = (i + 1.5) / n;\n"
                           "    PV_HIGHP vec4 t00 = texture2D(t, a), t10 = texture2D(t, vec2(b.x, a.y));\n"
                           "    PV_HIGHP vec4 t01 = texture2D(t, vec2(a.x, b.y)), t11 = texture2D(t, b);\n"
                           "    return mix(mix(t00, t10, f.x), mix(t01, t11, f.x), f.y);\n"
                           "}\n";

bool Is16Bit(FrameLayout layout)
{
    return layout == FrameLayout::I010 || layout == FrameLayout::P010;
}

} // namespace

std::string FrameColourSource(FrameLayout layout)
{
    std::string s = kHead;
    if (Is16Bit(layout)) s += kBilinear16;
    s += "vec3 frameYuv(PV_HIGHP vec2 f) {\n"
         "    PV_HIGHP vec2 l = f * uPlaneScale.xy;\n"
         "    PV_HIGHP vec2 c = f * uPlaneScale.zw;\n";
    s += LayoutStage(layout);
    s += "}\n"
         // The colour stage.
         "vec4 frameColour(PV_HIGHP vec2 p) {\n"
         "    return vec4(yuvMatrix * (frameYuv(uFrameBox.xy + p * uFrameBox.zw) + yuvOffset), 1.0);\n"
         "}\n";
    return s;
}

void TextureSpecsFor(const VideoFrame &frame, TextureSpec specs[3])
{
    for (int i = 0; i < 3; i++) specs[i] = {-1, GL_LUMINANCE, 0, 0, GL_LINEAR};
    // 16-bit words are interpolated by the sampler stage: their textures
    // filter nearest.
    const GLenum filter = Is16Bit(frame.layout) ? GL_NEAREST : GL_LINEAR;
    auto shape = [&](int plane, GLenum format, int texelsPerShape) {
        const PlaneShape s = frame.Shape(plane);
        return TextureSpec{plane, format, GLsizei(s.cols / texelsPerShape), GLsizei(s.rows), filter};
    };
    switch (frame.layout) {
    case FrameLayout::I420:
        for (int i = 0; i < 3; i++) specs[i] = shape(i, GL_LUMINANCE, 1);
        break;
    case FrameLayout::NV12:
    case FrameLayout::NV21:
        specs[0] = shape(0, GL_LUMINANCE, 1);
        specs[1] = shape(1, GL_LUMINANCE_ALPHA, 1);
        break;
    case FrameLayout::YUYV:
    case FrameLayout::UYVY:
        // One plane of an even number of two-byte pixels: as many
        // luminance-alpha texels, half as many RGBA ones.
        specs[0] = shape(0, GL_LUMINANCE_ALPHA, 1);
        specs[1] = shape(0, GL_RGBA, 2);
        break;
    case FrameLayout::I010:
        for (int i = 0; i < 3; i++) specs[i] = shape(i, GL_LUMINANCE_ALPHA, 1);
        break;
    case FrameLayout::P010:
        specs[0] = shape(0, GL_LUMINANCE_ALPHA, 1);
        specs[1] = shape(1, GL_RGBA, 1);
        break;
    }
}

FrameSampling SamplingFor(const VideoFrame &frame, const FrameBox &box, const GLuint textures[3])
{
    FrameSampling s;
    s.layout = frame.layout;
    for (int i = 0; i < 3; i++) s.textures[i] = textures[i];
    const float w = float(frame.width ? frame.width : 1), h = float(frame.height ? frame.height : 1);
    const FrameBox b = box.Empty() ? FrameBox{0, 0, frame.width, frame.height} : box;
    s.box[0] = float(b.x) / w;
    s.box[1] = float(b.y) / h;
    s.box[2] = float(b.w) / w;
    s.box[3] = float(b.h) / h;
    // A frame unit across is `width` pixels; the luma texture holds
    // specs[0].width of them, a chroma texel two (4:2:0 rows: two as well).
    TextureSpec specs[3];
    TextureSpecsFor(frame, specs);
    const bool b422 = frame.layout == FrameLayout::YUYV || frame.layout == FrameLayout::UYVY;
    s.planeScale[0] = specs[0].width ? w / float(specs[0].width) : 1.0f;
    s.planeScale[1] = specs[0].height ? h / float(specs[0].height) : 1.0f;
    s.planeScale[2] = specs[1].width ? w / (2.0f * float(specs[1].width)) : 1.0f;
    s.planeScale[3] = specs[1].height ? (b422 ? h : h / 2.0f) / float(specs[1].height) : 1.0f;
    s.texelCount[0] = float(specs[0].width), s.texelCount[1] = float(specs[0].height);
    s.texelCount[2] = float(specs[1].width), s.texelCount[3] = float(specs[1].height);
    s.conversion = YuvConversionFor(frame.colour);
    return s;
}

FrameSampling PictureSampling(const GLuint textures[3])
{
    FrameSampling s;
    for (int i = 0; i < 3; i++) s.textures[i] = textures[i];
    return s;
}

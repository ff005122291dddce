// From the three planes to RGB: one conversion, in one GLSL snippet that
// every view's fragment shader includes, driven by two uniforms so that the
// matrix and the range can be chosen without touching a shader.
//
//   rgb = M * (vec3(y, u, v) + offset)
//
// with y, u, v the red channel of the three plane textures (0..1) and M a
// 3x3 matrix, column-major as glUniformMatrix3fv takes it: column 0 holds
// the weights of y, column 1 those of u, column 2 those of v.
#ifndef PANOVIEW_YUVCONVERSION_H
#define PANOVIEW_YUVCONVERSION_H

struct YuvConversion {
    float fMatrix[9]; /* column-major mat3 */
    float fOffset[3];
};

// BT.601, video range (luma 16..235, chroma 16..240 in 8 bits): luma is
// expanded by 255/219 = 1.1643 after taking off 16/256 = 0.0625, the
// chroma weights carry the 255/224 expansion. The default of every view.
static const YuvConversion kYuvBt601Video = {
    {1.1643f, 1.1643f, 1.1643f, 0.0f, -0.39173f, 2.017f, 1.5958f, -0.81290f, 0.0f},
    {-0.0625f, -0.5f, -0.5f},
};

// The numbers the plain view's lens correction has always drawn with: the
// BT.601 weights of unscaled u and v, luma taken as it is (no range
// expansion). That program keeps them whatever conversion the view is given.
static const YuvConversion kYuvLensCorrection = {
    {1.0f, 1.0f, 1.0f, 0.0f, -0.39465f, 2.03211f, 1.13983f, -0.58060f, 0.0f},
    {0.0f, -0.5f, -0.5f},
};

// The samplers and the conversion; goes after the precision statement of a
// fragment shader. yuvToRgb(p) is the colour of texture point p.
#define GLSL_YUV_TO_RGB                                                              \
    "uniform sampler2D tex_y;\n"                                                     \
    "uniform sampler2D tex_u;\n"                                                     \
    "uniform sampler2D tex_v;\n"                                                     \
    "uniform mat3 yuvMatrix;\n"                                                      \
    "uniform vec3 yuvOffset;\n"                                                      \
    "vec4 yuvToRgb(vec2 p) {\n"                                                      \
    "    vec3 yuv = vec3(texture2D(tex_y, p).r, texture2D(tex_u, p).r,\n"            \
    "                    texture2D(tex_v, p).r) + yuvOffset;\n"                      \
    "    return vec4(yuvMatrix * yuv, 1.0);\n"                                       \
    "}\n"

#endif

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

// The conversion for a ZT5_CFG_DISPLAY_YUV_MATRIX word: the matrix in the
// low byte (0 BT.601, 1 BT.709, 2 BT.2020; others read as BT.601) and 0x100
// for full-range samples. Word 0 gives kYuvBt601Video exactly.
//
// From the luma weights Kr, Kb (Kg = 1 - Kr - Kb): R = Y + 2(1 - Kr) V,
// G = Y - 2 Kb (1 - Kb) / Kg U - 2 Kr (1 - Kr) / Kg V, B = Y + 2(1 - Kb) U,
// with Y, U, V expanded from video range (luma x 255/219 after taking off
// 16/255, chroma x 255/224) or taken as they are in full range.
inline YuvConversion YuvConversionFor(unsigned int word)
{
    if (word == 0) return kYuvBt601Video;
    static const float kWeights[3][2] = {{0.299f, 0.114f}, {0.2126f, 0.0722f}, {0.2627f, 0.0593f}};
    const unsigned int m = (word & 0xff) < 3 ? (word & 0xff) : 0;
    const bool bFull = (word & 0x100) != 0;
    const float kr = kWeights[m][0], kb = kWeights[m][1], kg = 1.0f - kr - kb;
    const float ly = bFull ? 1.0f : 255.0f / 219.0f;
    const float cs = bFull ? 1.0f : 255.0f / 224.0f;
    YuvConversion c = {{ly, ly, ly, 0.0f, -cs * 2.0f * kb * (1.0f - kb) / kg, cs * 2.0f * (1.0f - kb),
                        cs * 2.0f * (1.0f - kr), -cs * 2.0f * kr * (1.0f - kr) / kg, 0.0f},
                       {bFull ? 0.0f : -16.0f / 255.0f, -128.0f / 255.0f, -128.0f / 255.0f}};
    return c;
}

// The samplers and the conversion; goes after the precision statement of a
// fragment shader. frameColour(p) is the colour of texture point p.
#define GLSL_YUV_TO_RGB                                                              \
    "uniform sampler2D tex_y;\n"                                                     \
    "uniform sampler2D tex_u;\n"                                                     \
    "uniform sampler2D tex_v;\n"                                                     \
    "uniform mat3 yuvMatrix;\n"                                                      \
    "uniform vec3 yuvOffset;\n"                                                      \
    "vec4 frameColour(vec2 p) {\n"                                                      \
    "    vec3 yuv = vec3(texture2D(tex_y, p).r, texture2D(tex_u, p).r,\n"            \
    "                    texture2D(tex_v, p).r) + yuvOffset;\n"                      \
    "    return vec4(yuvMatrix * yuv, 1.0);\n"                                       \
    "}\n"

#endif

// The colour stage: from Y, U, V to RGB, one formula for every matrix and
// range, driven by two uniforms so that a stream's description changes no
// shader.
//
//   rgb = M * (vec3(y, u, v) + offset)
//
// with y, u, v in 8-bit units over 255 (a 10-bit sample arrives as its value
// over 4, so one set of numbers serves both depths: 10-bit black 64 is 16)
// and M a 3x3 matrix, column-major as glUniformMatrix3fv takes it: column 0
// holds the weights of y, column 1 those of u, column 2 those of v.
#ifndef PANOVIEW_YUVCONVERSION_H
#define PANOVIEW_YUVCONVERSION_H

#include "VideoFrame.h"

struct YuvConversion {
    float fMatrix[9]; /* column-major mat3 */
    float fOffset[3];
};

// The conversion of a colour description. From the luma weights Kr, Kb
// (Kg = 1 - Kr - Kb):
//   R = Y + 2(1 - Kr) V
//   G = Y - 2 Kb (1 - Kb) / Kg U - 2 Kr (1 - Kr) / Kg V
//   B = Y + 2(1 - Kb) U
// with Y, U, V taken from video range (luma 16..235: x 255/219 after taking
// off 16/255; chroma 16..240 around 128: x 255/224) or as they are in full
// range; chroma is centred on 128/255 either way.
inline YuvConversion YuvConversionFor(const FrameColour &colour)
{
    static const float kWeights[3][2] = {{0.299f, 0.114f}, {0.2126f, 0.0722f}, {0.2627f, 0.0593f}};
    const unsigned m = colour.matrix < 3 ? colour.matrix : 0;
    const bool bFull = colour.bFullRange;
    const float kr = kWeights[m][0], kb = kWeights[m][1], kg = 1.0f - kr - kb;
    const float ly = bFull ? 1.0f : 255.0f / 219.0f;
    const float cs = bFull ? 1.0f : 255.0f / 224.0f;
    YuvConversion c = {{ly, ly, ly, 0.0f, -cs * 2.0f * kb * (1.0f - kb) / kg, cs * 2.0f * (1.0f - kb),
                        cs * 2.0f * (1.0f - kr), -cs * 2.0f * kr * (1.0f - kr) / kg, 0.0f},
                       {bFull ? 0.0f : -16.0f / 255.0f, -128.0f / 255.0f, -128.0f / 255.0f}};
    return c;
}

// The stream default: BT.601, video range.
inline YuvConversion DefaultYuvConversion()
{
    return YuvConversionFor(FrameColour());
}

// The numbers the plain view's lens correction has always drawn with: the
// BT.601 weights of unscaled u and v, luma taken as it is (no range
// expansion). That program keeps them whatever the stream's description.
static const YuvConversion kYuvLensCorrection = {
    {1.0f, 1.0f, 1.0f, 0.0f, -0.39465f, 2.03211f, 1.13983f, -0.58060f, 0.0f},
    {0.0f, -0.5f, -0.5f},
};

#endif

#include "ClipWriter.h"

#include <cstdio>
#include <cstring>
#include <vector>

#include "SyntheticScene.h"
#include "VideoEncoder.h"
#include "ZT5Config.h"

bool WriteSceneClip(const ClipOptions &o, std::string *error)
{
    EncoderSettings settings;
    settings.path = o.path;
    settings.codec = o.codec;
    settings.width = o.width;
    settings.height = o.height;
    settings.timeBaseDen = o.fps;
    settings.rateNum = o.fps;
    settings.matrix = o.matrix;
    settings.range = o.range;
    settings.tenBit = o.tenBit;
    VideoEncoder encoder;
    if (!encoder.Open(settings, error)) return false;
    const uint32_t matrix = o.matrix;
    synthetic::YuvEncoding enc = matrix == ZT5_YUV_MATRIX_BT709    ? synthetic::kBt709
                                 : matrix == ZT5_YUV_MATRIX_BT2020 ? synthetic::kBt2020
                                                                   : synthetic::kBt601;
    enc.fullRange = encoder.FullRange();

    // The scene is painted on even sizes; an odd size takes all but the
    // last column or row of the next even one.
    synthetic::LensFrame lens;
    lens.width = (o.width + 1) & ~1;
    lens.height = (o.height + 1) & ~1;
    lens.cx = int(int64_t(o.lens[0]) * o.width / 10000);
    lens.cy = int(int64_t(o.lens[1]) * o.height / 10000);
    lens.radius = int(int64_t(o.lens[2]) * o.height / 10000);
    std::vector<uint8_t> scene(size_t(lens.width) * lens.height * 3 / 2);
    const int cw = lens.width / 2, ch = lens.height / 2;
    const int ow = (o.width + 1) / 2, oh = (o.height + 1) / 2;
    std::vector<uint8_t> picture(size_t(o.width) * o.height + 2 * size_t(ow) * oh);
    for (int i = 0; i < o.frames; i++) {
        synthetic::RenderFisheyeFrame(lens, i, scene.data(), enc);
        const uint8_t *src[3] = {scene.data(), scene.data() + size_t(lens.width) * lens.height,
                                 scene.data() + size_t(lens.width) * lens.height + size_t(cw) * ch};
        uint8_t *dst[3] = {picture.data(), picture.data() + size_t(o.width) * o.height,
                           picture.data() + size_t(o.width) * o.height + size_t(ow) * oh};
        for (int y = 0; y < o.height; y++)
            std::memcpy(dst[0] + size_t(y) * o.width, src[0] + size_t(y) * lens.width, size_t(o.width));
        for (int p = 1; p <= 2; p++)
            for (int y = 0; y < oh; y++) std::memcpy(dst[p] + size_t(y) * ow, src[p] + size_t(y) * cw, size_t(ow));
        if (!encoder.Write(picture.data(), i, error)) return false;
    }
    if (!encoder.Finish(error)) return false;
    std::printf("wrote %s: %d %spictures of %dx%d at %d fps, %s, %s %s range\n", o.path.c_str(), o.frames,
                o.tenBit ? "10-bit " : "", o.width, o.height, o.fps, encoder.CodecName(),
                matrix == ZT5_YUV_MATRIX_BT709 ? "BT.709" : matrix == ZT5_YUV_MATRIX_BT2020 ? "BT.2020" : "BT.601",
                encoder.FullRange() ? "full" : "video");
    return true;
}

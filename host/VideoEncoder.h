// One video file written with libavcodec and libavformat from planar 4:2:0
// pictures: the encoder of --write-clip and of the transcoder's outputs.
//
// The file is written under a temporary name beside the final one and
// renamed when it is complete: a run that fails or is stopped leaves no
// half-written file under the name asked for.
#ifndef PANOVIEW_HOST_VIDEOENCODER_H
#define PANOVIEW_HOST_VIDEOENCODER_H

#include <cstdint>
#include <memory>
#include <string>

struct EncoderSettings {
    std::string path;           // the container follows the name: .mp4, .mkv, .mov, .avi
    std::string codec = "h264"; // an encoder or codec name: h264, mjpeg, mpeg4, ffv1, libvpx-vp9, ...
    int width = 0, height = 0;
    int timeBaseNum = 1, timeBaseDen = 30; // unit of the timestamps given to Write
    int rateNum = 30, rateDen = 1;         // the frame rate, for the encoder's rate control
    // Matrix of the samples (a ZT5_YUV_MATRIX_* value) and their range (0
    // video, 1 full, -1 the encoder's usual: full for MJPEG, else video;
    // FullRange() tells), written into the stream's description.
    uint32_t matrix = 0;
    int range = -1;
    // 10-bit pictures (planar, 16-bit words) for an encoder that takes them
    // (hevc, libvpx-vp9): the 8-bit samples given to Write times four.
    bool tenBit = false;
};

class VideoEncoder {
public:
    VideoEncoder();
    ~VideoEncoder(); // an unfinished file is removed
    VideoEncoder(const VideoEncoder &) = delete;
    VideoEncoder &operator=(const VideoEncoder &) = delete;

    // Finds the encoder, opens the temporary file and writes the header.
    // False with one line saying why.
    bool Open(const EncoderSettings &settings, std::string *error);
    // Whether the samples are full range (what Open settled on).
    bool FullRange() const;
    const char *CodecName() const;
    // One picture, Y then U then V, tightly packed ((w+1)/2 chroma columns),
    // its timestamp in the time base. Timestamps must rise.
    bool Write(const uint8_t *i420, int64_t pts, std::string *error);
    // Drains the encoder, writes the trailer and gives the file its name.
    bool Finish(std::string *error);

private:
    struct Impl;
    std::unique_ptr<Impl> m;
};

#endif

// Writes the built-in fisheye scene as a video file with libavcodec: a clip
// to try the player with when no fisheye video is at hand. The tests make
// their clips this way, so that no binary video lives in the repository.
#ifndef PANOVIEW_HOST_CLIPWRITER_H
#define PANOVIEW_HOST_CLIPWRITER_H

#include <cstdint>
#include <string>

struct ClipOptions {
    std::string path;           // the container follows the name: .mp4, .mkv, .mov, .avi
    std::string codec = "h264"; // an encoder or codec name: h264, mjpeg, mpeg4, libvpx-vp9, ...
    int width = 1280, height = 720;
    int frames = 90;
    int fps = 30;
    // Matrix of the samples (a ZT5_YUV_MATRIX_* value) and their range (0
    // video, 1 full, -1 the encoder's usual: full for MJPEG, else video),
    // used to paint the scene and written into the stream's description.
    uint32_t matrix = 0;
    int range = -1;
    // 10-bit pictures (planar, 16-bit words), for an encoder that takes them
    // (hevc, libvpx-vp9): the scene's 8-bit samples times four.
    bool tenBit = false;
    // The lens circle in ten-thousandths of the picture (centre x, y,
    // radius as a share of the height); default the middle, as tall as the
    // picture.
    int lens[3] = {5000, 5000, 5000};
};

// One line on stdout saying what was written; false with a message.
bool WriteSceneClip(const ClipOptions &options, std::string *error);

#endif

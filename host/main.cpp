// panoview-play: a small host player for libPanoview.so. Opens an X11
// window, loads the library with dlopen and drives a display the way a
// player does, with a video file, the built-in fisheye scene or a raw I420
// file as input. Also writes the built-in scene as a video file, and
// transcodes a video file into videos of dewarped views without a window.
#include <cstdio>
#include <string>

#include "ClipWriter.h"
#include "Options.h"
#include "Player.h"
#include "Transcoder.h"
#include "VideoSource.h"
#include "ZT5Config.h"

int main(int argc, char **argv)
{
    PlayerOptions opts;
    std::string error;
    if (!ParseOptions(argc, argv, &opts, &error)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        PrintUsage(argv[0]);
        return 64;
    }
    if (opts.help) {
        PrintUsage(argv[0]);
        return 0;
    }
    if (!opts.clipPath.empty()) {
        VideoSource::SetLibraryLog(opts.verbose);
        ClipOptions clip;
        clip.path = opts.clipPath;
        clip.codec = opts.clipCodec;
        if (opts.inputWidth > 0) {
            clip.width = opts.inputWidth;
            clip.height = opts.inputHeight;
        }
        if (opts.frames > 0) clip.frames = int(opts.frames);
        clip.fps = int(opts.fps);
        clip.matrix = uint32_t(opts.colourMatrix > 0 ? opts.colourMatrix : ZT5_YUV_MATRIX_BT601);
        clip.range = opts.colourRange;
        clip.tenBit = opts.layout == int(PictureLayout::kI010) || opts.layout == int(PictureLayout::kP010);
        if (opts.haveLens) {
            clip.lens[0] = opts.lens[0];
            clip.lens[1] = opts.lens[1];
            clip.lens[2] = opts.lens[3];
        }
        if (!WriteSceneClip(clip, &error)) {
            std::fprintf(stderr, "%s\n", error.c_str());
            return 1;
        }
        return 0;
    }
    if (!opts.outputs.empty()) return RunTranscoder(opts);
    Player player(opts);
    return player.Run();
}

// The demo host as a user runs it: panoview-play --headless writes PNG
// snapshots of the built-in fisheye scene, checked against the scene's
// documented geometry.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstdio>
#include <set>

#include "Harness.h"

using namespace harness;

namespace {

// A plain-view snapshot of the scene in a w x h frame, its lens circle as
// tall as the frame: the colour theta degrees off the axis at azimuth phi.
Rgb LensAt(const Image &img, int w, int h, double thetaDeg, double phiDeg)
{
    const Rect pic = LetterboxRect(img.width, img.height, w, h);
    const double r = h / 2.0 * thetaDeg / 90, a = phiDeg * 3.14159265358979 / 180;
    return img.At(pic.left + int((w / 2.0 + r * std::cos(a)) * pic.width() / w), pic.top + int((h / 2.0 - r * std::sin(a)) * pic.height() / h));
}

// How far the eight sectors, each 42 degrees off the axis, are from their colours at most.
int WorstSector(const Image &img, int w, int h)
{
    int worst = 0;
    for (int k = 0; k < 8; k++) worst = std::max(worst, ColourDistance(LensAt(img, w, h, 42, 45 * k + 10), Shown(synthetic::kSectorRgb[k])));
    return worst;
}

} // namespace

// A snapshot of every view, each printed and of the window's size, none
// blank; the plain view's shows each compass sector in its colour where the
// lens puts it, upright, the horizon ring white and the outside of the lens
// circle black. Bad arguments end the host with an error.
TEST(DemoHost, HeadlessRunWritesOneSnapshotPerModeAndRefusesBadArguments)
{
    const std::string dir = OutputDir() + "/demo_outdir";
    ASSERT_EQ(std::system(("mkdir -p '" + dir + "' && rm -f '" + dir + "'/*.png").c_str()), 0);
    std::string out;
    ASSERT_EQ(RunPlayer("--headless --frames 3 --window 640x360 --outdir '" + dir + "'", &out), 0) << out;
    for (int m = 0; m <= 10; m++) {
        const std::string path = dir + "/panoview-mode" + std::to_string(m) + ".png";
        EXPECT_NE(out.find(path), std::string::npos) << path << " not printed:\n" << out;
        Image img;
        ASSERT_TRUE(ReadPng(path, &img)) << path;
        EXPECT_EQ(img.width, 640);
        EXPECT_EQ(img.height, 360);
        std::set<uint32_t> colours;
        for (size_t i = 0; i < img.rgba.size(); i += 4) colours.insert(img.rgba[i] << 16 | img.rgba[i + 1] << 8 | img.rgba[i + 2]);
        EXPECT_GT(colours.size(), 8u) << "mode " << m << " is blank";
        if (m == 0) {
            EXPECT_LE(WorstSector(img, 1920, 1080), 12);
            EXPECT_TRUE(Near(img.At(20, 20), {0, 0, 0}, 4) && Near(img.At(620, 340), {0, 0, 0}, 4));
            EXPECT_LE(ColourDistance(LensAt(img, 1920, 1080, 80, 200), Shown(synthetic::kHorizonRgb)), 12);
        }
    }
    for (const char *args : {"--mode 11", "--input /nonexistent.yuv", "--window 12", "--bogus",
                             "--input /nonexistent.yuv --size 64x64"}) {
        out.clear();
        EXPECT_NE(RunPlayer(std::string("--headless --frames 1 ") + args, &out), 0) << args << "\n" << out;
    }
    EXPECT_NE(out.find("/nonexistent.yuv"), std::string::npos) << out;
}

// ------------------------------------------------------------ video files

namespace {

// The clips of the video tests, written once by the demo host itself from
// the built-in scene (no video file lives in the repository).
struct SceneClips {
    std::string h264, odd, bt709, cut;
    std::string error; // why they couldn't be made
};

const SceneClips &Clips()
{
    static const SceneClips clips = [] {
        SceneClips c;
        // Each test process writes its own: ctest runs tests side by side,
        // and one must not read a clip another is rewriting.
        static const std::string dir = OutputDir() + "/clips-" + std::to_string(getpid());
        std::system(("rm -rf '" + dir + "' && mkdir -p '" + dir + "'").c_str());
        std::atexit([] { std::system(("rm -rf '" + dir + "'").c_str()); });
        c.h264 = dir + "/scene.mp4";
        c.odd = dir + "/odd.mkv";
        c.bt709 = dir + "/bt709.mkv";
        c.cut = dir + "/cut.mp4";
        // Three seconds of H.264, BT.601 video range; an odd size in a
        // lossless codec.
        for (const std::string &args : {"--write-clip '" + c.h264 + "' --size 640x360 --frames 90",
                                        "--write-clip '" + c.odd + "' --codec ffv1 --size 321x181 --frames 10",
                                        "--write-clip '" + c.bt709 + "' --codec ffv1 --colour bt709 --size 640x360 --frames 10"}) {
            std::string out;
            if (RunPlayer(args, &out) != 0) c.error += args + ":\n" + out;
        }
        // The first half of the H.264 clip: its index promises three seconds.
        std::system(("head -c $(( $(stat -c %s '" + c.h264 + "') / 2 )) '" + c.h264 + "' > '" + c.cut + "'").c_str());
        return c;
    }();
    return clips;
}

} // namespace

// Decoded pictures reach the display as planar 4:2:0 with padded strides
// (as decoded), as semi-planar NV12, and at an odd size; each shows the
// scene's sectors in their colours where the lens puts them.
TEST(DemoHost, VideoFilesShowTheSceneInEveryLayout)
{
    const SceneClips &clips = Clips();
    ASSERT_TRUE(clips.error.empty()) << clips.error;
    struct Case {
        std::string clip, args;
        int width, height; // of the clip
        bool sceneColours; // false: decoded with the wrong matrix on purpose
    } cases[] = {
        {clips.h264, "--format i420", 640, 360, true},
        {clips.h264, "--format nv12", 640, 360, true},
        {clips.odd, "", 321, 181, true},
        {clips.bt709, "--format i420", 640, 360, true},   // the stream's BT.709 reaches the display
        {clips.bt709, "--colour bt601", 640, 360, false}, // BT.709 samples read as BT.601
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.clip + " " + c.args);
        const std::string png = OutputDir() + "/video_" + std::to_string(c.width) + "_" +
                                (c.args.empty() ? std::string("decoded") : c.args.substr(c.args.find(' ') + 1)) +
                                (c.clip == clips.bt709 ? "_bt709" : "") + ".png";
        std::remove(png.c_str());
        std::string out;
        ASSERT_EQ(RunPlayer("'" + c.clip + "' " + c.args + " --headless --frames 8 --mode 0 --window 640x360 --snapshot '" +
                              png + "'",
                          &out),
                  0)
            << out;
        EXPECT_NE(out.find(png), std::string::npos) << "the snapshot path isn't printed:\n" << out;
        Image img;
        ASSERT_TRUE(ReadPng(png, &img));
        // The clip writer paints the next even size.
        const int worst = WorstSector(img, c.width + (c.width & 1), c.height + (c.height & 1));
        EXPECT_TRUE(c.sceneColours ? worst <= 6 : worst > 8) << "sector colours " << worst << " away";
    }
}

// A file that doesn't exist and a clip cut short each end the demo host with
// one message naming the file and a non-zero exit code (not a crash). (A file
// that isn't video: TranscoderFailures, through the same reader.)
TEST(DemoHost, BadVideoFilesEndTheHostWithAMessage)
{
    const SceneClips &clips = Clips();
    ASSERT_TRUE(clips.error.empty()) << clips.error;
    struct Case {
        std::string file, says;
    } cases[] = {
        {OutputDir() + "/clips/missing.mp4", "No such file"},
        {clips.cut, "cut short"},
    };
    for (const Case &c : cases) {
        std::string out;
        EXPECT_EQ(RunPlayer("'" + c.file + "' --headless --frames 200 --mode 0 --window 320x180", &out), 1) << out;
        EXPECT_NE(out.find(c.file), std::string::npos) << out;
        EXPECT_NE(out.find(c.says), std::string::npos) << out;
    }
}

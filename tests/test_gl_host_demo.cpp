// The demo host as a user runs it: panoview-play --headless writes PNG
// snapshots of the built-in fisheye scene, or of video files it wrote of
// that scene first. The pictures are checked against the scene's
// documented geometry and colours, not against earlier output.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "HostHarness.h"
#include "Png.h"

using namespace harness;

namespace {

struct RunResult {
    int exitCode = -1;
    std::string output;
};

RunResult RunDemo(const std::string &args)
{
    RunResult r;
    std::string cmd = "'" + DemoHostPath() + "' --lib '" + std::string(PANOVIEW_LIB_PATH) + "' " + args + " 2>&1";
    FILE *p = popen(cmd.c_str(), "r");
    if (!p) return r;
    char buf[512];
    while (std::fgets(buf, sizeof buf, p)) r.output += buf;
    int status = pclose(p);
    r.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return r;
}

class DemoHost : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_NE(std::getenv("DISPLAY"), nullptr) << "the demo needs an X display (DISPLAY)";
        ASSERT_EQ(access(DemoHostPath().c_str(), X_OK), 0) << DemoHostPath() << " is not built";
    }
};

// Where direction (theta, phi) of the scene appears in a window of winW x
// winH that shows the whole frame (by default the built-in 1920x1080 one) in
// the plain view.
void ScenePointInWindow(double thetaDeg, double phiDeg, int winW, int winH, int *x, int *y,
                        const synthetic::LensFrame &lens = synthetic::LensFrame())
{
    Rect pic = LetterboxRect(winW, winH, lens.width, lens.height);
    const double kPi = 3.14159265358979323846;
    double r = lens.radius * thetaDeg / 90.0;
    double fx = lens.cx + r * std::cos(phiDeg * kPi / 180.0);
    double fy = lens.cy - r * std::sin(phiDeg * kPi / 180.0);
    *x = pic.left + int(fx * pic.width() / lens.width);
    *y = pic.top + int(fy * pic.height() / lens.height);
}

} // namespace

TEST_F(DemoHost, HeadlessSnapshotShowsTheRawLensPicture)
{
    const std::string png = OutputDir() + "/demo_mode0.png";
    std::remove(png.c_str());
    RunResult run = RunDemo("--headless --frames 3 --mode 0 --window 640x360 --snapshot '" + png + "'");
    ASSERT_EQ(run.exitCode, 0) << run.output;
    EXPECT_NE(run.output.find(png), std::string::npos) << "the snapshot path isn't printed:\n" << run.output;

    RgbaImage img;
    std::string error;
    ASSERT_TRUE(ReadPng(png, &img, &error)) << error;
    ASSERT_EQ(img.width, 640);
    ASSERT_EQ(img.height, 360);
    EXPECT_GT(DistinctColours(img), 8u) << "the snapshot is blank";

    // Each compass sector shows its colour where the lens geometry puts it
    // (away from rings, labels and the dot), and the PNG is upright: sector
    // 2 (yellow, phi 90..135) is above the centre, sector 6 below.
    for (int k = 0; k < 8; k++) {
        int x, y;
        ScenePointInWindow(42.0, 45.0 * k + 10.0, 640, 360, &x, &y);
        Rgb want = ExpectedRgb(synthetic::kSectorRgb[k]);
        Rgb got = img.At(x, y);
        EXPECT_LE(ColourDistance(got, want), 12) << "sector " << k << " at " << x << "," << y << " is " << int(got.r)
                                                 << "," << int(got.g) << "," << int(got.b);
    }
    // Outside the lens circle: black.
    EXPECT_LE(ColourDistance(img.At(20, 20), {0, 0, 0}), 4);
    EXPECT_LE(ColourDistance(img.At(620, 340), {0, 0, 0}), 4);
    // The white horizon ring at theta 80.
    int hx, hy;
    ScenePointInWindow(80.0, 200.0, 640, 360, &hx, &hy);
    EXPECT_LE(ColourDistance(img.At(hx, hy), ExpectedRgb(synthetic::kHorizonRgb)), 12);
}

TEST_F(DemoHost, HeadlessRunWritesOneSnapshotPerDefaultMode)
{
    const std::string dir = OutputDir() + "/demo_outdir";
    ASSERT_EQ(std::system(("mkdir -p '" + dir + "'").c_str()), 0);
    for (int m = 0; m < 3; m++) std::remove((dir + "/panoview-mode" + std::to_string(m) + ".png").c_str());
    RunResult run = RunDemo("--headless --frames 3 --window 320x180 --outdir '" + dir + "'");
    ASSERT_EQ(run.exitCode, 0) << run.output;
    for (int m = 0; m < 3; m++) {
        std::string path = dir + "/panoview-mode" + std::to_string(m) + ".png";
        EXPECT_NE(run.output.find(path), std::string::npos) << path << " not printed:\n" << run.output;
        RgbaImage img;
        ASSERT_TRUE(ReadPng(path, &img)) << path;
        EXPECT_EQ(img.width, 320);
        EXPECT_EQ(img.height, 180);
    }
}

TEST_F(DemoHost, BadCommandLinesAreRefused)
{
    for (const char *args : {"--mode 11", "--input /nonexistent.yuv", "--window 12", "--bogus"}) {
        RunResult run = RunDemo(std::string("--headless --frames 1 ") + args);
        EXPECT_NE(run.exitCode, 0) << args << "\n" << run.output;
    }
    RunResult run = RunDemo("--headless --frames 1 --input /nonexistent.yuv --size 64x64");
    EXPECT_NE(run.exitCode, 0) << run.output;
    EXPECT_NE(run.output.find("/nonexistent.yuv"), std::string::npos) << run.output;
}

// ------------------------------------------------------------ video files

namespace {

// The clips of the video tests, written once by the demo host itself from
// the built-in scene (no video file lives in the repository).
struct SceneClips {
    std::string h264, odd, cut, text;
    std::string error; // why they couldn't be made
};

const SceneClips &Clips()
{
    static const SceneClips clips = [] {
        SceneClips c;
        const std::string dir = OutputDir() + "/clips";
        std::system(("mkdir -p '" + dir + "'").c_str());
        c.h264 = dir + "/scene.mp4";
        c.odd = dir + "/odd.mkv";
        c.cut = dir + "/cut.mp4";
        c.text = dir + "/notes.txt";
        // Three seconds of H.264, BT.601 video range; an odd size in a
        // lossless codec.
        for (const std::string &args : {"--write-clip '" + c.h264 + "' --size 640x360 --frames 90",
                                        "--write-clip '" + c.odd + "' --codec ffv1 --size 321x181 --frames 10"}) {
            RunResult r = RunDemo(args);
            if (r.exitCode != 0) c.error += args + ":\n" + r.output;
        }
        // The first half of the H.264 clip: its index promises three seconds.
        std::system(("head -c $(( $(stat -c %s '" + c.h264 + "') / 2 )) '" + c.h264 + "' > '" + c.cut + "'").c_str());
        std::system(("echo 'Panoview notes: not a video' > '" + c.text + "'").c_str());
        return c;
    }();
    return clips;
}

} // namespace

// Decoded pictures reach the display as planar 4:2:0 with padded strides
// (as decoded), as semi-planar NV12, and at an odd size; each shows the
// scene's sectors in their colours where the lens puts them.
TEST_F(DemoHost, VideoFilesShowTheSceneInEveryLayout)
{
    const SceneClips &clips = Clips();
    ASSERT_TRUE(clips.error.empty()) << clips.error;
    struct Case {
        std::string clip, args;
        int width, height; // of the clip
    } cases[] = {
        {clips.h264, "--format i420", 640, 360},
        {clips.h264, "--format nv12", 640, 360},
        {clips.odd, "", 321, 181},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.clip + " " + c.args);
        const std::string png = OutputDir() + "/video_" + std::to_string(c.width) + "_" +
                                (c.args.empty() ? std::string("decoded") : c.args.substr(9)) + ".png";
        std::remove(png.c_str());
        RunResult run = RunDemo("'" + c.clip + "' " + c.args +
                                " --headless --frames 8 --mode 0 --window 640x360 --snapshot '" + png + "'");
        ASSERT_EQ(run.exitCode, 0) << run.output;
        RgbaImage img;
        ASSERT_TRUE(ReadPng(png, &img));
        synthetic::LensFrame lens;
        lens.width = c.width + (c.width & 1); // the clip writer paints the next even size
        lens.height = c.height + (c.height & 1);
        lens.cx = lens.width / 2;
        lens.cy = lens.height / 2;
        lens.radius = lens.height / 2;
        for (int k = 0; k < 8; k++) {
            int x, y;
            ScenePointInWindow(42.0, 45.0 * k + 10.0, 640, 360, &x, &y, lens);
            Rgb want = ExpectedRgb(synthetic::kSectorRgb[k]);
            Rgb got = img.At(x, y);
            EXPECT_LE(ColourDistance(got, want), 6)
                << "sector " << k << " at " << x << "," << y << " is " << int(got.r) << "," << int(got.g) << ","
                << int(got.b);
        }
    }
}

// A file that doesn't exist, one that isn't video and a clip cut short each
// end the demo host with one message naming the file and a non-zero exit
// code (not a crash).
TEST_F(DemoHost, BadVideoFilesEndTheHostWithAMessage)
{
    const SceneClips &clips = Clips();
    ASSERT_TRUE(clips.error.empty()) << clips.error;
    struct Case {
        std::string file, says;
    } cases[] = {
        {OutputDir() + "/clips/missing.mp4", "No such file"},
        {clips.text, "not a video"},
        {clips.cut, "cut short"},
    };
    for (const Case &c : cases) {
        RunResult run = RunDemo("'" + c.file + "' --headless --frames 200 --mode 0 --window 320x180");
        EXPECT_EQ(run.exitCode, 1) << run.output;
        EXPECT_NE(run.output.find(c.file), std::string::npos) << run.output;
        EXPECT_NE(run.output.find(c.says), std::string::npos) << run.output;
    }
}

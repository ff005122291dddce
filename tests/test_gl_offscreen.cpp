// Displays without a window, and pictures handed to the host. The suite runs
// with DISPLAY unset (CTest's environment): every display here draws through
// EGL's surfaceless platform into a framebuffer, with no X server at all.
#include <gtest/gtest.h>

#include <dirent.h>

#include <cstdlib>
#include <cstring>

#include "Harness.h"
#include "VideoSource.h"

using namespace harness;

namespace {

const uint32_t kWait = 10000; // ms a test waits for a frame at most; no test asserts a time

// A display drawing off-screen at w x h in the given view, Init done.
struct Offscreen {
    Display display;
    int32_t initResult = -1;
    Offscreen(int w, int h, uint32_t mode, uint32_t yuvMatrix = 0)
    {
        if (!display.ok()) return;
        const uint32_t size[2] = {uint32_t(w), uint32_t(h)};
        EXPECT_EQ(display->SetDisplayParam(ZT5_CFG_DISPLAY_OFFSCREEN_SIZE, const_cast<uint32_t *>(size)), ZT5_OK);
        EXPECT_EQ(display.SetU32(ZT5_CFG_DISPLAY_USE_OPENGLES, 1), ZT5_OK);
        EXPECT_EQ(display.SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, mode), ZT5_OK);
        if (yuvMatrix) {
            EXPECT_EQ(display.SetU32(ZT5_CFG_DISPLAY_YUV_MATRIX, yuvMatrix), ZT5_OK);
        }
        // No window, and rectangles the display replaces by its own size.
        initResult = display.Init(0, 0, 0);
    }
    // The picture of the frame of this ordinal (0: as it stands).
    int32_t Read(uint32_t layout, uint32_t ordinal, std::vector<uint8_t> *out, ZT5Picture *rec)
    {
        *rec = {};
        rec->pBuffer = out->data();
        rec->dwSize = uint32_t(out->size());
        rec->dwCSType = layout;
        rec->dwFrameOrdinal = ordinal;
        rec->dwWaitMs = kWait;
        return display->GetDisplayParam(ZT5_CFG_DISPLAY_PICTURE, rec);
    }
    Image ReadRgba(int w, int h, uint32_t ordinal, ZT5Picture *rec)
    {
        std::vector<uint8_t> px(size_t(w) * h * 4);
        Image img;
        const int32_t res = Read(ZT5_SNAPSHOT_RGBA, ordinal, &px, rec);
        EXPECT_EQ(res, ZT5_OK) << "picture of frame " << ordinal;
        if (res != ZT5_OK) return img;
        img.width = int(rec->dwWidth);
        img.height = int(rec->dwHeight);
        img.rgba = std::move(px);
        return img;
    }
};

// The frames posted so far: the ordinal of the newest.
uint32_t Posted(Display &d) { return d.Stats().dwFramesPosted; }

// How far an I420 picture is from an RGBA one of the same size, as Y'CbCr of
// the given encoding: the largest luma difference per pixel, and the largest
// chroma difference per 2x2 block (against its pixels' mean colour).
void Worst(const Image &rgb, const uint8_t *yuv, const synthetic::YuvEncoding &enc, int *worstY, int *worstC)
{
    const int w = rgb.width, h = rgb.height, cw = (w + 1) / 2, ch = (h + 1) / 2;
    const uint8_t *U = yuv + size_t(w) * h, *V = U + size_t(cw) * ch;
    for (int y = 0; y < h; y++)
        for (int x = 0; x < w; x++) {
            uint8_t ey, eu, ev;
            synthetic::RgbToYuv(rgb.At(x, y), &ey, &eu, &ev, enc);
            *worstY = std::max(*worstY, std::abs(int(ey) - int(yuv[size_t(y) * w + x])));
        }
    for (int j = 0; j < ch; j++)
        for (int i = 0; i < cw; i++) {
            int sum[3] = {0, 0, 0}, n = 0;
            for (int dy = 0; dy < 2; dy++)
                for (int dx = 0; dx < 2; dx++) {
                    const Rgb p = rgb.At(std::min(2 * i + dx, w - 1), std::min(2 * j + dy, h - 1));
                    sum[0] += p.r, sum[1] += p.g, sum[2] += p.b, n++;
                }
            const Rgb mean = {uint8_t((sum[0] + n / 2) / n), uint8_t((sum[1] + n / 2) / n),
                              uint8_t((sum[2] + n / 2) / n)};
            uint8_t ey, eu, ev;
            synthetic::RgbToYuv(mean, &ey, &eu, &ev, enc);
            *worstC = std::max({*worstC, std::abs(int(eu) - int(U[size_t(j) * cw + i])),
                                std::abs(int(ev) - int(V[size_t(j) * cw + i]))});
        }
}

class OffscreenDisplay : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(std::getenv("DISPLAY"), nullptr) << "the suite runs with DISPLAY unset"; }
};

} // namespace

// Every view draws off-screen: the picture shows the fisheye scene's
// colours, not the background alone.
class OffscreenViews : public OffscreenDisplay, public ::testing::WithParamInterface<int> {
};

TEST_P(OffscreenViews, DrawTheScene)
{
    const int mode = GetParam();
    Offscreen o(400, 240, uint32_t(mode));
    ASSERT_EQ(o.initResult, ZT5_OK);
    Frame f = SceneFrame(0);
    ASSERT_EQ(o.display.Push(f), ZT5_OK);
    ZT5Picture rec;
    Image img = o.ReadRgba(400, 240, Posted(o.display), &rec);
    ASSERT_EQ(img.width, 400);
    SaveShot(img, "_mode" + std::to_string(mode));
    long sectors = 0;
    for (int y = 0; y < img.height; y += 4)
        for (int x = 0; x < img.width; x += 4) sectors += Sector(img.At(x, y), 40) >= 0;
    EXPECT_GT(sectors, 200) << "no scene colours in view " << mode;
}

INSTANTIATE_TEST_SUITE_P(EveryView, OffscreenViews, ::testing::Range(0, 11));

// I420 converted on the GPU matches the RGBA picture of the same draw within
// rounding: luma per pixel, chroma per 2x2 block (the mean of its pixels),
// for the stream's matrices and for odd sizes.
struct ConversionCase {
    int width, height;
    uint32_t matrix;
};

class PictureConversion : public OffscreenDisplay, public ::testing::WithParamInterface<ConversionCase> {
};

TEST_P(PictureConversion, I420MatchesTheRgbaPictureWithinRounding)
{
    const ConversionCase c = GetParam();
    Offscreen o(c.width, c.height, 2, c.matrix);
    ASSERT_EQ(o.initResult, ZT5_OK);
    Frame f = SceneFrame(0);
    ASSERT_EQ(o.display.Push(f), ZT5_OK);
    ZT5Picture rec;
    Image rgb = o.ReadRgba(c.width, c.height, Posted(o.display), &rec);
    ASSERT_EQ(rgb.width, c.width);
    std::vector<uint8_t> yuv(FrameBytes(ZT5_FRAME_CS_I420, c.width, c.height));
    ASSERT_EQ(o.Read(ZT5_FRAME_CS_I420, 0, &yuv, &rec), ZT5_OK);
    EXPECT_EQ(rec.dwSize, yuv.size());
    EXPECT_EQ(int(rec.dwWidth), c.width);
    EXPECT_EQ(int(rec.dwHeight), c.height);

    int worstY = 0, worstC = 0;
    Worst(rgb, yuv.data(), EncodingOf(c.matrix), &worstY, &worstC);
    EXPECT_LE(worstY, 1);
    EXPECT_LE(worstC, 1);
}

INSTANTIATE_TEST_SUITE_P(Layouts, PictureConversion,
                         ::testing::Values(ConversionCase{320, 180, 0},
                                           ConversionCase{321, 179, 0},
                                           ConversionCase{256, 144, ZT5_YUV_MATRIX_BT709 | ZT5_YUV_RANGE_FULL},
                                           ConversionCase{17, 16, ZT5_YUV_MATRIX_BT2020}));

// Drawn with no window system at all, a picture asked for by frame ordinal
// is of that frame: each frame is painted in colours of its own, top half
// and bottom half, and each ordinal read gives them, top-down, the same
// pixels as the snapshot. An ordinal never posted runs into the time-out.
TEST_F(OffscreenDisplay, WaitingForAFrameOrdinalGivesThatFrame)
{
    Offscreen o(160, 90, 0);
    ASSERT_EQ(o.initResult, ZT5_OK);
    const Rgb colours[] = {{220, 30, 30}, {30, 220, 30}, {30, 30, 220}, {220, 220, 30}, {30, 220, 220}};
    Frame f(160, 90);
    for (uint32_t n = 1; n <= 5; n++) {
        SCOPED_TRACE("frame " + std::to_string(n));
        const Rgb top = colours[n - 1], bottom = colours[n % 5];
        f.Fill(0, 0, 160, 44, top);
        f.Fill(0, 44, 160, 90, bottom);
        ASSERT_EQ(o.display.Push(f), ZT5_OK);
        ASSERT_EQ(Posted(o.display), n);
        ZT5Picture rec;
        Image img = o.ReadRgba(160, 90, n, &rec);
        ASSERT_EQ(img.width, 160);
        ASSERT_EQ(img.height, 90);
        EXPECT_EQ(rec.dwSize, 160u * 90 * 4);
        EXPECT_EQ(rec.dwFrameOrdinal, n);
        EXPECT_LE(ColourDistance(img.At(80, 20), Shown(top)), 3) << Str(img.At(80, 20));
        EXPECT_LE(ColourDistance(img.At(80, 70), Shown(bottom)), 3) << Str(img.At(80, 70));
        Image snap;
        ASSERT_TRUE(o.display.Snapshot(&snap));
        EXPECT_EQ(snap.rgba, img.rgba) << "the snapshot and the picture are the same pixels";
    }
    std::vector<uint8_t> px(160 * 90 * 4, 0x5a);
    ZT5Picture rec;
    o.Read(ZT5_SNAPSHOT_RGBA, 7, &px, &rec);
    rec.dwWaitMs = 50;
    EXPECT_EQ(o.display->GetDisplayParam(ZT5_CFG_DISPLAY_PICTURE, &rec), ZT5_ERR_TIMEOUT);
    EXPECT_EQ(px[0], 0x5a) << "a time-out writes nothing";
}

// A display with neither a window nor an off-screen size has nowhere to
// draw: its frames are refused as before, and it has no picture. Sizes
// outside 16..8192 are refused and the one stored stays.
TEST_F(OffscreenDisplay, NeedsASizeWhenItHasNoWindowAndChecksIt)
{
    Display d;
    ASSERT_TRUE(d.ok());
    ASSERT_EQ(d.SetU32(ZT5_CFG_DISPLAY_USE_OPENGLES, 1), ZT5_OK);
    ASSERT_EQ(d.Init(0, 64, 48), ZT5_OK);
    Frame f(64, 48);
    EXPECT_EQ(d.Push(f), ZT5_ERR_NOT_READY);
    std::vector<uint8_t> px(64 * 48 * 4);
    ZT5Picture rec = {px.data(), uint32_t(px.size()), ZT5_SNAPSHOT_RGBA, 0, 0, 0, 20};
    EXPECT_EQ(d->GetDisplayParam(ZT5_CFG_DISPLAY_PICTURE, &rec), ZT5_ERR_TIMEOUT);
    const struct {
        uint32_t w, h;
        int32_t result;
    } cases[] = {{16, 16, ZT5_OK},   {8192, 16, ZT5_OK}, {15, 100, ZT5_ERR_INVALID_PARAM},
                 {100, 15, ZT5_ERR_INVALID_PARAM}, {8193, 100, ZT5_ERR_INVALID_PARAM}, {0, 0, ZT5_ERR_INVALID_PARAM}};
    for (const auto &c : cases) {
        uint32_t kept[2] = {640, 360}, size[2] = {c.w, c.h}, now[2] = {0, 0};
        ASSERT_EQ(d->SetDisplayParam(ZT5_CFG_DISPLAY_OFFSCREEN_SIZE, kept), ZT5_OK);
        EXPECT_EQ(d->SetDisplayParam(ZT5_CFG_DISPLAY_OFFSCREEN_SIZE, size), c.result) << c.w << "x" << c.h;
        ASSERT_EQ(d->GetDisplayParam(ZT5_CFG_DISPLAY_OFFSCREEN_SIZE, now), ZT5_OK);
        EXPECT_EQ(now[0], c.result == ZT5_OK ? c.w : 640u) << c.w << "x" << c.h;
        EXPECT_EQ(now[1], c.result == ZT5_OK ? c.h : 360u) << c.w << "x" << c.h;
    }
}

// Records the library can't fill are refused with 2 and nothing is written
// into the buffer; a buffer too small learns the size it needs.
TEST_F(OffscreenDisplay, RefusesRecordsItCannotFill)
{
    Offscreen o(64, 48, 0);
    ASSERT_EQ(o.initResult, ZT5_OK);
    Frame f(64, 48, {90, 90, 90});
    ASSERT_EQ(o.display.Push(f), ZT5_OK);
    EXPECT_EQ(o.display->GetDisplayParam(ZT5_CFG_DISPLAY_PICTURE, nullptr), ZT5_ERR_INVALID_PARAM);

    struct Case {
        const char *what;
        size_t bytes;
        bool nullBuffer;
        uint32_t layout;
    } cases[] = {{"null buffer", 64 * 48 * 4, true, ZT5_SNAPSHOT_RGBA},
                 {"RGBA one byte short", 64 * 48 * 4 - 1, false, ZT5_SNAPSHOT_RGBA},
                 {"I420 one byte short", FrameBytes(ZT5_FRAME_CS_I420, 64, 48) - 1, false, ZT5_FRAME_CS_I420},
                 {"another layout", 64 * 48 * 4, false, ZT5_FRAME_CS_NV12}};
    for (const Case &c : cases) {
        std::vector<uint8_t> px(c.bytes + 1, 0xa5);
        ZT5Picture rec = {};
        rec.pBuffer = c.nullBuffer ? nullptr : px.data();
        rec.dwSize = uint32_t(c.bytes);
        rec.dwCSType = c.layout;
        rec.dwFrameOrdinal = 1;
        rec.dwWaitMs = kWait;
        EXPECT_EQ(o.display->GetDisplayParam(ZT5_CFG_DISPLAY_PICTURE, &rec), ZT5_ERR_INVALID_PARAM) << c.what;
        EXPECT_EQ(std::count(px.begin(), px.end(), 0xa5), long(px.size())) << c.what << ": the buffer was written";
        if (!c.nullBuffer && c.layout != ZT5_FRAME_CS_NV12) {
            EXPECT_EQ(rec.dwSize, uint32_t(c.bytes + 1)) << c.what << ": the size needed";
        }
    }
}

// Overlays and the background colour reach an off-screen picture: a 4:3
// frame in a 16:9 picture stands on bars of the background colour, and a
// face (gender 0) gets its red rectangle around it.
TEST_F(OffscreenDisplay, DrawsOverlaysAndTheBackgroundColour)
{
    Offscreen o(320, 180, 0);
    ASSERT_EQ(o.initResult, ZT5_OK);
    ASSERT_EQ(o.display.SetU32(ZT5_CFG_DISPLAY_BACK_COLOR, 0x2050a0), ZT5_OK);
    ASSERT_EQ(o.display.SetU32(ZT5_CFG_DISPLAY_FACE_OPTION, 1), ZT5_OK);
    ZT5FaceRect face = {1, 0, 30, 100, 80, 40, 40, ""};
    ZT5FaceList list = {1, 0, &face};
    ASSERT_EQ(o.display->SetDisplayParam(ZT5_CFG_DISPLAY_FACE_LIST, &list), ZT5_OK);
    Frame f(240, 180, {128, 128, 128});
    ASSERT_EQ(o.display.Push(f), ZT5_OK);
    ZT5Picture rec;
    const Image img = o.ReadRgba(320, 180, Posted(o.display), &rec);
    ASSERT_FALSE(img.empty());
    SaveShot(img);
    EXPECT_LE(ColourDistance(img.At(5, 90), Rgb{0x20, 0x50, 0xa0}), 2) << Str(img.At(5, 90));
    EXPECT_LE(ColourDistance(img.At(315, 90), Rgb{0x20, 0x50, 0xa0}), 2) << Str(img.At(315, 90));
    const long red = CountNear(img, Rect{0, 0, 320, 180}, Rgb{255, 0, 0}, 60);
    EXPECT_GT(red, 100) << "no face rectangle";
}

// A cruise keeps an off-screen view moving while no frame comes (once
// frames have stopped for a second). (Drags and saved states off-screen:
// Transcoder.AFrameOfTheOutputIsTheSnapshotOfTheSameView.)
TEST_F(OffscreenDisplay, CruiseMovesTheViewWithoutFrames)
{
    Frame f = SceneFrame(0);
    Offscreen o(320, 180, 2);
    ASSERT_EQ(o.initResult, ZT5_OK);
    ASSERT_EQ(o.display.Push(f), ZT5_OK);
    ZT5Picture rec;
    const Image before = o.ReadRgba(320, 180, 1, &rec);
    ASSERT_EQ(o.display.SetU32(ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, 1), ZT5_OK);
    EXPECT_GT(o.display.DrawsOver(1500), 5u) << "a cruise with no frame coming stands still";
    const Image cruised = o.ReadRgba(320, 180, 0, &rec);
    EXPECT_NE(cruised.rgba, before.rgba) << "the cruise didn't turn the view";
}

// A display with a window hands over its picture too (a recorder of what
// the operator sees): the same pixels as its snapshot, in both layouts.
// This one runs with the X display the rest of the suite does without. An
// off-screen size given to a display with a window changes nothing.
TEST(WindowPicture, IsWhatTheWindowShows)
{
    Rig rig(320, 180, 3);
    ASSERT_TRUE(rig.ok());
    uint32_t ignored[2] = {64, 48};
    ASSERT_EQ(rig.display->SetDisplayParam(ZT5_CFG_DISPLAY_OFFSCREEN_SIZE, ignored), ZT5_OK);
    ASSERT_EQ(rig.Init(), ZT5_OK);
    Frame f = SceneFrame(0);
    ASSERT_EQ(rig.display.Push(f), ZT5_OK);
    std::vector<uint8_t> px(320 * 180 * 4), yuv(FrameBytes(ZT5_FRAME_CS_I420, 320, 180));
    ZT5Picture rec = {px.data(), uint32_t(px.size()), ZT5_SNAPSHOT_RGBA, 0, 0, Posted(rig.display), kWait};
    ASSERT_EQ(rig.display->GetDisplayParam(ZT5_CFG_DISPLAY_PICTURE, &rec), ZT5_OK);
    ASSERT_EQ(rec.dwWidth, 320u);
    ASSERT_EQ(rec.dwHeight, 180u);
    Image snap;
    ASSERT_TRUE(rig.display.Snapshot(&snap));
    EXPECT_EQ(snap.rgba, px);
    ZT5Picture yrec = {yuv.data(), uint32_t(yuv.size()), ZT5_FRAME_CS_I420, 0, 0, 0, kWait};
    ASSERT_EQ(rig.display->GetDisplayParam(ZT5_CFG_DISPLAY_PICTURE, &yrec), ZT5_OK);
    uint8_t ey, eu, ev;
    synthetic::RgbToYuv(snap.At(100, 50), &ey, &eu, &ev);
    EXPECT_LE(std::abs(int(ey) - int(yuv[50 * 320 + 100])), 1);
}

// ------------------------------------------------------------ the transcoder

namespace {

// Every picture of a video file, decoded once through, as tight I420 with
// its timestamp in seconds.
struct Decoded {
    int width = 0, height = 0;
    std::vector<std::vector<uint8_t>> pictures;
    std::vector<double> pts;
};

bool Decode(const std::string &path, Decoded *out, std::string *error)
{
    VideoSource src;
    src.PlayOnce();
    if (!src.Open(path, PictureLayout::kI420, error)) return false;
    Picture p;
    while (src.Next(&p, error)) {
        out->width = p.width, out->height = p.height;
        const int cw = (p.width + 1) / 2, ch = (p.height + 1) / 2;
        std::vector<uint8_t> tight(size_t(p.width) * p.height + 2 * size_t(cw) * ch);
        uint8_t *dst = tight.data();
        for (int plane = 0; plane < 3; plane++) {
            const int w = plane ? cw : p.width, h = plane ? ch : p.height;
            for (int y = 0; y < h; y++, dst += w) std::memcpy(dst, p.planes[plane] + size_t(y) * p.strides[plane], size_t(w));
        }
        out->pictures.push_back(std::move(tight));
        out->pts.push_back(p.pts);
    }
    return error->empty();
}

// Files in a directory, hidden ones too.
std::vector<std::string> Files(const std::string &dir)
{
    std::vector<std::string> names;
    if (DIR *d = opendir(dir.c_str())) {
        while (dirent *e = readdir(d))
            if (std::strcmp(e->d_name, ".") && std::strcmp(e->d_name, "..")) names.push_back(e->d_name);
        closedir(d);
    }
    std::sort(names.begin(), names.end());
    return names;
}

// A fisheye clip of the built-in scene, 480x480 at 25 frames a second, made
// once for the suite, and a directory of its own for each test's outputs.
class Transcoder : public OffscreenDisplay {
protected:
    static constexpr int kFrames = 12;
    static std::string Clip()
    {
        static const std::string clip = [] {
            const std::string path = OutputDir() + "/offscreen_scene.mp4";
            std::string out;
            EXPECT_EQ(RunPlayer("--write-clip '" + path + "' --size 480x480 --frames " + std::to_string(kFrames) +
                                  " --fps 25",
                              &out),
                      0)
                << out;
            return path;
        }();
        return clip;
    }
    void SetUp() override
    {
        OffscreenDisplay::SetUp();
        m_dir = OutputDir() + "/" + ::testing::UnitTest::GetInstance()->current_test_info()->name();
        ASSERT_EQ(std::system(("rm -rf '" + m_dir + "' && mkdir -p '" + m_dir + "'").c_str()), 0);
    }
    std::string m_dir;
};

} // namespace

// A frame of a lossless output is the picture an off-screen display of the
// same view and size shows for the same input frame: its snapshot, within
// the rounding of 4:2:0. The view is one turned by a drag, its state saved
// to a file as the window's k key saves it and given with --view-state,
// which also names the view.
TEST_F(Transcoder, AFrameOfTheOutputIsTheSnapshotOfTheSameView)
{
    std::string out, error;
    Decoded in, d;
    ASSERT_TRUE(Decode(Clip(), &in, &error)) << error;
    Offscreen o(320, 240, 4);
    ASSERT_EQ(o.initResult, ZT5_OK);
    ZT5FishEyeParam lens = {5000, 5000, 5000, 5000}; // the transcoder's: the middle, as tall as the picture
    ASSERT_EQ(o.display->SetDisplayParam(ZT5_CFG_COMMON_FISHEYE_PARAM, &lens), ZT5_OK);
    Frame f(in.width, in.height);
    f.data = in.pictures[0];
    ASSERT_EQ(o.display.Push(f), ZT5_OK);
    ZT5Picture rec;
    const Image before = o.ReadRgba(320, 240, Posted(o.display), &rec);
    ASSERT_EQ(o.display.Drag(240, 160, 200, 140), ZT5_OK);
    ASSERT_TRUE(o.display.Quiet());
    const std::string state = m_dir + "/turned.state";
    const FECurrentStatusData saved = o.display.Saved();
    FILE *file = std::fopen(state.c_str(), "wb");
    ASSERT_NE(file, nullptr);
    ASSERT_EQ(std::fwrite(&saved, sizeof(saved), 1, file), 1u);
    std::fclose(file);

    const int k = kFrames / 2;
    f.data = in.pictures[k];
    ASSERT_EQ(o.display.Push(f), ZT5_OK);
    o.ReadRgba(320, 240, Posted(o.display), &rec);
    Image snap;
    ASSERT_TRUE(o.display.Snapshot(&snap));
    SaveShot(snap, "_snapshot");
    ASSERT_NE(snap.rgba, before.rgba) << "the drag didn't turn the view";

    const std::string a = m_dir + "/map.mkv";
    ASSERT_EQ(RunPlayer("'" + Clip() + "' --view-state '" + state + "' --output '" + a + ":size=320x240,codec=ffv1'", &out),
              0)
        << out;
    ASSERT_TRUE(Decode(a, &d, &error)) << error;
    ASSERT_EQ(d.pictures.size(), in.pictures.size());
    int worstY = 0, worstC = 0;
    Worst(snap, d.pictures[k].data(), synthetic::kBt601, &worstY, &worstC);
    EXPECT_LE(worstY, 1);
    EXPECT_LE(worstC, 1);
}

// Outputs of one decode each have the input's frame count and timestamps,
// and the size asked for, their own or the run's; nothing else is left in
// the directory. A cruising view is drawn once a frame, its motion stepping
// with the frames: the same input gives the same output, however fast each
// run goes. Two lossless runs are compared picture by picture, and the view
// did turn against the still one.
TEST_F(Transcoder, OutputsKeepTheInputsTimingAndACruiseIsTheSameEveryRun)
{
    std::string out, error;
    const std::string request = ":mode=2,size=320x180,codec=ffv1", clip = "'" + Clip() + "' --output '" + m_dir;
    ASSERT_EQ(RunPlayer(clip + "/run0.mkv" + request + ",cruise' --output '" + m_dir + "/panes.mp4:mode=3,cruise' --size 256x144", &out), 0) << out;
    ASSERT_EQ(RunPlayer(clip + "/run1.mkv" + request + ",cruise' --output '" + m_dir + "/still.mkv" + request + "'", &out), 0) << out;
    EXPECT_EQ(Files(m_dir), (std::vector<std::string>{"panes.mp4", "run0.mkv", "run1.mkv", "still.mkv"})) << "files besides the outputs";
    Decoded in;
    ASSERT_TRUE(Decode(Clip(), &in, &error)) << error;
    ASSERT_EQ(int(in.pictures.size()), kFrames);
    struct Output {
        std::string name;
        int width, height;
        Decoded d;
    } outputs[] = {{"run0.mkv", 320, 180, {}}, {"run1.mkv", 320, 180, {}}, {"still.mkv", 320, 180, {}}, {"panes.mp4", 256, 144, {}}};
    for (Output &o : outputs) {
        SCOPED_TRACE(o.name);
        ASSERT_TRUE(Decode(m_dir + "/" + o.name, &o.d, &error)) << error;
        ASSERT_EQ(o.d.pictures.size(), in.pictures.size());
        EXPECT_EQ(o.d.width, o.width);
        EXPECT_EQ(o.d.height, o.height);
        for (size_t i = 0; i < o.d.pts.size(); i++) EXPECT_NEAR(o.d.pts[i], in.pts[i], 0.001) << "picture " << i;
    }
    for (size_t i = 0; i < in.pictures.size(); i++)
        EXPECT_TRUE(outputs[0].d.pictures[i] == outputs[1].d.pictures[i]) << "picture " << i << " differs between runs";
    EXPECT_FALSE(outputs[0].d.pictures.back() == outputs[2].d.pictures.back()) << "the cruise didn't turn the view";
}

// Whatever goes wrong: one line, exit code 1, and nothing left in the
// output's directory, under the output's name or any other.
struct FailureCase {
    const char *what;
    const char *input;  // relative to the test's directory; "@clip" for the scene clip
    const char *output; // relative to the test's directory
    const char *says;
};

class TranscoderFailures : public Transcoder, public ::testing::WithParamInterface<FailureCase> {
};

TEST_P(TranscoderFailures, SayOneThingAndLeaveNoFile)
{
    const FailureCase c = GetParam();
    std::string input = c.input == std::string("@clip") ? Clip() : m_dir + "/" + c.input;
    if (c.input == std::string("notes.mp4")) {
        FILE *f = std::fopen(input.c_str(), "w");
        ASSERT_NE(f, nullptr);
        std::fputs("not a video\n", f);
        std::fclose(f);
    }
    const std::vector<std::string> before = Files(m_dir);
    std::string out;
    EXPECT_EQ(RunPlayer("'" + input + "' --output '" + m_dir + "/" + c.output + "'", &out), 1) << c.what << "\n" << out;
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 1) << c.what << ": not one line\n" << out;
    EXPECT_NE(out.find(c.says), std::string::npos) << c.what << "\n" << out;
    EXPECT_EQ(Files(m_dir), before) << c.what << ": a file was left";
}

INSTANTIATE_TEST_SUITE_P(
    Inputs, TranscoderFailures,
    ::testing::Values(FailureCase{"missing input", "nothing.mp4", "out.mp4", "nothing.mp4: No such file"},
                      FailureCase{"input that isn't video", "notes.mp4", "out.mp4", "notes.mp4 is not a video"},
                      FailureCase{"unwritable output", "@clip", "no/such/dir/out.mp4", "cannot write"},
                      FailureCase{"odd size", "@clip", "out.mp4:size=321x180", "even"}));

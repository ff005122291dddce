// The frame copy of the display manager: what the render object receives for
// plain frames, lens squares and decoder-aligned frames, and what a host's
// buffer receives. Every expectation is an independently computed cut of a
// patterned frame whose planes live in separate, exactly sized blocks, so
// that any read past a plane is caught under AddressSanitizer.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "DisplayContext.h"
#include "MDisplayMgr.h"
#include "Png.h"
#include "RecordingRenderer.h"
#include "SyntheticScene.h"

namespace {

const MWindowHandle kWindow = 0x3c00005;

// Distinct bytes for every (plane, column, row), so a shifted row or column
// can't match by accident.
unsigned char Pattern(int plane, int x, int y)
{
    uint32_t h = uint32_t(x) * 0x9E3779B1u ^ uint32_t(y) * 0x85EBCA77u ^ uint32_t(plane + 1) * 0xC2B2AE3Du;
    h ^= h >> 15;
    h *= 0x2C1B3C6Du;
    h ^= h >> 12;
    return (unsigned char)h;
}

// A planar 4:2:0 frame laid out as the front end points at it: quarter
// planes of (w*h)/4 bytes, chroma rows w/2 long, unless a stride is given.
struct Frame {
    int w, h;
    size_t yStride, uvStride;
    std::vector<unsigned char> y, u, v;
    unsigned char *planes[3];
    MLong strides[3];

    Frame(int width, int height, size_t yPitch = 0, size_t uvPitch = 0)
        : w(width), h(height), yStride(yPitch ? yPitch : width), uvStride(uvPitch ? uvPitch : width / 2)
    {
        y.assign(yStride * height, 0xEE);
        size_t chromaBytes = uvPitch ? uvStride * (height / 2) : size_t(width) * height / 4;
        u.assign(chromaBytes, 0xEE);
        v.assign(chromaBytes, 0xEE);
        for (int r = 0; r < h; r++)
            for (int c = 0; c < w; c++) y[r * yStride + c] = Pattern(0, c, r);
        for (int r = 0; r < h / 2; r++)
            for (int c = 0; c < w / 2; c++) {
                if (r * uvStride + c >= u.size()) continue;
                u[r * uvStride + c] = Pattern(1, c, r);
                v[r * uvStride + c] = Pattern(2, c, r);
            }
        planes[0] = y.data();
        planes[1] = u.data();
        planes[2] = v.data();
        strides[0] = (MLong)yStride;
        strides[1] = strides[2] = (MLong)uvStride;
    }
};

// The bytes of a packed w x h frame that a renderer uploads: all of Y, and
// (h/2) rows of w/2 bytes from the start of each chroma area. With an odd
// size the chroma areas are a little longer than that; the tail carries no
// pixel.
std::vector<unsigned char> Visible(const std::vector<unsigned char> &frame, int w, int h)
{
    size_t luma = size_t(w) * h, area = luma / 4, used = size_t(h / 2) * (w / 2);
    if (frame.size() < luma + 2 * area) return frame;
    std::vector<unsigned char> out(frame.begin(), frame.begin() + luma);
    out.insert(out.end(), frame.begin() + luma, frame.begin() + luma + used);
    out.insert(out.end(), frame.begin() + luma + area, frame.begin() + luma + area + used);
    return out;
}

// The expected cut of (x, y, cw, ch), in the form of Visible: luma row r is
// frame row y + r; chroma row k of the cut is the frame's chroma row that
// holds the odd luma row y + 2k + 1, i.e. (y + 1)/2 + k, limited to the last.
std::vector<unsigned char> ExpectedCut(int frameW, int frameH, int x, int y, int cw, int ch)
{
    size_t luma = size_t(cw) * ch, used = size_t(ch / 2) * (cw / 2);
    std::vector<unsigned char> out(luma + 2 * used, 0);
    for (int r = 0; r < ch; r++)
        for (int c = 0; c < cw; c++) out[size_t(r) * cw + c] = Pattern(0, x + c, y + r);
    for (int k = 0; k < ch / 2; k++) {
        int row = std::min((y + 1) / 2 + k, frameH / 2 - 1);
        for (int j = 0; j < cw / 2; j++) {
            out[luma + size_t(k) * (cw / 2) + j] = Pattern(1, x / 2 + j, row);
            out[luma + used + size_t(k) * (cw / 2) + j] = Pattern(2, x / 2 + j, row);
        }
    }
    return out;
}

// Empty when the posted frame shows the expected cut, else where it first
// differs, by plane, row and column.
std::string CutDiff(const std::vector<unsigned char> &posted, const std::vector<unsigned char> &want, int w, int h)
{
    std::vector<unsigned char> got = Visible(posted, w, h);
    if (got.size() != want.size())
        return "size " + std::to_string(got.size()) + " vs " + std::to_string(want.size());
    size_t luma = size_t(w) * h, used = size_t(h / 2) * (w / 2);
    for (size_t i = 0; i < got.size(); i++) {
        if (got[i] == want[i]) continue;
        const char *plane = i < luma ? "Y" : (i < luma + used ? "U" : "V");
        size_t off = i < luma ? i : (i < luma + used ? i - luma : i - luma - used);
        size_t rowLen = i < luma ? w : std::max(1, w / 2);
        return std::string(plane) + " row " + std::to_string(off / rowLen) + " col " + std::to_string(off % rowLen);
    }
    return "";
}

class DisplayMgrCrop : public ::testing::Test {
protected:
    void SetUp() override
    {
        RecordingRenderer::Install();
        RecordingRenderer::Options().captureFrames = true;
        h = MDisplayMgrCreate(1);
        ASSERT_NE(h, nullptr);
        SetWord(ZT5_CFG_DISPLAY_USE_OPENGLES, 1);
        ZT5Viewport vp = {};
        vp.hWnd = (uint32_t)kWindow;
        vp.lWidth = 640;
        vp.lHeight = 480;
        MDisplayMgrSetParam(h, M_DISPLAY_PARAM_VIEWPORT, &vp, sizeof(vp));
    }
    void TearDown() override
    {
        MDisplayMgrDelete(h);
        RecordingRenderer::Uninstall();
    }

    MRESULT SetWord(MDWord id, MDWord value) { return MDisplayMgrSetParam(h, id, &value, 4); }

    void SetFrameInfo(int w, int hgt)
    {
        ZT5FrameInfo fi = {};
        fi.dwWidth = w;
        fi.dwHeight = hgt;
        fi.dwCSType = 1;
        MDisplayMgrSetParam(h, M_DISPLAY_PARAM_FRAMEINFO, &fi, sizeof(fi));
    }

    void SetLensBox(MDWord x, MDWord y, MDWord w, MDWord hgt)
    {
        SetWord(ZT5_CFG_DISPLAY_FISHEYE_X_POS, x);
        SetWord(ZT5_CFG_DISPLAY_FISHEYE_Y_POS, y);
        SetWord(ZT5_CFG_DISPLAY_FISHEYE_WIDTH, w);
        SetWord(ZT5_CFG_DISPLAY_FISHEYE_HEIGHT, hgt);
    }

    MRESULT Blit(Frame &f, MDWord cs = ZT5_CS_I420)
    {
        ZT5Rect rc = {0, 0, f.w, f.h};
        return MDisplayMgrBlit(h, cs, f.planes, f.strides, &rc, &rc, 0);
    }

    // The last frame the render object was given.
    RREvent LastPost()
    {
        auto posts = RecordingRenderer::Calls(RRCall::RenderBuffer);
        return posts.empty() ? RREvent() : posts.back();
    }
    size_t Posts() { return RecordingRenderer::Calls(RRCall::RenderBuffer).size(); }

    MDisplayHandle h = nullptr;
};

TEST_F(DisplayMgrCrop, PlainFrameGoesWholeToTheRenderer)
{
    Frame f(1920, 1080);
    SetFrameInfo(1920, 1080);
    ASSERT_EQ(Blit(f), 0);
    RREvent post = LastPost();
    ASSERT_EQ(post.call, RRCall::RenderBuffer);
    EXPECT_EQ(post.args[0], 1920);
    EXPECT_EQ(post.args[1], 1080);
    EXPECT_EQ(h->dwCropBufferSize, 1920u * 1080u * 3u / 2u);
    auto want = ExpectedCut(1920, 1080, 0, 0, 1920, 1080);
    EXPECT_EQ(CutDiff(post.frame, want, 1920, 1080), "");
}

TEST_F(DisplayMgrCrop, LensSquareOfAWideFrameIsAllThatIsCopied)
{
    Frame f(1920, 1080);
    SetFrameInfo(1920, 1080);
    SetWord(ZT5_CFG_DISPLAY_FISHEYE_MODE, 1);
    SetLensBox(420, 0, 1080, 1080);
    ASSERT_EQ(Blit(f), 0);
    RREvent post = LastPost();
    EXPECT_EQ(post.args[0], 1080);
    EXPECT_EQ(post.args[1], 1080);
    EXPECT_EQ(h->dwCropBufferSize, 1749600u);
    ASSERT_EQ(post.frame.size(), 1749600u);
    auto want = ExpectedCut(1920, 1080, 420, 0, 1080, 1080);
    EXPECT_EQ(CutDiff(post.frame, want, 1080, 1080), "");

    // bNeedCrop plays no part in a fisheye mode.
    ZT5AlignInfo align = {1, 8};
    MDisplayMgrSetParam(h, ZT5_CFG_CODEC_ALIGNINFO, &align, 8);
    ASSERT_EQ(Blit(f), 0);
    post = LastPost();
    EXPECT_EQ(post.args[0], 1080);
    EXPECT_EQ(CutDiff(post.frame, want, 1080, 1080), "");
}

// Looks at the cut: the lens square of the synthetic scene, saved as a grey
// picture for a person to check that the circle fills the square.
TEST_F(DisplayMgrCrop, LensSquareOfTheSyntheticSceneHoldsTheWholeCircle)
{
    synthetic::LensFrame lens;
    std::vector<uint8_t> scene = synthetic::MakeFisheyeFrame(lens, 0);
    unsigned char *planes[3] = {scene.data(), scene.data() + 1920 * 1080, scene.data() + 1920 * 1080 * 5 / 4};
    MLong strides[3] = {1920, 960, 960};
    SetFrameInfo(1920, 1080);
    SetWord(ZT5_CFG_DISPLAY_FISHEYE_MODE, 2);
    SetLensBox(420, 0, 1080, 1080);
    ZT5Rect rc = {0, 0, 1920, 1080};
    ASSERT_EQ(MDisplayMgrBlit(h, ZT5_CS_I420, planes, strides, &rc, &rc, 0), 0);
    RREvent post = LastPost();
    ASSERT_EQ(post.frame.size(), 1749600u);

    // Colour where the scene is painted, black luma outside the circle:
    // the square's corners are outside, its edge midpoints just inside.
    auto lumaAt = [&](int x, int y) { return post.frame[size_t(y) * 1080 + x]; };
    // The white horizon ring lies 450..510 pixels from the centre.
    EXPECT_LT(lumaAt(5, 5), 20);
    EXPECT_LT(lumaAt(1074, 1074), 20);
    EXPECT_GT(lumaAt(540, 60), 200);
    EXPECT_GT(lumaAt(60, 540), 200);
    EXPECT_GT(lumaAt(1020, 540), 200);
    EXPECT_GT(lumaAt(540, 1020), 200);

    harness::RgbaImage img;
    img.width = 1080;
    img.height = 1080;
    img.rgba.resize(size_t(1080) * 1080 * 4);
    size_t uOff = 1080 * 1080, vOff = uOff + uOff / 4;
    for (int y = 0; y < 1080; y++)
        for (int x = 0; x < 1080; x++) {
            size_t c = size_t(y / 2) * 540 + x / 2;
            synthetic::Rgb rgb =
                synthetic::YuvToRgb(post.frame[size_t(y) * 1080 + x], post.frame[uOff + c], post.frame[vOff + c]);
            uint8_t *p = &img.rgba[(size_t(y) * 1080 + x) * 4];
            p[0] = rgb.r;
            p[1] = rgb.g;
            p[2] = rgb.b;
            p[3] = 255;
        }
    std::string dir = PANOVIEW_TEST_OUTPUT_DIR;
    std::string err;
    std::filesystem::create_directories(dir);
    EXPECT_TRUE(harness::WritePng(dir + "/displaymgr_lens_square.png", img, &err)) << err;
}

TEST_F(DisplayMgrCrop, AlignCropCutsTheDecoderColumnsRowByRow)
{
    Frame f(1928, 1080);
    SetFrameInfo(1928, 1080);
    ZT5AlignInfo align = {1, 8};
    MDisplayMgrSetParam(h, ZT5_CFG_CODEC_ALIGNINFO, &align, 8);
    ASSERT_EQ(Blit(f), 0);
    RREvent post = LastPost();
    EXPECT_EQ(post.args[0], 1920);
    EXPECT_EQ(post.args[1], 1080);
    EXPECT_EQ(h->dwSrcWidth, 1920u);
    auto want = ExpectedCut(1928, 1080, 0, 0, 1920, 1080);
    EXPECT_EQ(CutDiff(post.frame, want, 1920, 1080), "");

    // No columns to cut: the whole frame, block copied.
    align.dwAlignCrop = 0;
    MDisplayMgrSetParam(h, ZT5_CFG_CODEC_ALIGNINFO, &align, 8);
    ASSERT_EQ(Blit(f), 0);
    post = LastPost();
    EXPECT_EQ(post.args[0], 1928);
    want = ExpectedCut(1928, 1080, 0, 0, 1928, 1080);
    EXPECT_EQ(CutDiff(post.frame, want, 1928, 1080), "");

    // An align crop that would leave no width is ignored, not wrapped round.
    align.dwAlignCrop = 5000;
    MDisplayMgrSetParam(h, ZT5_CFG_CODEC_ALIGNINFO, &align, 8);
    ASSERT_EQ(Blit(f), 0);
    EXPECT_EQ(LastPost().args[0], 1928);
}

TEST_F(DisplayMgrCrop, OddStartRowsAndColumnsTakeTheRowsTheirOddLinesFallIn)
{
    Frame f(320, 240);
    SetFrameInfo(320, 240);
    SetWord(ZT5_CFG_DISPLAY_FISHEYE_MODE, 3);
    const int boxes[][4] = {{40, 1, 160, 160}, {41, 37, 120, 96}, {0, 3, 64, 200}, {255, 15, 64, 224}};
    for (const auto &b : boxes) {
        SetLensBox(b[0], b[1], b[2], b[3]);
        ASSERT_EQ(Blit(f), 0);
        RREvent post = LastPost();
        ASSERT_EQ(post.args[0], b[2]);
        ASSERT_EQ(post.args[1], b[3]);
        auto want = ExpectedCut(320, 240, b[0], b[1], b[2], b[3]);
        EXPECT_EQ(CutDiff(post.frame, want, b[2], b[3]), "") << "box " << b[0] << "," << b[1] << ": ";
    }
}

TEST_F(DisplayMgrCrop, WholeFrameLensBoxIsABlockCopy)
{
    Frame f(256, 256);
    SetFrameInfo(256, 256);
    SetWord(ZT5_CFG_DISPLAY_FISHEYE_MODE, 1);
    SetLensBox(0, 0, 256, 256);
    ASSERT_EQ(Blit(f), 0);
    auto want = ExpectedCut(256, 256, 0, 0, 256, 256);
    EXPECT_EQ(CutDiff(LastPost().frame, want, 256, 256), "");
    // The crop function leaves a whole-frame region to the block copy.
    std::vector<unsigned char> dst(256 * 256 * 3 / 2, 0x11);
    FishEyeCropYUVData(f.planes, 256, 256, 0, 0, 256, 256, dst.data());
    EXPECT_TRUE(std::all_of(dst.begin(), dst.end(), [](unsigned char c) { return c == 0x11; }));
}

TEST_F(DisplayMgrCrop, BufferGrowsWithTheSquareAndNeverShrinks)
{
    Frame f(640, 480);
    SetFrameInfo(640, 480);
    SetWord(ZT5_CFG_DISPLAY_FISHEYE_MODE, 1);
    SetLensBox(80, 0, 400, 400);
    ASSERT_EQ(Blit(f), 0);
    unsigned char *first = h->pCropBuffer;
    EXPECT_EQ(h->dwCropBufferSize, 400u * 400u * 3u / 2u);

    // The steady state allocates nothing.
    for (int i = 0; i < 5; i++) ASSERT_EQ(Blit(f), 0);
    EXPECT_EQ(h->pCropBuffer, first);

    // Growth by height only: a new, larger buffer.
    SetLensBox(80, 0, 400, 408);
    ASSERT_EQ(Blit(f), 0);
    EXPECT_EQ(h->dwCropBufferSize, 400u * 408u * 3u / 2u);
    unsigned char *grown = h->pCropBuffer;
    auto want = ExpectedCut(640, 480, 80, 0, 400, 408);
    EXPECT_EQ(CutDiff(LastPost().frame, want, 400, 408), "");

    // Smaller squares reuse it.
    SetLensBox(100, 8, 200, 200);
    ASSERT_EQ(Blit(f), 0);
    EXPECT_EQ(h->pCropBuffer, grown);
    EXPECT_EQ(h->dwCropBufferSize, 400u * 408u * 3u / 2u);
    EXPECT_EQ(LastPost().args[0], 200);
    want = ExpectedCut(640, 480, 100, 8, 200, 200);
    EXPECT_EQ(CutDiff(LastPost().frame, want, 200, 200), "");

    // Back to plain mode: the whole frame needs more.
    SetWord(ZT5_CFG_DISPLAY_FISHEYE_MODE, 0);
    ASSERT_EQ(Blit(f), 0);
    EXPECT_EQ(h->dwCropBufferSize, 640u * 480u * 3u / 2u);
    EXPECT_EQ(LastPost().args[0], 640);
    EXPECT_EQ(LastPost().args[1], 480);
}

TEST_F(DisplayMgrCrop, LensBoxReachingPastTheFrameIsClamped)
{
    Frame f(640, 360);
    SetFrameInfo(640, 360);
    SetWord(ZT5_CFG_DISPLAY_FISHEYE_MODE, 1);
    SetLensBox(400, 100, 360, 360);
    ASSERT_EQ(Blit(f), 0);
    RREvent post = LastPost();
    EXPECT_EQ(post.args[0], 240);
    EXPECT_EQ(post.args[1], 260);
    auto want = ExpectedCut(640, 360, 400, 100, 240, 260);
    EXPECT_EQ(CutDiff(post.frame, want, 240, 260), "");

    // Entirely outside, or not given yet: nothing to post, nothing read.
    size_t before = Posts();
    SetLensBox(700, 0, 64, 64);
    EXPECT_EQ(Blit(f), 0);
    SetLensBox(0, 0, 0, 0);
    EXPECT_EQ(Blit(f), 0);
    EXPECT_EQ(Posts(), before);
}

TEST_F(DisplayMgrCrop, HostBufferTakesTheWholeFrameAndNothingIsDrawn)
{
    Frame f(320, 240);
    SetFrameInfo(320, 240);
    SetWord(ZT5_CFG_DISPLAY_FISHEYE_MODE, 1);
    SetLensBox(40, 0, 240, 240);
    ASSERT_EQ(Blit(f), 0); // renderer up, one frame drawn
    ASSERT_NE(h->pRender, nullptr);
    size_t drawn = Posts();

    const size_t frameBytes = 320 * 240 * 3 / 2;
    std::vector<unsigned char> host(frameBytes + 64, 0xA5);
    CZT5Mutex hostMutex;
    MDWord len = (MDWord)frameBytes;
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_YUV_BUFFER, host.data(), 4);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_YUV_BUFFER_LEN, &len, 4);

    // Without the host's mutex the road isn't open: drawn as before.
    ASSERT_EQ(Blit(f), 0);
    EXPECT_EQ(Posts(), drawn + 1);
    EXPECT_EQ(host[0], 0xA5);

    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_YUV_BUFFER_MUTEX, &hostMutex, 4);
    ASSERT_EQ(Blit(f), 0);
    EXPECT_EQ(Posts(), drawn + 1) << "a frame handed to the host is not drawn";
    auto want = ExpectedCut(320, 240, 0, 0, 320, 240);
    EXPECT_EQ(std::memcmp(host.data(), want.data(), frameBytes), 0) << "the whole frame, not the lens square";
    EXPECT_TRUE(std::all_of(host.begin() + frameBytes, host.end(), [](unsigned char c) { return c == 0xA5; }));

    // A buffer too short for the frame: no copy, no draw, no overflow.
    std::vector<unsigned char> shortBuf(frameBytes - 1, 0x5A);
    len = (MDWord)shortBuf.size();
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_YUV_BUFFER, shortBuf.data(), 4);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_YUV_BUFFER_LEN, &len, 4);
    EXPECT_EQ(Blit(f), 0);
    EXPECT_TRUE(std::all_of(shortBuf.begin(), shortBuf.end(), [](unsigned char c) { return c == 0x5A; }));
    EXPECT_EQ(Posts(), drawn + 1);

    // A length that is negative as a signed number closes the road again.
    len = 0x80000000u;
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_YUV_BUFFER_LEN, &len, 4);
    EXPECT_EQ(Blit(f), 0);
    EXPECT_EQ(Posts(), drawn + 2);

    EXPECT_EQ(CallbackFEYUVData(nullptr, f.planes), 4);
    unsigned char *none[3] = {nullptr, nullptr, nullptr};
    EXPECT_EQ(CallbackFEYUVData(h, none), 4);
}

TEST_F(DisplayMgrCrop, MissingPlanesNeverCrash)
{
    // A packed frame carries one plane only: nothing is read from the
    // missing chroma planes, the buffer shows black.
    std::vector<unsigned char> packed(size_t(64) * 32 * 2, 0x80);
    unsigned char *planes[3] = {packed.data(), nullptr, nullptr};
    MLong strides[3] = {128, 0, 0};
    SetFrameInfo(64, 32);
    ZT5Rect rc = {0, 0, 64, 32};
    EXPECT_EQ(MDisplayMgrBlit(h, ZT5_CS_PACKED2, planes, strides, &rc, &rc, 0), 0);
    ASSERT_NE(h->pCropBuffer, nullptr);
    EXPECT_EQ(h->pCropBuffer[0], 0);
    EXPECT_EQ(h->pCropBuffer[64 * 32], 128);

    // The same in fisheye mode, and on the host buffer road.
    SetWord(ZT5_CFG_DISPLAY_FISHEYE_MODE, 1);
    SetLensBox(16, 0, 32, 32);
    EXPECT_EQ(MDisplayMgrBlit(h, ZT5_CS_PACKED2, planes, strides, &rc, &rc, 0), 0);
    std::vector<unsigned char> host(64 * 32 * 3 / 2, 0x33);
    CZT5Mutex hostMutex;
    MDWord len = (MDWord)host.size();
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_YUV_BUFFER, host.data(), 4);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_YUV_BUFFER_LEN, &len, 4);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_YUV_BUFFER_MUTEX, &hostMutex, 4);
    EXPECT_EQ(MDisplayMgrBlit(h, ZT5_CS_PACKED2, planes, strides, &rc, &rc, 0), 0);
    EXPECT_EQ(host[0], 0x33);

    // The steps called on their own.
    Frame f(64, 32);
    std::vector<unsigned char> dst(32 * 32 * 3 / 2, 0x44);
    unsigned char *partial[3] = {f.planes[0], nullptr, f.planes[2]};
    FishEyeCropYUVData(partial, 64, 32, 16, 0, 32, 32, dst.data());
    FishEyeCropYUVData(f.planes, 64, 32, 16, 0, 32, 32, nullptr);
    EXPECT_TRUE(std::all_of(dst.begin(), dst.end(), [](unsigned char c) { return c == 0x44; }));
    EXPECT_EQ(CropFishEyeData(nullptr, f.planes), ZT5_ERR_INVALID_PARAM);
}

TEST_F(DisplayMgrCrop, NullPlaneArrayUpdatesSizesAndKeepsTheLastPicture)
{
    Frame f(128, 64);
    SetFrameInfo(128, 64);
    ASSERT_EQ(Blit(f), 0);
    std::vector<unsigned char> before(h->pCropBuffer, h->pCropBuffer + h->dwCropBufferSize);
    SetWord(ZT5_CFG_DISPLAY_FISHEYE_MODE, 1);
    SetLensBox(32, 0, 64, 64);
    h->dwSrcWidth = 128;
    h->dwSrcHeight = 64;
    EXPECT_EQ(CropFishEyeData(h, nullptr), 0);
    EXPECT_EQ(h->dwCropWidth, 64u);
    EXPECT_EQ(h->dwCropHeight, 64u);
    EXPECT_EQ(std::memcmp(h->pCropBuffer, before.data(), before.size()), 0);
}

TEST_F(DisplayMgrCrop, SemiPlanarChromaArrivesAsTwoPlanes)
{
    // The front end's pointers for an interleaved frame: plane 2 at the
    // chroma block, plane 1 one byte behind it, every stride the width.
    const int w = 96, hh = 64;
    std::vector<unsigned char> buf(size_t(w) * hh * 3 / 2);
    for (int r = 0; r < hh; r++)
        for (int c = 0; c < w; c++) buf[size_t(r) * w + c] = Pattern(0, c, r);
    unsigned char *chroma = buf.data() + w * hh;
    for (int r = 0; r < hh / 2; r++)
        for (int c = 0; c < w / 2; c++) {
            chroma[size_t(r) * w + 2 * c] = Pattern(2, c, r);     // V first
            chroma[size_t(r) * w + 2 * c + 1] = Pattern(1, c, r); // then U
        }
    unsigned char *planes[3] = {buf.data(), chroma + 1, chroma};
    MLong strides[3] = {w, w, w};
    SetFrameInfo(w, hh);
    ZT5Rect rc = {0, 0, w, hh};
    ASSERT_EQ(MDisplayMgrBlit(h, ZT5_CS_SEMIPLANAR_A, planes, strides, &rc, &rc, 0), 0);
    auto want = ExpectedCut(w, hh, 0, 0, w, hh);
    EXPECT_EQ(CutDiff(LastPost().frame, want, w, hh), "");

    SetWord(ZT5_CFG_DISPLAY_FISHEYE_MODE, 1);
    SetLensBox(18, 3, 48, 48);
    ASSERT_EQ(MDisplayMgrBlit(h, ZT5_CS_SEMIPLANAR_A, planes, strides, &rc, &rc, 0), 0);
    want = ExpectedCut(w, hh, 18, 3, 48, 48);
    EXPECT_EQ(CutDiff(LastPost().frame, want, 48, 48), "");
}

TEST_F(DisplayMgrCrop, PaddedRowsOfAProducerAreSkipped)
{
    Frame f(200, 100, 256, 128);
    SetFrameInfo(200, 100);
    ASSERT_EQ(Blit(f), 0);
    auto want = ExpectedCut(200, 100, 0, 0, 200, 100);
    EXPECT_EQ(CutDiff(LastPost().frame, want, 200, 100), "");

    SetWord(ZT5_CFG_DISPLAY_FISHEYE_MODE, 1);
    SetLensBox(50, 2, 96, 96);
    ASSERT_EQ(Blit(f), 0);
    want = ExpectedCut(200, 100, 50, 2, 96, 96);
    EXPECT_EQ(CutDiff(LastPost().frame, want, 96, 96), "");
}

// Random frames, boxes and modes; exact-size planes make any stray read an
// AddressSanitizer failure, and every cut is compared byte for byte.
TEST_F(DisplayMgrCrop, RandomGeometriesStayInsideAndCutRight)
{
    std::mt19937 rng(20240611);
    auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
    for (int iter = 0; iter < 400; iter++) {
        int w = pick(2, 260), hh = pick(2, 200);
        Frame f(w, hh);
        SetFrameInfo(w, hh);
        int mode = pick(0, 2); // 0 plain, 1 fisheye, 2 plain with align crop
        int ex = 0, ey = 0, ew = w, eh = hh;
        ZT5AlignInfo align = {0, 0};
        if (mode == 1) {
            int bx = pick(0, w + 20), by = pick(0, hh + 20), bw = pick(0, w + 40), bh = pick(0, hh + 40);
            SetWord(ZT5_CFG_DISPLAY_FISHEYE_MODE, 1);
            SetLensBox(bx, by, bw, bh);
            ex = bx;
            ey = by;
            ew = bx >= w ? 0 : std::min(bw, w - bx);
            eh = by >= hh ? 0 : std::min(bh, hh - by);
            if (ew == 0 || eh == 0) ew = eh = 0;
        } else {
            SetWord(ZT5_CFG_DISPLAY_FISHEYE_MODE, 0);
            if (mode == 2) {
                align.bNeedCrop = 1;
                align.dwAlignCrop = pick(0, w + 4);
                if ((int)align.dwAlignCrop < w) ew = w - align.dwAlignCrop;
            }
        }
        MDisplayMgrSetParam(h, ZT5_CFG_CODEC_ALIGNINFO, &align, 8);
        size_t before = Posts();
        ASSERT_EQ(Blit(f), 0) << "iteration " << iter;
        if (ew == 0) {
            EXPECT_EQ(Posts(), before) << "iteration " << iter;
            continue;
        }
        ASSERT_EQ(Posts(), before + 1) << "iteration " << iter;
        RREvent post = LastPost();
        ASSERT_EQ(post.args[0], ew) << "iteration " << iter;
        ASSERT_EQ(post.args[1], eh) << "iteration " << iter;
        auto want = ExpectedCut(w, hh, ex, ey, ew, eh);
        ASSERT_EQ(CutDiff(post.frame, want, ew, eh), "") << "iteration " << iter << " frame " << w << "x" << hh << " box " << ex
                                        << "," << ey << " " << ew << "x" << eh << ": ";
        ASSERT_GE(h->dwCropBufferSize, size_t(ew) * eh * 3 / 2);
    }
}

} // namespace

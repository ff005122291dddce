// Frames as a host hands them over: every layout's colours under every matrix
// and range, the lens box wherever the frame's size puts it, a still frame
// cut anew by a view switch or a new lens circle, and frames whose planes
// don't hold their rows.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <thread>

#include "Harness.h"
#include "HostIds.h"

using namespace harness;

namespace {

// A sample of each kind at one pixel, in 8-bit codes; a 10-bit layout gets
// the code times four plus two (half a step above, which the display keeps).
struct Yuv {
    int y, u, v;
};
// What the matrix and range of a ZT5_CFG_DISPLAY_YUV_MATRIX word make of
// a sample: the encoding's exact inverse.
Rgb Expected(Yuv s, uint32_t word)
{
    return synthetic::YuvToRgb(uint8_t(s.y), uint8_t(s.u), uint8_t(s.v), EncodingOf(word));
}

// A frame of type `cs` laid out as the README says, tightly, from a function
// of the pixel (chroma taken at the even pixel of each pair or quad).
Frame Encode(uint32_t cs, int w, int h, const std::function<Yuv(int x, int y)> &at)
{
    Frame f;
    f.width = w;
    f.height = h;
    f.csType = cs;
    f.data.assign(FrameBytes(cs, size_t(w), size_t(h)), 0);
    const bool b16 = cs == ZT5_FRAME_CS_I010 || cs == ZT5_FRAME_CS_P010;
    auto put = [&](size_t at, int code) {
        if (!b16) {
            f.data[at] = uint8_t(code);
            return;
        }
        const int word = cs == ZT5_FRAME_CS_I010 ? code * 4 + 2 : (code * 4 + 2) << 6;
        f.data[at] = uint8_t(word & 0xFF);
        f.data[at + 1] = uint8_t(word >> 8);
    };
    const size_t bytes = b16 ? 2 : 1;
    if (cs == ZT5_FRAME_CS_YUYV || cs == ZT5_FRAME_CS_UYVY) {
        const size_t row = PlaneOf(cs, w, h, 0).rowBytes;
        for (int yy = 0; yy < h; yy++)
            for (int x = 0; x < w; x += 2) {
                const Yuv a = at(x, yy), b = at(std::min(x + 1, w - 1), yy);
                uint8_t *p = &f.data[yy * row + x * 2];
                const uint8_t q[4] = {uint8_t(a.y), uint8_t(a.u), uint8_t(b.y), uint8_t(a.v)};
                const uint8_t r[4] = {uint8_t(a.u), uint8_t(a.y), uint8_t(a.v), uint8_t(b.y)};
                std::memcpy(p, cs == ZT5_FRAME_CS_YUYV ? q : r, 4);
            }
        return f;
    }
    const PlaneRows luma = PlaneOf(cs, w, h, 0), chroma = PlaneOf(cs, w, h, 1);
    for (int yy = 0; yy < h; yy++)
        for (int x = 0; x < w; x++) put(yy * luma.rowBytes + x * bytes, at(x, yy).y);
    const size_t c0 = luma.rowBytes * luma.rows;
    const bool pairs = PlaneCount(cs) == 2;
    const bool vFirst = pairs && cs != ZT5_FRAME_CS_NV12 && cs != ZT5_FRAME_CS_P010;
    for (size_t r = 0; r < chroma.rows; r++)
        for (int c = 0; c < w / 2; c++) {
            const Yuv s = at(2 * c, int(2 * r));
            if (pairs) {
                const size_t p = c0 + r * chroma.rowBytes + 2 * c * bytes;
                put(p, vFirst ? s.v : s.u);
                put(p + bytes, vFirst ? s.u : s.v);
            } else {
                put(c0 + r * chroma.rowBytes + c * bytes, s.u);
                put(c0 + chroma.rowBytes * chroma.rows + r * chroma.rowBytes + c * bytes, s.v);
            }
        }
    return f;
}


// Snapshots until `check` holds, pushing nothing.
bool ShowsUntil(Display &d, const Check &check, Image *out)
{
    for (int i = 0; i < kPollRounds; i++) {
        if (d.Snapshot(out) && check(*out)) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(kPollMs));
    }
    return false;
}

const Rgb kRed = {210, 40, 40}, kGreen = {40, 190, 50}, kBlue = {40, 70, 220};

const uint32_t kDrawnTypes[] = {ZT5_FRAME_CS_I420,  ZT5_FRAME_CS_NV12, ZT5_FRAME_CS_SEMIPLANAR_A,
                                ZT5_FRAME_CS_YUYV,  ZT5_FRAME_CS_UYVY, ZT5_FRAME_CS_I010,
                                ZT5_FRAME_CS_P010};

} // namespace

// Four stripes: black and white at the ends of the range, and two saturated
// colours that tell the matrices apart. Each layout, under each matrix and
// range (set on the still frame: the picture follows at once).
TEST(Frames, EveryLayoutDrawsItsColours)
{
    for (uint32_t cs : kDrawnTypes) {
        for (bool full : {false, true}) {
            const int lo = full ? 0 : 16, hi = full ? 255 : 235;
            const Yuv stripes[4] = {{lo, 128, 128}, {hi, 128, 128}, {110, 200, 70}, {140, 60, 210}};
            Frame f = Encode(cs, 160, 96, [&](int x, int) { return stripes[x / 40]; });
            Rig rig(320, 192);
            ASSERT_TRUE(rig.Started());
            for (int matrix = 0; matrix < 3; matrix++) {
                SCOPED_TRACE("type 0x" + std::to_string(cs) + (full ? " full" : " video") + " matrix " +
                             std::to_string(matrix));
                const uint32_t word = uint32_t(matrix) | (full ? ZT5_YUV_RANGE_FULL : 0);
                ASSERT_EQ(rig.display.SetU32(ZT5_CFG_DISPLAY_YUV_MATRIX, word), ZT5_OK);
                auto right = [&](const Image &img) {
                    for (int i = 0; i < 4; i++)
                        if (!Near(img.At(40 + 80 * i, 96), Expected(stripes[i], word), 3)) return false;
                    return true;
                };
                Image shot;
                const bool ok = rig.display.PushUntil(f, right, &shot);
                if (!ok) SaveShot(shot, "_" + std::to_string(cs) + "_" + std::to_string(matrix) + (full ? "f" : "v"));
                ASSERT_TRUE(ok) << "stripes " << Str(shot.At(40, 96)) << " " << Str(shot.At(120, 96)) << " "
                                << Str(shot.At(200, 96)) << " " << Str(shot.At(280, 96)) << ", want "
                                << Str(Expected(stripes[2], word));
            }
        }
    }
}

// A vertical line through the lens centre (no lens circle set: the square
// in the middle of the frame) lands in the window's middle columns, whatever
// the width of the lens box.
TEST(Frames, LensCentreLandsInTheMiddleColumn)
{
    const int sizes[][2] = {{312, 176}, {320, 180}, {960, 540}, {1920, 1080}};
    for (uint32_t mode : {1u, 9u}) {
        for (const auto &s : sizes) {
            SCOPED_TRACE("mode " + std::to_string(mode) + ", " + std::to_string(s[0]) + "x" + std::to_string(s[1]));
            Frame f(s[0], s[1], {128, 128, 128});
            f.Fill(s[0] / 2 - 2, 0, s[0] / 2 + 2, s[1], kRed);
            Rig rig(640, 360, mode);
            ASSERT_TRUE(rig.Started());
            double centre = 0;
            auto red = [](Rgb c) { return c.r > c.g + 60; };
            auto found = [&](const Image &img) {
                double sum = 0, weight = 0;
                for (int x = 200; x < 440; x++) {
                    const Rgb c = img.At(x, 200);
                    if (red(c)) sum += x * double(c.r - c.g), weight += c.r - c.g;
                }
                centre = weight > 0 ? sum / weight : 0;
                return weight > 0;
            };
            Image shot;
            ASSERT_TRUE(rig.display.PushUntil(f, found, &shot));
            EXPECT_NEAR(centre, 319.5, 0.75);
        }
    }
}

// A paused video: a view switch shows the lens square of the kept frame at
// once, a new lens circle cuts it anew at once, and the next frame is drawn.
TEST(Frames, StillFrameIsCutAnewAtOnce)
{
    Rig rig(480, 270, 0);
    ASSERT_TRUE(rig.Started());
    Frame f(320, 180, kBlue); // blue bands beside the lens square
    f.Fill(70, 0, 250, 180, kGreen);
    auto count = [](const Image &img, Rgb c) { return CountNear(img, {0, 0, img.width, img.height}, c, 40); };
    Image shot;
    ASSERT_TRUE(rig.display.PushUntil(f, [&](const Image &i) { return count(i, Shown(kBlue)) > 1000; }, &shot));

    // The strip unwraps the square alone: no blue.
    ASSERT_EQ(rig.display.SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, 2), ZT5_OK);
    EXPECT_TRUE(ShowsUntil(rig.display, [&](const Image &i) {
        return count(i, Shown(kGreen)) > 20000 && count(i, Shown(kBlue)) == 0;
    }, &shot)) << "the switch shows the whole frame";

    // A lens circle at the left edge reaches into the blue band.
    ZT5FishEyeParam lens = {2800, 5000, 2800, 5000};
    ASSERT_EQ(rig.display.Set(ZT5_CFG_COMMON_FISHEYE_PARAM, &lens), ZT5_OK);
    EXPECT_TRUE(ShowsUntil(rig.display, [&](const Image &i) { return count(i, Shown(kBlue)) > 2000; }, &shot))
        << "the new circle waits for a frame";

    // The next frame is drawn, none is lost.
    Frame next(320, 180, kRed);
    ZT5RenderStats stats = {};
    EXPECT_TRUE(rig.display.PushUntil(next, [&](const Image &i) {
        rig.display->GetDisplayParam(ZT5_CFG_DISPLAY_RENDER_STATS, &stats);
        return count(i, Shown(kRed)) > 20000;
    }, &shot));
    EXPECT_EQ(stats.dwNewestDrawn, stats.dwFramesPosted);
    SaveShot(shot);
}

// Planes that don't hold the rows their layout needs (a pitch short of a
// row, a missing plane) are refused; the picture shown stays.
TEST(Frames, PlanesShortOfTheirRowsAreRefused)
{
    Rig rig(160, 96);
    ASSERT_TRUE(rig.Started());
    Frame shown(160, 96, kGreen);
    Image shot;
    ASSERT_TRUE(rig.display.PushUntil(shown, CentreNear(Shown(kGreen)), &shot));
    for (uint32_t cs : kDrawnTypes) {
        SCOPED_TRACE("type 0x" + std::to_string(cs));
        Frame f = Encode(cs, 160, 96, [](int, int) { return Yuv{80, 90, 240}; });
        const PlaneRows luma = PlaneOf(cs, 160, 96, 0), chroma = PlaneOf(cs, 160, 96, 1);
        uint8_t *c = f.data.data() + luma.rowBytes * luma.rows;
        ZT5SharedMemAgent agent = {};
        agent.dwCheckA = agent.dwCheckB = 1;
        agent.pPlane0[0] = f.data.data();
        if (PlaneCount(cs) > 1) agent.pPlane0[1] = c, agent.pPlane0[2] = c + (PlaneCount(cs) == 2 ? 1 : chroma.rowBytes * chroma.rows);
        ZT5SharedMemAgent *pAgent = &agent, *none = nullptr;
        ASSERT_EQ(rig.display.Set(ZT5_CFG_COMMON_SHAREDMEM_AGENT, &pAgent), ZT5_OK);
        ZT5FrameInfo info = {160, 96, 160, 96, 0, cs, 0, 0};
        agent.dwYStride = uint32_t(luma.rowBytes - 1), agent.dwUVStride = uint32_t(chroma.rowBytes);
        EXPECT_EQ(rig.display->DrawFrame(nullptr, &info, 0), ZT5_ERR_INVALID_PARAM) << "short luma rows";
        if (PlaneCount(cs) > 1) {
            agent.dwYStride = uint32_t(luma.rowBytes), agent.dwUVStride = uint32_t(chroma.rowBytes - 1);
            if (cs != ZT5_FRAME_CS_SEMIPLANAR_A) { // V-first pairs are read at the luma pitch
                EXPECT_EQ(rig.display->DrawFrame(nullptr, &info, 0), ZT5_ERR_INVALID_PARAM) << "short chroma rows";
            }
            agent.dwUVStride = uint32_t(chroma.rowBytes);
            agent.pPlane0[1] = agent.pPlane0[2] = nullptr;
            EXPECT_EQ(rig.display->DrawFrame(nullptr, &info, 0), ZT5_ERR_INVALID_PARAM) << "no chroma plane";
        }
        ASSERT_EQ(rig.display.Set(ZT5_CFG_COMMON_SHAREDMEM_AGENT, &none), ZT5_OK);
    }
    ASSERT_TRUE(rig.display.Snapshot(&shot));
    EXPECT_TRUE(Near(shot.At(80, 48), Shown(kGreen), 8)) << Str(shot.At(80, 48));
}

// 10-bit words are put together before they are blended: a ramp of luma
// words across a high-byte boundary (508..539, 0x1FC..0x21B), magnified
// eight times, stays a smooth ramp. Blending the low and high bytes apart at
// a texture unit's 8-bit precision jumps by tens of levels at the boundary.
TEST(Frames, TenBitSamplesBlendWhole)
{
    for (uint32_t cs : {ZT5_FRAME_CS_I010, ZT5_FRAME_CS_P010}) {
        SCOPED_TRACE("type 0x" + std::to_string(cs));
        const int w = 32, h = 8;
        Frame f = Encode(cs, w, h, [](int, int) { return Yuv{128, 128, 128}; });
        const int shift = cs == ZT5_FRAME_CS_P010 ? 6 : 0;
        for (int y = 0; y < h; y++)
            for (int x = 0; x < w; x++) {
                const int word = (508 + x) << shift;
                f.data[(y * w + x) * 2] = uint8_t(word & 0xFF);
                f.data[(y * w + x) * 2 + 1] = uint8_t(word >> 8);
            }
        Rig rig(256, 64);
        ASSERT_TRUE(rig.Started({{ZT5_CFG_DISPLAY_YUV_MATRIX, ZT5_YUV_RANGE_FULL}}));
        int worst = 0;
        Image shot;
        ASSERT_TRUE(rig.display.PushUntil(f, [&](const Image &img) {
            worst = 0;
            for (int x = 8; x < 248; x++) worst = std::max(worst, std::abs(img.At(x + 1, 32).g - img.At(x, 32).g));
            return img.At(8, 32).g < 130 && img.At(247, 32).g > 130; // the ramp, 127..134
        }, &shot));
        EXPECT_LE(worst, 2) << "a step in the ramp";
    }
}

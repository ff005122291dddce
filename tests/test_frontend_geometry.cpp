// Picture geometry and input planes of the display object: the fit modes,
// the kept zoom ratio, the viewport and the lens box as they reach the
// display manager, the fit-mode-5 crop down to the pixels the renderer gets,
// and the plane pointers of each colour type.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "RecordingRenderer.h"
#include "test_frontend_util.h"

using namespace fetest;

namespace {

const uint32_t kWnd = 0x4400001;

class Geometry : public ::testing::Test {
protected:
    void SetUp() override
    {
        RecordingRenderer::Install();
        disp = new CZT5Panoview();
    }
    void TearDown() override
    {
        delete disp;
        RecordingRenderer::Uninstall();
    }
    int32_t SetU32(uint32_t id, uint32_t v) { return disp->SetDisplayParam(id, &v); }
    void InitClip(int cw, int ch)
    {
        ZT5DisplayParam rec = MakeRecord(kWnd, cw, ch);
        ASSERT_EQ(disp->Init(&rec), 0);
    }
    // Draws one I420 frame of the given size; returns the DrawFrame result.
    int32_t Draw(uint32_t w, uint32_t h, uint32_t rot = 0, uint32_t aspect = 0)
    {
        frame = MakePatternI420((int)w, (int)h);
        info = MakeInfo(w, h, ZT5_FRAME_CS_I420, rot, aspect);
        return disp->DrawFrame(frame.data(), &info, 0);
    }
    ZT5Viewport LastViewport(MgrJournal &j)
    {
        MgrEvent e;
        EXPECT_TRUE(j.LastSet(M_DISPLAY_PARAM_VIEWPORT, &e));
        return e.As<ZT5Viewport>();
    }
    void LensBox(MgrJournal &j, uint32_t v[4])
    {
        const uint32_t ids[4] = {ZT5_CFG_DISPLAY_FISHEYE_X_POS, ZT5_CFG_DISPLAY_FISHEYE_Y_POS,
                                 ZT5_CFG_DISPLAY_FISHEYE_WIDTH, ZT5_CFG_DISPLAY_FISHEYE_HEIGHT};
        for (int i = 0; i < 4; ++i) {
            MgrEvent e;
            ASSERT_TRUE(j.LastSet(ids[i], &e));
            v[i] = e.Word();
        }
    }

    CZT5Panoview *disp = nullptr;
    std::vector<uint8_t> frame;
    ZT5FrameInfo info;
};

void ExpectRect(const ZT5Rect &r, int l, int t, int rr, int b)
{
    EXPECT_EQ(r.left, l);
    EXPECT_EQ(r.top, t);
    EXPECT_EQ(r.right, rr);
    EXPECT_EQ(r.bottom, b);
}

} // namespace

TEST_F(Geometry, FitInCenterShrinksAndKeepsTheAchievedRatio)
{
    InitClip(1280, 720);
    MgrJournal j;
    ASSERT_EQ(Draw(1920, 1080), 0);
    auto g = disp->GetGeometryForTest();
    EXPECT_EQ(g.lResampleW, 1280);
    EXPECT_EQ(g.lResampleH, 720);
    ExpectRect(g.rtShowRegion, 0, 0, 1280, 720);
    EXPECT_EQ(g.dwZoomNum, 720u);
    EXPECT_EQ(g.dwZoomDen, 1080u);
    uint32_t zoom = 0;
    ASSERT_EQ(disp->GetDisplayParam(ZT5_CFG_DISPLAY_ZOOM, &zoom), 0);
    EXPECT_EQ(zoom, 66u);
    ZT5Viewport vp = LastViewport(j);
    EXPECT_EQ(vp.hWnd, kWnd);
    EXPECT_EQ(vp.lLeft, 0);
    EXPECT_EQ(vp.lTop, 0);
    EXPECT_EQ(vp.lWidth, 1280);
    EXPECT_EQ(vp.lHeight, 720);
    MgrEvent fi;
    ASSERT_TRUE(j.LastSet(M_DISPLAY_PARAM_FRAMEINFO, &fi));
    EXPECT_EQ(fi.As<ZT5FrameInfo>().dwWidth, 1920u);
    auto blit = j.Of(kMgrOpBlit).back().call;
    EXPECT_EQ(blit.dwCSType, (uint32_t)ZT5_CS_I420);
    ExpectRect(blit.rect, 0, 0, 1920, 1080);

}

TEST_F(Geometry, KeptRatioHoldsThePictureSizeWhenTheWindowGrows)
{
    InitClip(960, 540);
    ASSERT_EQ(Draw(1280, 720), 0);
    uint32_t zoom = 0;
    ASSERT_EQ(disp->GetDisplayParam(ZT5_CFG_DISPLAY_ZOOM, &zoom), 0);
    EXPECT_EQ(zoom, 75u);
    ZT5DisplayParam big = MakeRecord(kWnd, 1600, 1000);
    ASSERT_EQ(disp->SetDisplayParam(ZT5_CFG_DISPLAY_PARAM, &big), 0);
    ASSERT_EQ(disp->DrawFrame(frame.data(), &info, 0), 0);
    auto g = disp->GetGeometryForTest();
    EXPECT_EQ(g.lResampleW, 960);
    EXPECT_EQ(g.lResampleH, 540);
    ExpectRect(g.rtShowRegion, 320, 230, 1280, 770);
    // Until a new zoom is asked for.
    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_ZOOM, 50), 0);
    ASSERT_EQ(disp->DrawFrame(frame.data(), &info, 0), 0);
    g = disp->GetGeometryForTest();
    EXPECT_EQ(g.lResampleW, 640);
    EXPECT_EQ(g.lResampleH, 360);
    ASSERT_EQ(disp->GetDisplayParam(ZT5_CFG_DISPLAY_ZOOM, &zoom), 0);
    EXPECT_EQ(zoom, 50u);
}

TEST_F(Geometry, ZoomStateIsWorkedOutAtOnceWhenAFrameIsKnown)
{
    InitClip(1280, 720);
    ASSERT_EQ(Draw(640, 480), 0);
    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_ZOOM, 200), 0);
    uint32_t zoom = 0;
    ASSERT_EQ(disp->GetDisplayParam(ZT5_CFG_DISPLAY_ZOOM, &zoom), 0);
    // 1280x960 doesn't fit 720 high: 960x720, 720/480 = 150 %.
    EXPECT_EQ(zoom, 150u);
    EXPECT_EQ(disp->ParamChangedForTest(), 1u);
}

TEST_F(Geometry, AspectFitCifAndStretch)
{
    InitClip(1280, 720);
    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_FIT_MODE, 1), 0);
    ASSERT_EQ(Draw(1920, 1080, 0, 1), 0);
    auto g = disp->GetGeometryForTest();
    EXPECT_EQ(g.lResampleW, 960);
    EXPECT_EQ(g.lResampleH, 720);
    ExpectRect(g.rtShowRegion, 160, 0, 1120, 720);
    EXPECT_EQ(g.dwZoomNum, 0u) << "the aspect fit doesn't touch the zoom ratio";
    ASSERT_EQ(disp->Uninit(), 0);

    InitClip(1000, 1000);
    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_FIT_MODE, 2), 0);
    ASSERT_EQ(Draw(176, 144), 0);
    g = disp->GetGeometryForTest();
    EXPECT_EQ(g.lResampleW, 352);
    EXPECT_EQ(g.lResampleH, 288);
    ExpectRect(g.rtShowRegion, 324, 356, 676, 644);
    ASSERT_EQ(disp->Uninit(), 0);

    InitClip(800, 600);
    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_FIT_MODE, 4), 0);
    ASSERT_EQ(Draw(640, 480, 90), 0);
    g = disp->GetGeometryForTest();
    EXPECT_EQ(g.lResampleW, 600);
    EXPECT_EQ(g.lResampleH, 800);
    EXPECT_EQ(g.lTotalRotation, 90);
}

TEST_F(Geometry, ViewportIsAlignedToFourAndCentred)
{
    InitClip(1002, 702);
    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_FIT_MODE, 4), 0);
    MgrJournal j;
    ASSERT_EQ(Draw(640, 480), 0);
    ExpectRect(disp->GetGeometryForTest().rtDstShow, 0, 0, 1002, 702);
    ZT5Viewport vp = LastViewport(j);
    EXPECT_EQ(vp.lWidth, 1000);
    EXPECT_EQ(vp.lHeight, 700);
    EXPECT_EQ(vp.lLeft, 2);
    EXPECT_EQ(vp.lTop, 2);
    EXPECT_EQ(vp.dwResizeAlg, 2u);
}

TEST_F(Geometry, SmallLeftMarginDisappearsOnTheFirstWindowOnly)
{
    InitClip(1284, 720);
    ASSERT_EQ(Draw(1280, 720), 0);
    EXPECT_EQ(disp->GetGeometryForTest().rtDstShow.left, 0);
    // Another window: the margin stays.
    ZT5DisplayParam rec = MakeRecord(kWnd + 1, 1284, 720);
    ASSERT_EQ(disp->SetDisplayParam(ZT5_CFG_DISPLAY_PARAM, &rec), 0);
    ASSERT_EQ(disp->DrawFrame(frame.data(), &info, 0), 0);
    EXPECT_EQ(disp->GetDisplayParam(ZT5_CFG_DISPLAY_PARAM, &rec), 0);
    EXPECT_EQ(disp->GetGeometryForTest().rtDstShow.left, 2);
}

// Fit mode 5: the crop reaches the manager as a smaller frame whose planes
// start at the crop and keep the frame's row pitch; the renderer receives
// exactly the crop's pixels.
TEST_F(Geometry, CoverCropHandsTheRendererExactlyTheCrop)
{
    RecordingRenderer::Options().captureFrames = true;
    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_USE_OPENGLES, 1), 0);
    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_FIT_MODE, 5), 0);
    InitClip(1000, 1000);
    MgrJournal j;
    ASSERT_EQ(Draw(1920, 1080), 0);
    auto g = disp->GetGeometryForTest();
    EXPECT_EQ(g.lResampleW, 1776);
    EXPECT_EQ(g.lResampleH, 1000);
    EXPECT_EQ(g.viewport.lWidth, 1000);
    EXPECT_EQ(g.viewport.lHeight, 1000);
    EXPECT_EQ(g.lCropL, 419);
    EXPECT_EQ(g.lCropT, 0);
    auto blit = j.Of(kMgrOpBlit).back().call;
    ExpectRect(blit.rect, 0, 0, 1081, 1080);
    EXPECT_EQ(blit.planes[0], frame.data() + 419);
    EXPECT_EQ(blit.planes[1], frame.data() + 1920 * 1080 + 209);
    EXPECT_EQ(blit.strides[0], 1920);
    EXPECT_EQ(blit.strides[1], 960);
    MgrEvent fi;
    ASSERT_TRUE(j.LastSet(M_DISPLAY_PARAM_FRAMEINFO, &fi));
    EXPECT_EQ(fi.As<ZT5FrameInfo>().dwWidth, 1081u);
    EXPECT_EQ(fi.As<ZT5FrameInfo>().dwHeight, 1080u);

    auto renders = RecordingRenderer::Calls(RRCall::RenderBuffer);
    ASSERT_FALSE(renders.empty());
    const RREvent &r = renders.back();
    ASSERT_EQ(r.args[0], 1081);
    ASSERT_EQ(r.args[1], 1080);
    const int w = 1081, h = 1080;
    ASSERT_GE(r.frame.size(), size_t(w) * h * 3 / 2);
    size_t badY = 0, badU = 0, badV = 0;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            if (r.frame[size_t(y) * w + x] != PatY(x + 419, y)) ++badY;
    const uint8_t *u = r.frame.data() + size_t(w) * h;
    const uint8_t *v = u + size_t(w) * h / 4;
    for (int y = 0; y < h / 2; ++y)
        for (int x = 0; x < w / 2; ++x) {
            if (u[size_t(y) * (w / 2) + x] != PatU(x + 209, y)) ++badU;
            if (v[size_t(y) * (w / 2) + x] != PatV(x + 209, y)) ++badV;
        }
    EXPECT_EQ(badY, 0u);
    EXPECT_EQ(badU, 0u);
    EXPECT_EQ(badV, 0u);

    // Back to fit mode 0: the manager gets the whole frame again.
    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_FIT_MODE, 0), 0);
    j.Clear();
    ASSERT_EQ(disp->DrawFrame(frame.data(), &info, 0), 0);
    ASSERT_TRUE(j.LastSet(M_DISPLAY_PARAM_FRAMEINFO, &fi));
    EXPECT_EQ(fi.As<ZT5FrameInfo>().dwWidth, 1920u);
    EXPECT_EQ(j.Of(kMgrOpBlit).back().call.planes[0], frame.data());
}

TEST_F(Geometry, LensBoxWithNoLensSetCentresASquare)
{
    InitClip(1280, 720);
    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, 1), 0);
    MgrJournal j;
    ASSERT_EQ(Draw(1920, 1080), 0);
    uint32_t v[4];
    LensBox(j, v);
    EXPECT_EQ(v[0], 420u);
    EXPECT_EQ(v[1], 0u);
    EXPECT_EQ(v[2], 1080u);
    EXPECT_EQ(v[3], 1080u);

    // Mode 10 takes the whole picture; the box stays inside it.
    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, 10), 0);
    j.Clear();
    ASSERT_EQ(disp->DrawFrame(frame.data(), &info, 0), 0);
    LensBox(j, v);
    EXPECT_EQ(v[0], 0u);
    EXPECT_EQ(v[1], 0u);
    EXPECT_EQ(v[2], 1920u);
    EXPECT_EQ(v[3], 1080u);
}

TEST_F(Geometry, LensBoxFromTheParameterStaysInsideThePicture)
{
    InitClip(1280, 720);
    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, 1), 0);
    MgrJournal j;
    ZT5FishEyeParam lens = {5000, 5000, 2812, 5000};
    ASSERT_EQ(disp->SetDisplayParam(ZT5_CFG_COMMON_FISHEYE_PARAM, &lens), 0);
    ASSERT_EQ(Draw(1920, 1080), 0);
    uint32_t v[4];
    LensBox(j, v);
    // cx 960, rx 539 -> start 421, width 2 * 536; cy 540, ry 540 -> 1080;
    // square: the smaller.
    EXPECT_EQ(v[0], 421u);
    EXPECT_EQ(v[1], 0u);
    EXPECT_EQ(v[2], 1072u);
    EXPECT_EQ(v[3], 1072u);

    std::mt19937 rng(1234);
    std::uniform_int_distribution<int32_t> any(-30000, 30000);
    for (int i = 0; i < 300; ++i) {
        lens = {any(rng), any(rng), any(rng), any(rng)};
        if (i % 7 == 0) lens.lRadiusX = INT32_MAX;
        if (i % 11 == 0) lens.lCenterY = INT32_MIN;
        uint32_t mode = (i % 3 == 0) ? 10 : 1 + i % 9;
        ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, mode), 0);
        ASSERT_EQ(disp->SetDisplayParam(ZT5_CFG_COMMON_FISHEYE_PARAM, &lens), 0);
        j.Clear();
        ASSERT_EQ(disp->DrawFrame(frame.data(), &info, 0), 0);
        LensBox(j, v);
        EXPECT_LE(uint64_t(v[0]) + v[2], 1920u) << i;
        EXPECT_LE(uint64_t(v[1]) + v[3], 1080u) << i;
        if (mode != 10) {
            EXPECT_EQ(v[2], v[3]) << i;
        }
    }
}

TEST_F(Geometry, PlanesAndStridesOfEachColourType)
{
    InitClip(1280, 720);
    MgrJournal j;
    // Odd width I420: quarter planes by integer division.
    std::vector<uint8_t> buf(641 * 480 * 4);
    ZT5FrameInfo f = MakeInfo(641, 480, ZT5_FRAME_CS_I420);
    ASSERT_EQ(disp->DrawFrame(buf.data(), &f, 0), 0);
    auto b = j.Of(kMgrOpBlit).back().call;
    EXPECT_EQ(b.planes[0], buf.data());
    EXPECT_EQ(b.planes[1], buf.data() + 641 * 480);
    EXPECT_EQ(b.planes[2], buf.data() + 641 * 480 + 641 * 480 / 4);
    EXPECT_EQ(b.strides[0], 641);
    EXPECT_EQ(b.strides[1], 320);
    EXPECT_EQ(b.strides[2], 320);

    f = MakeInfo(640, 480, ZT5_FRAME_CS_SEMIPLANAR_A);
    ASSERT_EQ(disp->DrawFrame(buf.data(), &f, 0), 0);
    b = j.Of(kMgrOpBlit).back().call;
    EXPECT_EQ(b.dwCSType, (uint32_t)ZT5_CS_SEMIPLANAR_A);
    EXPECT_EQ(b.planes[2], buf.data() + 640 * 480);
    EXPECT_EQ(b.planes[1], b.planes[2] + 1);
    EXPECT_EQ(b.strides[1], 640);

    f = MakeInfo(640, 480, ZT5_FRAME_CS_PACKED3);
    disp->DrawFrame(buf.data(), &f, 0); // the manager doesn't draw this type
    b = j.Of(kMgrOpBlit).back().call;
    EXPECT_EQ(b.dwCSType, (uint32_t)ZT5_CS_PACKED3);
    EXPECT_EQ(b.planes[0], buf.data());
    EXPECT_EQ(b.planes[1], nullptr);
    EXPECT_EQ(b.strides[0], 1920);

    // A flag without a colour-space id: no plane goes down.
    f = MakeInfo(640, 480, 0x2);
    ASSERT_EQ(disp->DrawFrame(buf.data(), &f, 0), 0);
    b = j.Of(kMgrOpBlit).back().call;
    EXPECT_EQ(b.dwCSType, 0xFFFFFFFFu);
    EXPECT_EQ(b.planes[0], nullptr);

    // The shared memory agent: the free buffer is shown; with a buffer
    // given to DrawFrame, the buffer wins.
    std::vector<uint8_t> a0(640 * 480 * 3 / 2), a1(640 * 480 * 3 / 2);
    ZT5SharedMemAgent agent = {};
    agent.dwYStride = 640;
    agent.dwUVStride = 320;
    agent.dwCheckA = agent.dwCheckB = 1;
    agent.dwBusy0 = 1;
    agent.dwBusy1 = 0;
    for (int i = 0; i < 3; ++i) {
        agent.pPlane0[i] = a0.data() + (i ? 640 * 480 + (i - 1) * 640 * 480 / 4 : 0);
        agent.pPlane1[i] = a1.data() + (i ? 640 * 480 + (i - 1) * 640 * 480 / 4 : 0);
    }
    ZT5SharedMemAgent *pAgent = &agent;
    ASSERT_EQ(disp->SetDisplayParam(ZT5_CFG_COMMON_SHAREDMEM_AGENT, &pAgent), 0);
    f = MakeInfo(640, 480, ZT5_FRAME_CS_I420);
    ASSERT_EQ(disp->DrawFrame(nullptr, &f, 0), 0);
    b = j.Of(kMgrOpBlit).back().call;
    EXPECT_EQ(b.planes[0], a1.data());
    agent.dwBusy1 = 1; // both busy: the last planes again
    ASSERT_EQ(disp->DrawFrame(nullptr, &f, 0), 0);
    EXPECT_EQ(j.Of(kMgrOpBlit).back().call.planes[0], a1.data());
    ASSERT_EQ(disp->DrawFrame(buf.data(), &f, 0), 0);
    EXPECT_EQ(j.Of(kMgrOpBlit).back().call.planes[0], buf.data());
    // Agent's check words missing: no frame.
    agent.dwCheckA = 0;
    EXPECT_EQ(disp->DrawFrame(nullptr, &f, 0), ZT5_ERR_INVALID_PARAM);
}

TEST_F(Geometry, HostileSizesAreRefusedNotComputed)
{
    InitClip(1280, 720);
    ZT5Rect src = {0, 0, 100000, 10};
    EXPECT_EQ(disp->SetDisplayParam(ZT5_CFG_DISPLAY_SOURCE_RECT, &src), ZT5_ERR_INVALID_PARAM);
    ZT5DisplayParam rec = MakeRecord(kWnd, 1280, 720);
    rec.rtScreen = {-(1 << 30), 0, 1 << 30, 720};
    rec.rtClip = rec.rtScreen;
    EXPECT_EQ(disp->SetDisplayParam(ZT5_CFG_DISPLAY_PARAM, &rec), ZT5_ERR_INVALID_PARAM);
    // The largest frame against a one-pixel source size in every fit mode:
    // products stay in range or the frame is refused, never a crash.
    src = {0, 0, 1, 1};
    ASSERT_EQ(disp->SetDisplayParam(ZT5_CFG_DISPLAY_SOURCE_RECT, &src), 0);
    rec = MakeRecord(kWnd, 60000, 60000);
    ASSERT_EQ(disp->SetDisplayParam(ZT5_CFG_DISPLAY_PARAM, &rec), 0);
    ZT5FrameInfo f = MakeInfo(16384, 16384);
    for (uint32_t fit : {0u, 1u, 2u, 4u, 5u}) {
        ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_FIT_MODE, fit), 0);
        int32_t r = disp->DrawFrame(nullptr, &f, 1);
        EXPECT_TRUE(r == 0 || r == ZT5_ERR_INVALID_PARAM) << fit << " " << r;
    }
}

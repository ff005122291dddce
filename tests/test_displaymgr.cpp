// The display manager driven as the front end drives it: handles, settings,
// frames, and the render object's lifecycle, observed through a recording
// render object.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "DisplayContext.h"
#include "MDisplayMgr.h"
#include "RecordingRenderer.h"

namespace {

const MWindowHandle kWindowA = 0x4a00001;
const MWindowHandle kWindowB = 0x4b00002;

// A tightly packed I420 frame with its three planes in separate blocks.
struct Frame {
    int w, h;
    std::vector<unsigned char> y, u, v;
    unsigned char *planes[3];
    MLong strides[3];
    Frame(int width, int height) : w(width), h(height), y(size_t(width) * height), u(size_t(width) * height / 4),
                                   v(size_t(width) * height / 4)
    {
        for (size_t i = 0; i < y.size(); i++) y[i] = (unsigned char)(i * 7 + 3);
        for (size_t i = 0; i < u.size(); i++) u[i] = (unsigned char)(i * 5 + 1);
        for (size_t i = 0; i < v.size(); i++) v[i] = (unsigned char)(i * 11 + 9);
        planes[0] = y.data();
        planes[1] = u.data();
        planes[2] = v.data();
        strides[0] = width;
        strides[1] = strides[2] = width / 2;
    }
};

class DisplayMgr : public ::testing::Test {
protected:
    void SetUp() override
    {
        RecordingRenderer::Install();
        h = MDisplayMgrCreate(1);
        ASSERT_NE(h, nullptr);
    }
    void TearDown() override
    {
        EXPECT_EQ(MDisplayMgrDelete(h), 0);
        EXPECT_EQ(RecordingRenderer::LiveInstances(), 0) << "the manager leaked a render object";
        RecordingRenderer::Uninstall();
    }

    MRESULT SetWord(MDWord id, MDWord value) { return MDisplayMgrSetParam(h, id, &value, 4); }

    MRESULT SetViewport(MWindowHandle hWnd, int w, int hgt)
    {
        ZT5Viewport vp = {};
        vp.hWnd = (uint32_t)hWnd;
        vp.lWidth = w;
        vp.lHeight = hgt;
        return MDisplayMgrSetParam(h, M_DISPLAY_PARAM_VIEWPORT, &vp, sizeof(vp));
    }

    void SetFrameInfo(int w, int hgt, MDWord rotation = 0)
    {
        ZT5FrameInfo fi = {};
        fi.dwWidth = w;
        fi.dwHeight = hgt;
        fi.dwStride = w;
        fi.dwCSType = 1;
        fi.dwRotation = rotation;
        ASSERT_EQ(MDisplayMgrSetParam(h, M_DISPLAY_PARAM_FRAMEINFO, &fi, sizeof(fi)), 0);
    }

    // What the front end does before the first frame on the OpenGL road.
    void Ready(int w = 64, int hgt = 32)
    {
        SetFrameInfo(w, hgt);
        ASSERT_EQ(SetWord(ZT5_CFG_DISPLAY_USE_OPENGLES, 1), 0);
        ASSERT_EQ(SetViewport(kWindowA, 640, 480), 0);
    }

    MRESULT Blit(Frame &f, MDWord cs = ZT5_CS_I420)
    {
        ZT5Rect rc = {0, 0, f.w, f.h};
        return MDisplayMgrBlit(h, cs, f.planes, f.strides, &rc, &rc, 0);
    }

    static size_t Count(RRCall call, int instance = 0) { return RecordingRenderer::Calls(call, instance).size(); }

    MDisplayHandle h = nullptr;
};

// ------------------------------------------------------------------ handles

TEST(DisplayMgrHandle, CreateDeleteAndTheNoOps)
{
    EXPECT_EQ(MDisplayMgrCreate(0), nullptr);
    EXPECT_EQ(MDisplayMgrCreate(2), nullptr);
    MDisplayHandle h = MDisplayMgrCreate(1);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(h->bShowIt, 1u);
    EXPECT_EQ(h->dwScaleRatio, 100u);
    EXPECT_EQ(h->dwDisplayMaxScale, 400u);
    EXPECT_EQ(h->pRender, nullptr);
    EXPECT_EQ(h->bUseOpenGles, 0u);
    EXPECT_NE(h->hFrameMutex, nullptr);
    ASSERT_NE(h->pViewport, nullptr);
    ZT5Viewport zero = {};
    EXPECT_EQ(std::memcmp(h->pViewport, &zero, sizeof(zero)), 0);

    EXPECT_EQ(MDisplayMgrInit(h), 0);
    EXPECT_EQ(MDisplayMgrUpdate(h), 0);
    EXPECT_EQ(MDisplayMgrUninit(h), 0);
    EXPECT_EQ(MDisplayMgrInit(nullptr), ZT5_ERR_INVALID_PARAM);
    EXPECT_EQ(MDisplayMgrUpdate(nullptr), ZT5_ERR_INVALID_PARAM);
    EXPECT_EQ(MDisplayMgrUninit(nullptr), ZT5_ERR_INVALID_PARAM);
    EXPECT_EQ(MDisplayMgrSetShow(nullptr, 1), ZT5_ERR_INVALID_PARAM);
    EXPECT_EQ(MDisplayMgrSetShow(h, 0), 0);
    EXPECT_EQ(h->bShowIt, 0u);

    ZT5Rect rc = {0, 0, 10, 10};
    EXPECT_EQ(MDisplayMgrEraseRect(kWindowA, &rc, 0), 3);
    EXPECT_EQ(MDisplayMgrEraseRectEx(kWindowA, &rc, 0, 1), 3);
    EXPECT_EQ(MDisplayMgrEraseRectEx(kWindowA, nullptr, 0, 0), 3);

    EXPECT_EQ(MDisplayMgrDelete(h), 0);
    EXPECT_EQ(MDisplayMgrDelete(nullptr), 0);
}

// --------------------------------------------------------------- blit gates

TEST_F(DisplayMgr, BlitGatesComeInTheirOrder)
{
    Frame f(64, 32);
    ZT5Rect rc = {0, 0, 64, 32};
    unsigned char *none[3] = {nullptr, nullptr, nullptr};

    // Skip first, then no planes, then the handle.
    EXPECT_EQ(MDisplayMgrBlit(nullptr, ZT5_CS_I420, nullptr, nullptr, nullptr, nullptr, 1), 0);
    EXPECT_EQ(MDisplayMgrBlit(nullptr, ZT5_CS_I420, none, f.strides, &rc, nullptr, 0), 0);
    EXPECT_EQ(MDisplayMgrBlit(nullptr, ZT5_CS_I420, nullptr, f.strides, &rc, nullptr, 0), 0);
    EXPECT_EQ(MDisplayMgrBlit(nullptr, ZT5_CS_I420, f.planes, f.strides, &rc, nullptr, 0), ZT5_ERR_INVALID_PARAM);

    // Not shown: nothing at all, not even the colour space is taken.
    Ready();
    MDisplayMgrSetShow(h, 0);
    EXPECT_EQ(Blit(f, ZT5_CS_SEMIPLANAR_A), 0);
    EXPECT_EQ(h->dwCSType, 0u);
    EXPECT_EQ(Count(RRCall::Construct), 0u);
    EXPECT_EQ(h->pCropBuffer, nullptr);
    MDisplayMgrSetShow(h, 1);

    // Not on the OpenGL road: the colour space is kept, nothing else happens.
    SetWord(ZT5_CFG_DISPLAY_USE_OPENGLES, 0);
    EXPECT_EQ(Blit(f, ZT5_CS_SEMIPLANAR_A), 0);
    EXPECT_EQ(h->dwCSType, (MDWord)ZT5_CS_SEMIPLANAR_A);
    EXPECT_EQ(Count(RRCall::Construct), 0u);
    EXPECT_EQ(h->pCropBuffer, nullptr);

    SetWord(ZT5_CFG_DISPLAY_USE_OPENGLES, 1);
    EXPECT_EQ(Blit(f), 0);
    EXPECT_EQ(Count(RRCall::Construct), 1u);
    EXPECT_EQ(Count(RRCall::RenderBuffer), 1u);
}

TEST_F(DisplayMgr, FrameWiderThanItsStrideIsRefusedAfterTheRendererIsMade)
{
    Ready();
    Frame f(64, 32);
    f.strides[0] = 60;
    EXPECT_EQ(Blit(f), ZT5_ERR_INVALID_PARAM);
    EXPECT_EQ(Count(RRCall::Init), 1u);
    EXPECT_EQ(h->bInited, 1u);
    EXPECT_EQ(Count(RRCall::RenderBuffer), 0u);
    EXPECT_EQ(h->pCropBuffer, nullptr);
}

TEST_F(DisplayMgr, ColourSpacesTheRendererCantDrawAreDropped)
{
    Ready();
    Frame f(64, 32);
    for (MDWord cs : {(MDWord)ZT5_CS_PACKED3, (MDWord)ZT5_CS_PACKED4_A, (MDWord)ZT5_CS_I420_B, 0xFFFFFFFFu}) {
        EXPECT_EQ(Blit(f, cs), 4) << std::hex << cs;
    }
    EXPECT_EQ(Count(RRCall::RenderBuffer), 0u);
    EXPECT_EQ(h->pCropBuffer, nullptr);
    EXPECT_EQ(Blit(f, ZT5_CS_I420), 0);
    EXPECT_EQ(Count(RRCall::RenderBuffer), 1u);
}

// ------------------------------------------------------------ feed and init

TEST_F(DisplayMgr, InitFeedsTheSixteenSettingsInOrderThenInitsThenRestoresState)
{
    MDWord rotation = 90, platform = 3, cloud = 1, star = 0, anim = 1, cruise = 1, fullView = 1;
    MDWord scale = 150, maxScale = 500;
    float velocity = 2.5f;
    int eaglLayer = 0, distortion = 0;
    ZT5UICallbackRecord cb = {};
    FECurrentStatusData status = {};
    MWindowHandle native = 0x1234567;

    Ready();
    SetWord(ZT5_CFG_DISPLAY_ROTATION_ANGLE, rotation);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_EAGL_LAYER, &eaglLayer, 4);
    SetWord(ZT5_CFG_DISPLAY_FE_PLATFORM, platform);
    SetWord(ZT5_CFG_DISPLAY_FE_BG_CLOUD, cloud);
    SetWord(ZT5_CFG_DISPLAY_FE_BG_STAR, star);
    SetWord(ZT5_CFG_DISPLAY_FE_BASE_ANIMATION, anim);
    SetWord(ZT5_CFG_DISPLAY_FISHEYE_MODE, 4);
    SetWord(ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, cruise);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_AUTOCURISE_VELOCITY, &velocity, 4);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_UICALLBACK, &cb, sizeof(cb));
    SetWord(ZT5_CFG_DISPLAY_OPENGL_FULLVIEW, fullView);
    SetWord(ZT5_CFG_DISPLAY_SCALE_RATIO, scale);
    SetWord(ZT5_CFG_DISPLAY_MAX_SCALE, maxScale);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_DISTORTION_PARAM, &distortion, 4);
    MDisplayMgrSetParam(h, ZT5_CFG_PLUGINMGR_HDL, &native, sizeof(native));
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_FE_CURRENTSTATUS, &status, sizeof(status));
    SetWord(ZT5_CFG_DISPLAY_FISHEYE_WIDTH, 32);
    SetWord(ZT5_CFG_DISPLAY_FISHEYE_HEIGHT, 32);
    EXPECT_EQ(Count(RRCall::Construct), 0u) << "settings alone make no render object";

    Frame f(64, 32);
    EXPECT_EQ(Blit(f), 0);

    std::vector<RREvent> j = RecordingRenderer::Journal();
    const MDWord expectedIds[16] = {
        ZT5_CFG_DISPLAY_ROTATION_ANGLE,    ZT5_CFG_DISPLAY_EAGL_LAYER,          ZT5_CFG_DISPLAY_FE_PLATFORM,
        ZT5_CFG_DISPLAY_FE_BG_CLOUD,       ZT5_CFG_DISPLAY_FE_BG_STAR,          ZT5_CFG_DISPLAY_FE_BASE_ANIMATION,
        ZT5_CFG_DISPLAY_RENDER_MUTEX,      ZT5_CFG_DISPLAY_FISHEYE_MODE,        ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE,
        ZT5_CFG_DISPLAY_AUTOCURISE_VELOCITY, ZT5_CFG_DISPLAY_UICALLBACK,        ZT5_CFG_DISPLAY_OPENGL_FULLVIEW,
        ZT5_CFG_DISPLAY_SCALE_RATIO,       ZT5_CFG_DISPLAY_MAX_SCALE,           ZT5_CFG_DISPLAY_DISTORTION_PARAM,
        ZT5_CFG_PLUGINMGR_HDL};
    ASSERT_GE(j.size(), 21u);
    EXPECT_EQ(j[0].call, RRCall::Construct);
    for (int i = 0; i < 16; i++) {
        EXPECT_EQ(j[1 + i].call, RRCall::SetConfig) << i;
        EXPECT_EQ(j[1 + i].id, expectedIds[i]) << "setting #" << i + 1 << " out of order";
    }
    // Words by address carry the stored values; pointers go by value.
    EXPECT_EQ(j[1].word, rotation);
    EXPECT_EQ(j[2].pValue, &eaglLayer);
    EXPECT_EQ(j[3].word, platform);
    EXPECT_EQ(j[4].word, cloud);
    EXPECT_EQ(j[5].word, star);
    EXPECT_EQ(j[6].word, anim);
    EXPECT_EQ(j[7].pValue, h->hFrameMutex);
    EXPECT_EQ(j[8].word, 4u);
    EXPECT_EQ(j[9].word, cruise);
    float fed;
    std::memcpy(&fed, &j[10].word, 4);
    EXPECT_EQ(fed, velocity);
    EXPECT_EQ(j[11].pValue, &cb);
    EXPECT_EQ(j[12].word, fullView);
    EXPECT_EQ(j[13].word, scale);
    EXPECT_EQ(j[14].word, maxScale);
    EXPECT_EQ(j[15].pValue, &distortion);
    EXPECT_EQ((MWindowHandle)j[16].pValue, native);

    EXPECT_EQ(j[17].call, RRCall::Init);
    EXPECT_EQ(j[18].call, RRCall::SetConfig);
    EXPECT_EQ(j[18].id, (MDWord)ZT5_CFG_DISPLAY_FE_CURRENTSTATUS);
    EXPECT_EQ(j[18].pValue, &status);
    EXPECT_EQ(j[19].call, RRCall::GetConfig);
    EXPECT_EQ(j[19].id, (MDWord)ZT5_CFG_DISPLAY_RENDERER_INITED);
    EXPECT_EQ(j[20].call, RRCall::RenderBuffer);
    EXPECT_EQ(h->bInited, 1u);
}

TEST_F(DisplayMgr, InitArgumentsInPlainMode)
{
    Ready(64, 32);
    SetFrameInfo(64, 32, 270);
    SetWord(M_DISPLAY_PARAM_CONTINUEBUF, 1);
    // The lens box is ignored in mode 0.
    SetWord(ZT5_CFG_DISPLAY_FISHEYE_WIDTH, 16);
    SetWord(ZT5_CFG_DISPLAY_FISHEYE_HEIGHT, 16);
    Frame f(64, 32);
    ZT5Rect rc = {0, 0, 64, 32};
    EXPECT_EQ(MDisplayMgrBlit(h, ZT5_CS_I420, f.planes, f.strides, &rc, nullptr, 0), 0);

    auto inits = RecordingRenderer::Calls(RRCall::Init);
    ASSERT_EQ(inits.size(), 1u);
    const int64_t *a = inits[0].args;
    EXPECT_EQ(a[1], (int64_t)ZT5_CS_I420); // dwCSType
    EXPECT_EQ(a[2], (int64_t)kWindowA);    // hContext
    EXPECT_EQ(a[3], 64);                   // source size from the rectangle
    EXPECT_EQ(a[4], 32);
    EXPECT_EQ(a[5], 64); // video size: the rectangle in mode 0
    EXPECT_EQ(a[6], 32);
    EXPECT_EQ(a[7], 1);   // bContinueBuf
    EXPECT_EQ(a[8], 270); // FrameInfo rotation

    auto renders = RecordingRenderer::Calls(RRCall::RenderBuffer);
    ASSERT_EQ(renders.size(), 1u);
    EXPECT_EQ(renders[0].pValue, h->pCropBuffer);
    EXPECT_EQ(renders[0].args[0], 64);
    EXPECT_EQ(renders[0].args[1], 32);
    EXPECT_EQ(renders[0].args[2], 64); // destination: the rectangle
    EXPECT_EQ(renders[0].args[3], 32);
}

TEST_F(DisplayMgr, InitArgumentsInFisheyeModeAreTheLensSquare)
{
    Ready(64, 32);
    SetWord(ZT5_CFG_DISPLAY_FISHEYE_MODE, 1);
    SetWord(ZT5_CFG_DISPLAY_FISHEYE_X_POS, 16);
    SetWord(ZT5_CFG_DISPLAY_FISHEYE_Y_POS, 0);
    SetWord(ZT5_CFG_DISPLAY_FISHEYE_WIDTH, 32);
    SetWord(ZT5_CFG_DISPLAY_FISHEYE_HEIGHT, 32);
    Frame f(64, 32);
    EXPECT_EQ(Blit(f), 0);
    auto inits = RecordingRenderer::Calls(RRCall::Init);
    ASSERT_EQ(inits.size(), 1u);
    EXPECT_EQ(inits[0].args[3], 64);
    EXPECT_EQ(inits[0].args[4], 32);
    EXPECT_EQ(inits[0].args[5], 32);
    EXPECT_EQ(inits[0].args[6], 32);
    auto renders = RecordingRenderer::Calls(RRCall::RenderBuffer);
    ASSERT_EQ(renders.size(), 1u);
    EXPECT_EQ(renders[0].args[0], 32);
    EXPECT_EQ(renders[0].args[1], 32);
}

// ------------------------------------------------------- renderer lifecycle

TEST_F(DisplayMgr, WithoutAWindowEveryBlitMakesAndDropsARenderer)
{
    SetFrameInfo(64, 32);
    SetWord(ZT5_CFG_DISPLAY_USE_OPENGLES, 1);
    Frame f(64, 32);
    for (int i = 0; i < 3; i++) EXPECT_EQ(Blit(f), 0);
    EXPECT_EQ(Count(RRCall::Construct), 3u);
    EXPECT_EQ(Count(RRCall::Destruct), 3u);
    EXPECT_EQ(h->pRender, nullptr);
    EXPECT_EQ(h->bInited, 0u);
    // The frame is still copied, just not drawn.
    EXPECT_NE(h->pCropBuffer, nullptr);
    EXPECT_EQ(Count(RRCall::RenderBuffer), 0u);
    for (const RREvent &ev : RecordingRenderer::Calls(RRCall::Init)) EXPECT_EQ(ev.args[2], 0);

    // A viewport of zero size brings no window.
    SetViewport(kWindowA, 0, 0);
    EXPECT_EQ(h->hContext, 0u);
    EXPECT_EQ(Blit(f), 0);
    EXPECT_EQ(h->pRender, nullptr);

    SetViewport(kWindowA, 320, 240);
    EXPECT_EQ(Blit(f), 0);
    EXPECT_EQ(h->bInited, 1u);
    EXPECT_EQ(Count(RRCall::Construct), 5u);
    EXPECT_EQ(Count(RRCall::RenderBuffer), 1u);
}

TEST_F(DisplayMgr, NewWindowCostsTwoBlits)
{
    Ready();
    Frame f(64, 32);
    ASSERT_EQ(Blit(f), 0);
    ASSERT_EQ(h->bInited, 1u);

    // Same window, other size: only the copy changes.
    SetViewport(kWindowA, 800, 600);
    EXPECT_EQ(Count(RRCall::Reset), 0u);
    EXPECT_EQ(h->bInited, 1u);
    EXPECT_EQ(h->pViewport->lWidth, 800);

    SetViewport(kWindowB, 800, 600);
    EXPECT_EQ(Count(RRCall::Reset, 1), 1u);
    EXPECT_EQ(h->bInited, 0u);
    EXPECT_EQ(h->hContext, kWindowB);

    // First blit: the old object is fed again, refuses init, goes away.
    EXPECT_EQ(Blit(f), 0);
    auto inits1 = RecordingRenderer::Calls(RRCall::Init, 1);
    ASSERT_EQ(inits1.size(), 2u);
    EXPECT_EQ(inits1[1].result, ZT5_ERR_ALREADY_INITED);
    EXPECT_EQ(Count(RRCall::Destruct, 1), 1u);
    EXPECT_EQ(h->pRender, nullptr);
    EXPECT_EQ(Count(RRCall::RenderBuffer), 1u) << "the first blit after a window change draws nothing";

    // Second blit: a new object on the new window, and the frame is drawn.
    EXPECT_EQ(Blit(f), 0);
    auto inits2 = RecordingRenderer::Calls(RRCall::Init, 2);
    ASSERT_EQ(inits2.size(), 1u);
    EXPECT_EQ(inits2[0].args[2], (int64_t)kWindowB);
    EXPECT_EQ(h->bInited, 1u);
    EXPECT_EQ(Count(RRCall::RenderBuffer, 2), 1u);
}

TEST_F(DisplayMgr, NullWindowStopsTheRendererAndTheNextBlitRestartsTheSameObject)
{
    Ready();
    Frame f(64, 32);
    ASSERT_EQ(Blit(f), 0);

    // A null window without area is a mere announcement.
    SetViewport(0, 0, 0);
    EXPECT_EQ(Count(RRCall::SetRender), 0u);
    EXPECT_EQ(h->bInited, 1u);

    SetViewport(0, 640, 480);
    auto sr = RecordingRenderer::Calls(RRCall::SetRender, 1);
    ASSERT_EQ(sr.size(), 1u);
    EXPECT_EQ(sr[0].pValue, nullptr);
    EXPECT_EQ(h->bInited, 0u);
    EXPECT_EQ(h->hContext, kWindowA) << "a null window never overwrites the last one";
    EXPECT_EQ(Count(RRCall::Reset), 0u);

    EXPECT_EQ(Blit(f), 0);
    EXPECT_EQ(Count(RRCall::Construct), 1u) << "the same object comes back";
    auto inits = RecordingRenderer::Calls(RRCall::Init, 1);
    ASSERT_EQ(inits.size(), 2u);
    EXPECT_EQ(inits[1].result, 0);
    EXPECT_EQ(h->bInited, 1u);
    EXPECT_EQ(Count(RRCall::RenderBuffer, 1), 2u);
}

TEST_F(DisplayMgr, ContinueBufChangeFeedsTheSettingsAgain)
{
    Ready();
    SetWord(M_DISPLAY_PARAM_CONTINUEBUF, 1);
    Frame f(64, 32);
    ASSERT_EQ(Blit(f), 0);
    size_t fed = RecordingRenderer::SetConfigIds(1).size();
    EXPECT_EQ(fed, 16u);

    SetWord(M_DISPLAY_PARAM_CONTINUEBUF, 1); // same value: nothing
    EXPECT_EQ(h->bInited, 1u);
    EXPECT_EQ(Blit(f), 0);
    EXPECT_EQ(RecordingRenderer::SetConfigIds(1).size(), 16u);

    SetWord(M_DISPLAY_PARAM_CONTINUEBUF, 0);
    EXPECT_EQ(h->bInited, 0u);
    EXPECT_EQ(h->bContinueBuf, 0u);
    EXPECT_EQ(Blit(f), 0);
    EXPECT_EQ(RecordingRenderer::SetConfigIds(1).size(), 32u);
    auto inits = RecordingRenderer::Calls(RRCall::Init, 1);
    ASSERT_EQ(inits.size(), 2u);
    EXPECT_EQ(inits[1].result, ZT5_ERR_ALREADY_INITED);
    EXPECT_EQ(inits[1].args[7], 0); // the new bContinueBuf
    EXPECT_EQ(h->bInited, 1u) << "refused init but the object is up: it stays";
    EXPECT_EQ(Count(RRCall::Construct), 1u);
    EXPECT_EQ(Count(RRCall::RenderBuffer, 1), 3u);
}

TEST_F(DisplayMgr, FailedInitDestroysAndEveryBlitRetries)
{
    Ready();
    RecordingRenderer::Options().failInit = true;
    Frame f(64, 32);
    for (int i = 0; i < 3; i++) EXPECT_EQ(Blit(f), 0) << "a renderer failure is not the caller's";
    EXPECT_EQ(Count(RRCall::Construct), 3u);
    EXPECT_EQ(Count(RRCall::Destruct), 3u);
    EXPECT_EQ(h->pRender, nullptr);
    EXPECT_EQ(Count(RRCall::RenderBuffer), 0u);
    // Each failure asked for the error before destroying.
    auto gets = RecordingRenderer::Calls(RRCall::GetConfig, 2);
    ASSERT_EQ(gets.size(), 2u);
    EXPECT_EQ(gets[1].id, (MDWord)ZT5_CFG_DISPLAY_RENDERER_ERROR);
    EXPECT_EQ(InitOpenglRenderer(h, nullptr, nullptr), ZT5_ERR_DISPLAY_CREATE);

    RecordingRenderer::Options().failInit = false;
    EXPECT_EQ(Blit(f), 0);
    EXPECT_EQ(h->bInited, 1u);
    EXPECT_EQ(Count(RRCall::RenderBuffer), 1u);
    EXPECT_EQ(InitOpenglRenderer(h, nullptr, nullptr), 0) << "already up: nothing to do";
    EXPECT_EQ(InitOpenglRenderer(nullptr, nullptr, nullptr), ZT5_ERR_INVALID_PARAM);
}

TEST_F(DisplayMgr, NoRenderObjectAtAllStillCopiesAndSucceeds)
{
    Ready();
    RecordingRenderer::Options().factoryReturnsNull = true;
    Frame f(64, 32);
    EXPECT_EQ(Blit(f), 0);
    EXPECT_EQ(h->pRender, nullptr);
    EXPECT_NE(h->pCropBuffer, nullptr);
    EXPECT_EQ(std::memcmp(h->pCropBuffer, f.y.data(), f.y.size()), 0);
    EXPECT_NE(InitOpenglRenderer(h, nullptr, nullptr), 0);
}

TEST_F(DisplayMgr, DeleteDestroysARunningRenderer)
{
    Ready();
    Frame f(64, 32);
    ASSERT_EQ(Blit(f), 0);
    EXPECT_EQ(RecordingRenderer::LiveInstances(), 1);
    EXPECT_EQ(MDisplayMgrDelete(h), 0);
    h = nullptr;
    EXPECT_EQ(RecordingRenderer::LiveInstances(), 0);
}

// --------------------------------------------------------------- parameters

TEST_F(DisplayMgr, NullParamIsRefusedForEveryIdAndUnknownIdsAreRefused)
{
    for (MDWord id : {(MDWord)M_DISPLAY_PARAM_VIEWPORT, (MDWord)ZT5_CFG_DISPLAY_UITOUCH_UP,
                      (MDWord)ZT5_CFG_DISPLAY_FONT_PATH, 0x12345678u}) {
        EXPECT_EQ(MDisplayMgrSetParam(h, id, nullptr, 4), ZT5_ERR_INVALID_PARAM) << std::hex << id;
        EXPECT_EQ(MDisplayMgrGetParam(h, id, nullptr, 4), ZT5_ERR_INVALID_PARAM) << std::hex << id;
    }
    MDWord v = 1;
    EXPECT_EQ(MDisplayMgrSetParam(nullptr, ZT5_CFG_DISPLAY_STATUS, &v, 4), ZT5_ERR_INVALID_PARAM);
    EXPECT_EQ(MDisplayMgrGetParam(nullptr, ZT5_CFG_DISPLAY_USE_OPENGLES, &v, 4), ZT5_ERR_INVALID_PARAM);

    // Ids the front end sends regardless: refused, stored nowhere.
    const MDWord refused[] = {M_DISPLAY_PARAM_FULLSCREEN, M_DISPLAY_PARAM_ADJUST, ZT5_CFG_DISPLAY_OPENGL_SCALE_RECT,
                              ZT5_CFG_DISPLAY_MULTI_DISPLAY, ZT5_CFG_CODEC_HINT};
    unsigned char payload[64] = {1};
    for (MDWord id : refused) EXPECT_EQ(MDisplayMgrSetParam(h, id, payload, 4), 3) << std::hex << id;
    EXPECT_EQ(MDisplayMgrGetParam(h, ZT5_CFG_DISPLAY_FISHEYE_MODE, payload, 4), 3);
}

TEST_F(DisplayMgr, SettingsWaitForTheRendererGesturesDoNot)
{
    ZT5TouchPoint pt = {1.0f, 2.0f};
    // Before any renderer: stored, nothing to forward to.
    EXPECT_EQ(SetWord(ZT5_CFG_DISPLAY_SCALE_RATIO, 175), 0);
    EXPECT_EQ(MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_UITOUCH_DOWN, &pt, 8), 0);
    EXPECT_EQ(h->dwScaleRatio, 175u);

    Ready();
    Frame f(64, 32);
    ASSERT_EQ(Blit(f), 0);
    std::vector<MDWord> ids = RecordingRenderer::SetConfigIds(1);
    EXPECT_EQ(std::count(ids.begin(), ids.end(), (MDWord)ZT5_CFG_DISPLAY_UITOUCH_DOWN), 0)
        << "a gesture without a renderer is lost";
    EXPECT_EQ(RecordingRenderer::Calls(RRCall::SetConfig, 1)[12].word, 175u);

    // With a renderer: stored and forwarded with the caller's pointer.
    RecordingRenderer::Clear();
    struct {
        MDWord id;
        bool stored;
    } table[] = {
        {ZT5_CFG_DISPLAY_STATUS, true},          {ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, true},
        {ZT5_CFG_DISPLAY_OPENGL_FULLVIEW, true}, {ZT5_CFG_DISPLAY_FE_BASE_ANIMATION, true},
        {ZT5_CFG_DISPLAY_FE_BG_STAR, true},      {ZT5_CFG_DISPLAY_FE_BG_CLOUD, true},
        {ZT5_CFG_DISPLAY_FE_PLATFORM, true},     {ZT5_CFG_DISPLAY_SCALE_RATIO, true},
        {ZT5_CFG_DISPLAY_MAX_SCALE, true},       {ZT5_CFG_DISPLAY_ROTATION_ANGLE, true},
    };
    MDWord values[10] = {1, 1, 1, 1, 1, 1, 7, 130, 600, 180};
    for (int i = 0; i < 10; i++) {
        EXPECT_EQ(MDisplayMgrSetParam(h, table[i].id, &values[i], 4), 0);
        auto calls = RecordingRenderer::Calls(RRCall::SetConfig);
        ASSERT_EQ(calls.size(), size_t(i + 1)) << std::hex << table[i].id;
        EXPECT_EQ(calls.back().id, table[i].id);
        EXPECT_EQ(calls.back().pValue, &values[i]);
    }
    EXPECT_EQ(h->bShowIt, 1u);
    EXPECT_EQ(h->curiseMode, 1u);
    EXPECT_EQ(h->bOpenGLFullView, 1u);
    EXPECT_EQ(h->bEnableAnimation, 1u);
    EXPECT_EQ(h->bNeedFEStar, 1u);
    EXPECT_EQ(h->bNeedFEBgCloud, 1u);
    EXPECT_EQ(h->dwFEPlatform, 7u);
    EXPECT_EQ(h->dwScaleRatio, 130u);
    EXPECT_EQ(h->dwDisplayMaxScale, 600u);
    EXPECT_EQ(h->dwRotation, 180u);

    RecordingRenderer::Clear();
    ZT5TouchPoint two[2] = {{1, 2}, {3, 4}};
    ZT5TouchPinch pinch = {1.5f, nullptr};
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_UITOUCH_DOWN, &pt, 8);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_UITOUCH_MOVED, two, 16);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_UITOUCH_UP, &pt, 8);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_UITOUCH_VELOCITY, &pinch, 8);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_UITOUCH_MOVE_VELOCITY, &pt, 8);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_UITOUCH_DOUBLETAP, &pt, 8);
    std::vector<MDWord> gestures = RecordingRenderer::SetConfigIds();
    std::vector<MDWord> expected = {ZT5_CFG_DISPLAY_UITOUCH_DOWN,     ZT5_CFG_DISPLAY_UITOUCH_MOVED,
                                    ZT5_CFG_DISPLAY_UITOUCH_UP,       ZT5_CFG_DISPLAY_UITOUCH_VELOCITY,
                                    ZT5_CFG_DISPLAY_UITOUCH_MOVE_VELOCITY, ZT5_CFG_DISPLAY_UITOUCH_DOUBLETAP};
    EXPECT_EQ(gestures, expected);

    // Store-only ids reach no renderer.
    RecordingRenderer::Clear();
    SetWord(ZT5_CFG_DISPLAY_FISHEYE_X_POS, 4);
    SetWord(ZT5_CFG_DISPLAY_USE_OPENGLES, 1);
    SetWord(ZT5_CFG_DISPLAY_YUV_BUFFER_MODE, 2);
    ZT5AlignInfo align = {1, 8};
    MDisplayMgrSetParam(h, ZT5_CFG_CODEC_ALIGNINFO, &align, 8);
    EXPECT_TRUE(RecordingRenderer::SetConfigIds().empty());
    EXPECT_EQ(h->dwFEStartX, 4u);
    EXPECT_EQ(h->dwYUVBufferMode, 2u);
    EXPECT_EQ(h->bNeedCrop, 1u);
    EXPECT_EQ(h->dwAlignCrop, 8u);
}

TEST_F(DisplayMgr, FisheyeModeReachesTheRendererAndChoosesTheCrop)
{
    Ready();
    Frame f(64, 32);
    ASSERT_EQ(Blit(f), 0);
    SetWord(ZT5_CFG_DISPLAY_FISHEYE_X_POS, 16);
    SetWord(ZT5_CFG_DISPLAY_FISHEYE_WIDTH, 32);
    SetWord(ZT5_CFG_DISPLAY_FISHEYE_HEIGHT, 32);
    RecordingRenderer::Clear();
    EXPECT_EQ(SetWord(ZT5_CFG_DISPLAY_FISHEYE_MODE, 5), 0);
    auto calls = RecordingRenderer::Calls(RRCall::SetConfig);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].word, 5u);
    EXPECT_EQ(h->m_lFishEyeMode, 5);
    EXPECT_EQ(h->bFishEye, 1u);
    ASSERT_EQ(Blit(f), 0);
    EXPECT_EQ(RecordingRenderer::Calls(RRCall::RenderBuffer).back().args[0], 32) << "the lens square is posted";

    EXPECT_EQ(SetWord(ZT5_CFG_DISPLAY_FISHEYE_MODE, 0), 0);
    EXPECT_EQ(h->bFishEye, 0u);
    ASSERT_EQ(Blit(f), 0);
    EXPECT_EQ(RecordingRenderer::Calls(RRCall::RenderBuffer).back().args[0], 64) << "the whole frame is posted";

    // A mode the renderer would refuse is refused here too, so crop and view
    // stay matched.
    RecordingRenderer::Clear();
    EXPECT_EQ(SetWord(ZT5_CFG_DISPLAY_FISHEYE_MODE, 11), ZT5_ERR_INVALID_PARAM);
    EXPECT_EQ(SetWord(ZT5_CFG_DISPLAY_FISHEYE_MODE, 0xFFFFFFFFu), ZT5_ERR_INVALID_PARAM);
    EXPECT_EQ(h->m_lFishEyeMode, 0);
    EXPECT_EQ(h->bFishEye, 0u);
    EXPECT_TRUE(RecordingRenderer::SetConfigIds().empty());
}

TEST_F(DisplayMgr, PointerPayloadsAreKeptAsPointers)
{
    unsigned char hostBuffer[16] = {0};
    CZT5Mutex hostMutex;
    EXPECT_EQ(MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_YUV_BUFFER, hostBuffer, 4), 0);
    EXPECT_EQ(h->pYUVBuffer, hostBuffer);
    EXPECT_EQ(MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_YUV_BUFFER_MUTEX, &hostMutex, 4), 0);
    EXPECT_EQ(h->hYUVBufferMutex, (void *)&hostMutex);
    MDWord len = 16;
    EXPECT_EQ(MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_YUV_BUFFER_LEN, &len, 4), 0);
    EXPECT_EQ(h->dwYUVBufferLen, 16u);

    // The window word: pointer-sized, or a 32-bit id when the sender says 4.
    MWindowHandle wide = 0x7654321;
    EXPECT_EQ(MDisplayMgrSetParam(h, ZT5_CFG_PLUGINMGR_HDL, &wide, sizeof(wide)), 0);
    EXPECT_EQ(h->hNativeWindow, wide);
    uint32_t narrow = 0x1abcdef;
    EXPECT_EQ(MDisplayMgrSetParam(h, ZT5_CFG_PLUGINMGR_HDL, &narrow, 4), 0);
    EXPECT_EQ(h->hNativeWindow, (MWindowHandle)narrow);
}

TEST_F(DisplayMgr, PlayerModeIsForwardedOnlyWithItsOwnSize)
{
    Ready();
    Frame f(64, 32);
    ASSERT_EQ(Blit(f), 0);
    RecordingRenderer::Clear();
    ZT5PlayerMode mode = {4, 1.0f};
    EXPECT_EQ(MDisplayMgrSetParam(h, ZT5_CFG_PLAYER_MODE, &mode, 4), 0);
    EXPECT_TRUE(RecordingRenderer::SetConfigIds().empty());
    EXPECT_EQ(MDisplayMgrSetParam(h, ZT5_CFG_PLAYER_MODE, &mode, 8), 0);
    EXPECT_EQ(RecordingRenderer::SetConfigIds(), std::vector<MDWord>{ZT5_CFG_PLAYER_MODE});
}

TEST_F(DisplayMgr, ViewportIsKeptAndReadBack)
{
    ZT5Viewport vp = {};
    vp.hWnd = (uint32_t)kWindowA;
    vp.dwRotation = 90;
    vp.dwOrientationMode = 2;
    vp.lLeft = 10;
    vp.lTop = 20;
    vp.lWidth = 300;
    vp.lHeight = 200;
    EXPECT_EQ(MDisplayMgrSetParam(h, M_DISPLAY_PARAM_VIEWPORT, &vp, sizeof(vp)), 0);
    EXPECT_EQ(h->hContext, kWindowA) << "a window before the first blit is only remembered";
    EXPECT_EQ(Count(RRCall::Construct), 0u);

    ZT5Viewport announce = {};
    announce.hWnd = (uint32_t)kWindowB;
    announce.dwOrientationMode = 1;
    EXPECT_EQ(MDisplayMgrSetParam(h, M_DISPLAY_PARAM_VIEWPORT, &announce, sizeof(announce)), 0);
    EXPECT_EQ(h->hContext, kWindowA) << "a zero-size viewport doesn't take its window";

    ZT5Viewport back;
    std::memset(&back, 0xee, sizeof(back));
    EXPECT_EQ(MDisplayMgrGetParam(h, M_DISPLAY_PARAM_VIEWPORT, &back, sizeof(back)), 0);
    EXPECT_EQ(std::memcmp(&back, &vp, sizeof(vp)), 0) << "the last record with an area comes back";
}

TEST_F(DisplayMgr, GettersAnswerFromContextOrRenderer)
{
    MDisplayCaps caps;
    std::memset(&caps, 0x5a, sizeof(caps));
    EXPECT_EQ(MDisplayMgrGetParam(h, M_DISPLAY_PARAM_CAPS, &caps, sizeof(caps)), 0);
    EXPECT_EQ(caps.dwAlignX, 4u);
    EXPECT_EQ(caps.dwAlignY, 4u);
    EXPECT_EQ(caps.dwPixelFormat, 5u);
    EXPECT_EQ(caps.dwReserved0, 0x5a5a5a5au) << "other fields are not touched";
    EXPECT_EQ(caps.dwReserved6, 0x5a5a5a5au);

    MDWord gl = 7;
    EXPECT_EQ(MDisplayMgrGetParam(h, ZT5_CFG_DISPLAY_USE_OPENGLES, &gl, 4), 0);
    EXPECT_EQ(gl, 0u);

    // No renderer: the caller's variables stay as they were.
    MDWord scale = 12345, maxScale = 54321;
    void *snapshot = (void *)0x1;
    void *status = (void *)0x2;
    EXPECT_EQ(MDisplayMgrGetParam(h, ZT5_CFG_DISPLAY_SCALE_RATIO, &scale, 4), 0);
    EXPECT_EQ(MDisplayMgrGetParam(h, ZT5_CFG_DISPLAY_MAX_SCALE, &maxScale, 4), 0);
    EXPECT_EQ(MDisplayMgrGetParam(h, ZT5_CFG_DISPLAY_GL_SNAPSHOT, &snapshot, 4), 0);
    EXPECT_EQ(MDisplayMgrGetParam(h, ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS, &status, 4), 0);
    EXPECT_EQ(scale, 12345u);
    EXPECT_EQ(maxScale, 54321u);
    EXPECT_EQ(snapshot, (void *)0x1);
    EXPECT_EQ(status, (void *)0x2);

    Ready();
    Frame f(64, 32);
    ASSERT_EQ(Blit(f), 0);
    auto *rr = static_cast<RecordingRenderer *>(h->pRender);
    EXPECT_EQ(MDisplayMgrGetParam(h, ZT5_CFG_DISPLAY_USE_OPENGLES, &gl, 4), 0);
    EXPECT_EQ(gl, 1u);
    EXPECT_EQ(MDisplayMgrGetParam(h, ZT5_CFG_DISPLAY_SCALE_RATIO, &scale, 4), 0);
    EXPECT_EQ(scale, RecordingRenderer::Options().scaleRatioAnswer);
    EXPECT_EQ(MDisplayMgrGetParam(h, ZT5_CFG_DISPLAY_MAX_SCALE, &maxScale, 4), 0);
    EXPECT_EQ(maxScale, RecordingRenderer::Options().maxScaleAnswer);
    EXPECT_EQ(MDisplayMgrGetParam(h, ZT5_CFG_DISPLAY_GL_SNAPSHOT, &snapshot, 4), 0);
    EXPECT_EQ(snapshot, (void *)&rr->m_snapshot);
    EXPECT_EQ(MDisplayMgrGetParam(h, ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS, &status, 4), 0);
    EXPECT_EQ(status, (void *)&rr->m_status);
}

} // namespace

// The display object through the interface a host uses (ZT_GetPlugin,
// CreateObject, IZT5Display), with the calls that reach the display manager
// recorded: lifecycle, bad input, the parameter catalogue, the replay of
// remembered parameters at Init, the frame road and the two handles.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "RecordingRenderer.h"
#include "test_frontend_util.h"

using namespace fetest;

namespace {

const uint32_t kWnd = 0x4400001;

class Frontend : public ::testing::Test {
protected:
    void SetUp() override
    {
        RecordingRenderer::Install();
        ASSERT_EQ(ZT_GetPlugin(&plugin), 0);
        void *obj = nullptr;
        ASSERT_EQ(plugin->CreateObject(ZT5_PLUGIN_TYPE_DISP, ZT5_PLUGIN_TYPE_DISP, &obj), 0);
        disp = static_cast<IZT5Display *>(obj);
    }
    void TearDown() override
    {
        if (disp) {
            EXPECT_EQ(plugin->DestroyObject(ZT5_PLUGIN_TYPE_DISP, ZT5_PLUGIN_TYPE_DISP, disp), 0);
        }
        ZT_ReleasePlugin(plugin);
        RecordingRenderer::Uninstall();
    }
    int32_t SetU32(uint32_t id, uint32_t v) { return disp->SetDisplayParam(id, &v); }
    int32_t GetU32(uint32_t id, uint32_t *v) { return disp->GetDisplayParam(id, v); }
    int32_t InitDefault(int cw = 1280, int ch = 720)
    {
        ZT5DisplayParam rec = MakeRecord(kWnd, cw, ch);
        return disp->Init(&rec);
    }

    IZT5Plugin *plugin = nullptr;
    IZT5Display *disp = nullptr;
};

// Every id the host may send, and some it must not.
const uint32_t kAllIds[] = {
    FETEST_HOST_IDS
    // ids of the library's own layers, and numbers nobody uses
    ZT5_CFG_PLUGINMGR_HDL, ZT5_CFG_DISPLAY_RENDERER_INITED, 0x12345, 0xFFFFFFFF, 0};

} // namespace

// ------------------------------------------------------------ lifecycle

TEST_F(Frontend, FramesBeforeInitAndAfterUninitAreNotReady)
{
    std::vector<uint8_t> buf(64 * 64 * 3 / 2);
    ZT5FrameInfo info = MakeInfo(64, 64);
    EXPECT_EQ(disp->DrawFrame(buf.data(), &info, 0), ZT5_ERR_NOT_READY);
    EXPECT_EQ(disp->DrawFrame(nullptr, nullptr, 0), ZT5_ERR_NOT_READY);
    ASSERT_EQ(InitDefault(), 0);
    EXPECT_EQ(disp->DrawFrame(buf.data(), &info, 0), 0);
    EXPECT_EQ(disp->Uninit(), 0);
    EXPECT_EQ(disp->Uninit(), 0);
    EXPECT_EQ(disp->DrawFrame(buf.data(), &info, 0), ZT5_ERR_NOT_READY);
    EXPECT_EQ(disp->DrawFrame(nullptr, nullptr, 0), ZT5_ERR_NOT_READY);
    // And it can be initialised again.
    EXPECT_EQ(InitDefault(), 0);
    EXPECT_EQ(disp->DrawFrame(buf.data(), &info, 0), 0);
}

TEST_F(Frontend, InitTwiceAndNullRecord)
{
    EXPECT_EQ(disp->Init(nullptr), ZT5_ERR_INVALID_PARAM);
    ASSERT_EQ(InitDefault(), 0);
    EXPECT_EQ(InitDefault(), ZT5_ERR_ALREADY_INITED);
    // The already-initialised test comes before the null test.
    EXPECT_EQ(disp->Init(nullptr), ZT5_ERR_ALREADY_INITED);
}

TEST_F(Frontend, BadRectanglesRefuseAndLeaveTheDisplayUninitialised)
{
    MgrJournal j;
    ZT5DisplayParam rec = MakeRecord(kWnd, 0, 0);
    EXPECT_EQ(disp->Init(&rec), ZT5_ERR_INVALID_PARAM);
    // Rectangles that only touch at an edge.
    rec.rtScreen = {0, 0, 100, 100};
    rec.rtClip = {100, 0, 200, 100};
    EXPECT_EQ(disp->Init(&rec), ZT5_ERR_INVALID_PARAM);
    rec.rtClip = {0, 100, 100, 200};
    EXPECT_EQ(disp->Init(&rec), ZT5_ERR_INVALID_PARAM);
    // A reversed rectangle has no positive size.
    rec.rtScreen = {100, 100, 0, 0};
    rec.rtClip = {100, 100, 0, 0};
    EXPECT_EQ(disp->Init(&rec), ZT5_ERR_INVALID_PARAM);
    // Sizes too large for the geometry.
    rec.rtScreen = {INT32_MIN, 0, INT32_MAX, 100};
    rec.rtClip = rec.rtScreen;
    EXPECT_EQ(disp->Init(&rec), ZT5_ERR_INVALID_PARAM);
    EXPECT_TRUE(j.Of(kMgrOpCreate).empty()) << "no handle is made for bad rectangles";

    ZT5FrameInfo info = MakeInfo(16, 16);
    std::vector<uint8_t> buf(16 * 16 * 3 / 2);
    EXPECT_EQ(disp->DrawFrame(buf.data(), &info, 0), ZT5_ERR_NOT_READY);
    ZT5DisplayParam back;
    ASSERT_EQ(disp->GetDisplayParam(ZT5_CFG_DISPLAY_PARAM, &back), 0);
    EXPECT_EQ(back.hWnd, 0u);

    // An empty clip with a good screen is taken and becomes the screen.
    rec = MakeRecord(kWnd, 640, 480);
    rec.rtClip = {0, 0, 0, 0};
    ASSERT_EQ(disp->Init(&rec), 0);
    ASSERT_EQ(disp->GetDisplayParam(ZT5_CFG_DISPLAY_PARAM, &back), 0);
    EXPECT_EQ(back.rtClip.right, 640);
    EXPECT_EQ(back.rtClip.bottom, 480);
}

TEST_F(Frontend, DestroyWithoutUninitDeletesBothHandles)
{
    MgrJournal j;
    ASSERT_EQ(InitDefault(), 0);
    std::vector<uint8_t> buf(32 * 32 * 3 / 2);
    ZT5FrameInfo info = MakeInfo(32, 32);
    ASSERT_EQ(disp->DrawFrame(buf.data(), &info, 0), 0);
    auto created = j.Of(kMgrOpCreate);
    ASSERT_EQ(created.size(), 2u);
    EXPECT_EQ(plugin->DestroyObject(ZT5_PLUGIN_TYPE_DISP, ZT5_PLUGIN_TYPE_DISP, disp), 0);
    disp = nullptr;
    auto deleted = j.Of(kMgrOpDelete);
    std::vector<MDisplayHandle> c = {created[0].call.hDisplay, created[1].call.hDisplay};
    std::vector<MDisplayHandle> d;
    for (auto &e : deleted) d.push_back(e.call.hDisplay);
    std::sort(c.begin(), c.end());
    std::sort(d.begin(), d.end());
    EXPECT_EQ(c, d) << "each handle deleted exactly once";
}

// ------------------------------------------------------------ parameters

TEST_F(Frontend, NullPayloadIsRefusedForEveryIdAndUnknownIdsAreUnsupported)
{
    for (int phase = 0; phase < 2; ++phase) {
        for (uint32_t id : kAllIds) {
            EXPECT_EQ(disp->SetDisplayParam(id, nullptr), ZT5_ERR_INVALID_PARAM) << std::hex << id;
            EXPECT_EQ(disp->GetDisplayParam(id, nullptr), ZT5_ERR_INVALID_PARAM) << std::hex << id;
        }
        if (phase == 0) {
            ASSERT_EQ(InitDefault(), 0);
        }
    }
    uint32_t word = 0;
    for (uint32_t id : {0x12345u, 0xFFFFFFFFu, 0u, (uint32_t)ZT5_CFG_PLUGINMGR_HDL,
                        (uint32_t)ZT5_CFG_DISPLAY_RENDERER_INITED, (uint32_t)ZT5_CFG_COMMON_BENCHMARK,
                        (uint32_t)ZT5_CFG_DISPLAY_GL_SNAPSHOT})
        EXPECT_EQ(disp->SetDisplayParam(id, &word), ZT5_ERR_UNSUPPORTED) << std::hex << id;
    for (uint32_t id : {0x12345u, (uint32_t)ZT5_CFG_DISPLAY_FIT_MODE, (uint32_t)ZT5_CFG_DISPLAY_UITOUCH_DOWN,
                        (uint32_t)ZT5_CFG_COMMON_ORIENTATION})
        EXPECT_EQ(disp->GetDisplayParam(id, &word), ZT5_ERR_UNSUPPORTED) << std::hex << id;
}

TEST_F(Frontend, ZoomRotationAndOrientationLimits)
{
    uint32_t v = 0;
    EXPECT_EQ(SetU32(ZT5_CFG_DISPLAY_ZOOM, 24), ZT5_ERR_INVALID_PARAM);
    EXPECT_EQ(SetU32(ZT5_CFG_DISPLAY_ZOOM, 801), ZT5_ERR_INVALID_PARAM);
    ASSERT_EQ(GetU32(ZT5_CFG_DISPLAY_ZOOM, &v), 0);
    EXPECT_EQ(v, 100u);
    EXPECT_EQ(SetU32(ZT5_CFG_DISPLAY_ZOOM, 25), 0);
    ASSERT_EQ(GetU32(ZT5_CFG_DISPLAY_ZOOM, &v), 0);
    EXPECT_EQ(v, 25u);
    EXPECT_EQ(SetU32(ZT5_CFG_DISPLAY_ZOOM, 800), 0);
    ASSERT_EQ(GetU32(ZT5_CFG_DISPLAY_ZOOM, &v), 0);
    EXPECT_EQ(v, 800u);
    // Any zoom is refused outside fit mode 0.
    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_FIT_MODE, 1), 0);
    EXPECT_EQ(SetU32(ZT5_CFG_DISPLAY_ZOOM, 100), ZT5_ERR_INVALID_PARAM);

    ASSERT_EQ(SetU32(ZT5_CFG_COMMON_ROTATION, 90), 0);
    EXPECT_EQ(SetU32(ZT5_CFG_COMMON_ROTATION, 45), ZT5_ERR_INVALID_PARAM);
    ASSERT_EQ(GetU32(ZT5_CFG_COMMON_ROTATION, &v), 0);
    EXPECT_EQ(v, 90u);
    EXPECT_EQ(SetU32(ZT5_CFG_COMMON_ROTATION, 360), ZT5_ERR_INVALID_PARAM);
    EXPECT_EQ(SetU32(ZT5_CFG_COMMON_ORIENTATION, 3), ZT5_ERR_UNSUPPORTED);
    EXPECT_EQ(SetU32(ZT5_CFG_COMMON_ORIENTATION, 2), 0);
}

TEST_F(Frontend, ShowFlagForwardsOnlyChangesAndNormalisesTheStoredValue)
{
    ASSERT_EQ(InitDefault(), 0);
    MgrJournal j;
    uint32_t v = 7;
    EXPECT_EQ(SetU32(ZT5_CFG_DISPLAY_STATUS, 1), 0);
    EXPECT_TRUE(j.Of(kMgrOpSetParam, ZT5_CFG_DISPLAY_STATUS).empty()) << "no change, nothing sent";
    EXPECT_EQ(SetU32(ZT5_CFG_DISPLAY_STATUS, 2), 0);
    auto sent = j.Of(kMgrOpSetParam, ZT5_CFG_DISPLAY_STATUS);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].Word(), 2u);
    EXPECT_EQ(sent[0].call.dwSize, 4u);
    ASSERT_EQ(GetU32(ZT5_CFG_DISPLAY_STATUS, &v), 0);
    EXPECT_EQ(v, 1u);

    // Hidden: a frame is a no-op that doesn't even look at its arguments.
    EXPECT_EQ(SetU32(ZT5_CFG_DISPLAY_STATUS, 0), 0);
    j.Clear();
    EXPECT_EQ(disp->DrawFrame(nullptr, nullptr, 0), 0);
    EXPECT_TRUE(j.Of(kMgrOpBlit).empty());
}

TEST_F(Frontend, ReadsThroughTheHandleLeaveTheCallersWordWithoutOne)
{
    uint32_t word = 0xABCD;
    EXPECT_EQ(GetU32(ZT5_CFG_DISPLAY_USE_OPENGLES, &word), 0);
    EXPECT_EQ(word, 0xABCDu);
    void *ptr = &word;
    EXPECT_EQ(disp->GetDisplayParam(ZT5_CFG_DISPLAY_GL_SNAPSHOT, &ptr), 0);
    EXPECT_EQ(ptr, &word);
    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_USE_OPENGLES, 1), 0);
    ASSERT_EQ(InitDefault(), 0);
    word = 0xABCD;
    EXPECT_EQ(GetU32(ZT5_CFG_DISPLAY_USE_OPENGLES, &word), 0);
    EXPECT_EQ(word, 1u) << "the remembered switch reached the manager at Init";
}

// The remembered parameters go to the manager at Init in one fixed order,
// to the high handle only.
TEST_F(Frontend, InitReplaysRememberedParametersInOrder)
{
    float touchVel[2] = {1, 2}, doubleTap[2] = {3, 4}, pinchCentre[2] = {5, 6};
    ZT5UICallbackRecord ui = {};
    FECurrentStatusData status = {};
    ZT5DistortionParam dist = {};
    char font[] = "/nonexistent/font.ttf";
    int eagl = 0;
    uint8_t logoBytes[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    ZT5VideoLogo logo = {logoBytes, 0.1f, 0.2f, 0.3f, 0.4f, sizeof(logoBytes)};
    uint8_t yuv[64];
    CZT5Mutex yuvMutex;
    ZT5TouchPinch pinch = {1.5f, pinchCentre};

    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_USE_OPENGLES, 1), 0);
    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_OPENGL_FULLVIEW, 1), 0);
    ASSERT_EQ(disp->SetDisplayParam(ZT5_CFG_DISPLAY_UICALLBACK, &ui), 0);
    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, 4), 0);
    ASSERT_EQ(disp->SetDisplayParam(ZT5_CFG_DISPLAY_UITOUCH_MOVE_VELOCITY, touchVel), 0);
    ASSERT_EQ(disp->SetDisplayParam(ZT5_CFG_DISPLAY_UITOUCH_VELOCITY, &pinch), 0);
    ASSERT_EQ(disp->SetDisplayParam(ZT5_CFG_DISPLAY_UITOUCH_DOUBLETAP, doubleTap), 0);
    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, 1), 0);
    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_AUTOCURISE_VELOCITY, 0x40000000), 0);
    ASSERT_EQ(disp->SetDisplayParam(ZT5_CFG_DISPLAY_FE_CURRENTSTATUS, &status), 0);
    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_FE_BASE_ANIMATION, 1), 0);
    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_YUV_BUFFER_MODE, 3), 0);
    ASSERT_EQ(disp->SetDisplayParam(ZT5_CFG_DISPLAY_YUV_BUFFER, yuv), 0);
    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_YUV_BUFFER_LEN, sizeof(yuv)), 0);
    ASSERT_EQ(disp->SetDisplayParam(ZT5_CFG_DISPLAY_YUV_BUFFER_MUTEX, &yuvMutex), 0);
    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_ROTATION_ANGLE, 180), 0);
    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_FE_PLATFORM, 2), 0);
    ASSERT_EQ(disp->SetDisplayParam(ZT5_CFG_DISPLAY_EAGL_LAYER, &eagl), 0);
    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_SCALE_RATIO, 150), 0);
    ASSERT_EQ(disp->SetDisplayParam(ZT5_CFG_DISPLAY_DISTORTION_PARAM, &dist), 0);
    ASSERT_EQ(disp->SetDisplayParam(ZT5_CFG_DISPLAY_FONT_PATH, font), 0);
    ASSERT_EQ(disp->SetDisplayParam(ZT5_CFG_DISPLAY_LOGO_DATA, &logo), 0);
    // A gesture before Init has nowhere to go and is lost.
    ZT5TouchPoint down = {10, 20};
    ASSERT_EQ(disp->SetDisplayParam(ZT5_CFG_DISPLAY_UITOUCH_DOWN, &down), 0);

    MgrJournal j;
    ASSERT_EQ(InitDefault(), 0);
    auto created = j.Of(kMgrOpCreate);
    ASSERT_EQ(created.size(), 2u);
    MDisplayHandle high = created[0].call.hDisplay;
    auto sets = j.Of(kMgrOpSetParam);

    struct Want {
        uint32_t id;
        uint32_t size;
        const void *pointer; // the host's pointer passed on, or null for an address of a member
    };
    const Want want[] = {
        {ZT5_CFG_PLUGINMGR_HDL, 4, nullptr},
        {ZT5_CFG_DISPLAY_USE_OPENGLES, 4, nullptr},
        {ZT5_CFG_DISPLAY_OPENGL_FULLVIEW, 4, nullptr},
        {ZT5_CFG_DISPLAY_UICALLBACK, 60, &ui},
        {ZT5_CFG_DISPLAY_FISHEYE_MODE, 4, nullptr},
        {ZT5_CFG_DISPLAY_UITOUCH_MOVE_VELOCITY, 4, touchVel},
        {ZT5_CFG_DISPLAY_UITOUCH_VELOCITY, 8, nullptr},
        {ZT5_CFG_DISPLAY_UITOUCH_DOUBLETAP, 4, doubleTap},
        {ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, 4, nullptr},
        {ZT5_CFG_DISPLAY_AUTOCURISE_VELOCITY, 4, nullptr},
        {ZT5_CFG_DISPLAY_FE_CURRENTSTATUS, 4, &status},
        {ZT5_CFG_DISPLAY_FE_BASE_ANIMATION, 4, nullptr},
        {ZT5_CFG_DISPLAY_FE_BG_STAR, 4, nullptr},
        {ZT5_CFG_DISPLAY_FE_BG_CLOUD, 4, nullptr},
        {ZT5_CFG_DISPLAY_YUV_BUFFER_MODE, 4, nullptr},
        {ZT5_CFG_DISPLAY_YUV_BUFFER, 4, yuv},
        {ZT5_CFG_DISPLAY_YUV_BUFFER_LEN, 4, nullptr},
        {ZT5_CFG_DISPLAY_YUV_BUFFER_MUTEX, 4, &yuvMutex},
        {ZT5_CFG_DISPLAY_YUV_BUFFER_MODE, 4, nullptr},
        {ZT5_CFG_DISPLAY_ROTATION_ANGLE, 4, nullptr},
        {ZT5_CFG_DISPLAY_MULTI_DISPLAY, 4, nullptr},
        {ZT5_CFG_DISPLAY_FE_PLATFORM, 4, nullptr},
        {ZT5_CFG_DISPLAY_EAGL_LAYER, 4, &eagl},
        {ZT5_CFG_DISPLAY_SCALE_RATIO, 4, nullptr},
        {ZT5_CFG_DISPLAY_MAX_SCALE, 4, nullptr},
        {ZT5_CFG_DISPLAY_DISTORTION_PARAM, 4, &dist},
        {ZT5_CFG_DISPLAY_FONT_PATH, 4, nullptr},
        {ZT5_CFG_DISPLAY_LOGO_DATA, 24, nullptr},
    };
    ASSERT_EQ(sets.size(), sizeof(want) / sizeof(want[0]));
    for (size_t i = 0; i < sets.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(sets[i].call.dwParamID, want[i].id) << std::hex << sets[i].call.dwParamID;
        EXPECT_EQ(sets[i].call.dwSize, want[i].size);
        EXPECT_EQ(sets[i].call.hDisplay, high) << "only the high handle gets the replay";
        if (want[i].pointer) {
            EXPECT_EQ(sets[i].call.pValue, want[i].pointer);
        }
    }
    // Values travel as remembered.
    EXPECT_EQ(sets[0].Word(), kWnd);
    EXPECT_EQ(sets[4].Word(), 4u);
    EXPECT_EQ(sets[19].Word(), 180u);
    EXPECT_EQ(sets[23].Word(), 150u);
    EXPECT_EQ(sets[24].Word(), 400u) << "max scale keeps its first value";
    const ZT5TouchPinch *pp = static_cast<const ZT5TouchPinch *>(sets[6].call.pValue);
    EXPECT_EQ(pp->zoomRate, 1.5f);
    EXPECT_EQ(pp->pCenter, pinchCentre);
    // Font path and logo are copies of our own: the host's bytes may go away.
    EXPECT_NE(sets[26].call.pValue, (void *)font);
    EXPECT_STREQ(static_cast<const char *>(sets[26].call.pValue), font);
    const ZT5VideoLogo *pl = static_cast<const ZT5VideoLogo *>(sets[27].call.pValue);
    EXPECT_NE(pl->pData, (void *)logoBytes);
    EXPECT_EQ(pl->dwDataSize, sizeof(logoBytes));
    EXPECT_EQ(std::memcmp(pl->pData, logoBytes, sizeof(logoBytes)), 0);
    EXPECT_EQ(pl->fWidth, 0.3f);

    // A gesture after Init is passed on, and only to the current handle.
    j.Clear();
    ASSERT_EQ(disp->SetDisplayParam(ZT5_CFG_DISPLAY_UITOUCH_DOWN, &down), 0);
    auto g = j.Of(kMgrOpSetParam, ZT5_CFG_DISPLAY_UITOUCH_DOWN);
    ASSERT_EQ(g.size(), 1u);
    EXPECT_EQ(g[0].call.pValue, &down);
    EXPECT_EQ(g[0].call.hDisplay, high);

    // A value changed after Init survives Uninit and is replayed to the new
    // handle of the next Init; the YUV buffer group goes only with a length.
    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, 7), 0);
    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_YUV_BUFFER_LEN, 0), 0);
    ASSERT_EQ(disp->Uninit(), 0);
    j.Clear();
    ASSERT_EQ(InitDefault(), 0);
    MgrEvent e;
    ASSERT_TRUE(j.LastSet(ZT5_CFG_DISPLAY_FISHEYE_MODE, &e));
    EXPECT_EQ(e.Word(), 7u);
    EXPECT_EQ(j.Of(kMgrOpSetParam).size(), sizeof(want) / sizeof(want[0]) - 4);
    EXPECT_TRUE(j.Of(kMgrOpSetParam, ZT5_CFG_DISPLAY_YUV_BUFFER).empty());
    EXPECT_TRUE(j.Of(kMgrOpSetParam, ZT5_CFG_DISPLAY_UITOUCH_DOWN).empty());
}

// ------------------------------------------------------------ frame road

TEST_F(Frontend, FrameWithoutSizeOrDataIsRefused)
{
    ASSERT_EQ(InitDefault(), 0);
    MgrJournal j;
    std::vector<uint8_t> buf(64 * 48 * 3 / 2);
    ZT5FrameInfo info = MakeInfo(64, 48);
    ASSERT_EQ(disp->DrawFrame(buf.data(), &info, 0), 0);
    ZT5FrameInfo bad = info;
    bad.dwWidth = 0;
    EXPECT_EQ(disp->DrawFrame(buf.data(), &bad, 0), ZT5_ERR_INVALID_PARAM);
    bad = info;
    bad.dwHeight = 0;
    EXPECT_EQ(disp->DrawFrame(buf.data(), &bad, 0), ZT5_ERR_INVALID_PARAM);
    bad = info;
    bad.dwWidth = 20000; // beyond what the geometry takes
    EXPECT_EQ(disp->DrawFrame(buf.data(), &bad, 0), ZT5_ERR_INVALID_PARAM);
    EXPECT_EQ(disp->DrawFrame(buf.data(), nullptr, 0), ZT5_ERR_INVALID_PARAM);
    // No data: refused; with bSkipRender the frame goes the whole way.
    EXPECT_EQ(disp->DrawFrame(nullptr, &info, 0), ZT5_ERR_INVALID_PARAM);
    j.Clear();
    EXPECT_EQ(disp->DrawFrame(nullptr, &info, 1), 0);
    auto blits = j.Of(kMgrOpBlit);
    ASSERT_EQ(blits.size(), 1u);
    EXPECT_EQ(blits[0].call.bSkipRender, 1u);
    // The refused frames left the frame description alone: the same frame
    // again changes nothing (no new description, no viewport).
    EXPECT_TRUE(j.Of(kMgrOpSetParam, M_DISPLAY_PARAM_FRAMEINFO).empty());
    EXPECT_TRUE(j.Of(kMgrOpSetParam, M_DISPLAY_PARAM_VIEWPORT).empty());
}

// A frame that changes nothing does no geometry work: only the four lens
// values go to the manager, then the blit.
TEST_F(Frontend, UnchangedFrameSendsOnlyTheLensBoxAndTheBlit)
{
    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_USE_OPENGLES, 1), 0);
    ASSERT_EQ(InitDefault(), 0);
    MgrJournal j;
    std::vector<uint8_t> buf = MakePatternI420(320, 240);
    ZT5FrameInfo info = MakeInfo(320, 240);
    ASSERT_EQ(disp->DrawFrame(buf.data(), &info, 0), 0);
    auto first = j.Events();
    EXPECT_FALSE(j.Of(kMgrOpSetParam, M_DISPLAY_PARAM_VIEWPORT).empty());
    EXPECT_FALSE(j.Of(kMgrOpSetParam, M_DISPLAY_PARAM_FRAMEINFO).empty());
    EXPECT_FALSE(j.Of(kMgrOpEraseRect).empty());
    for (int i = 0; i < 3; ++i) {
        j.Clear();
        ASSERT_EQ(disp->DrawFrame(buf.data(), &info, 0), 0);
        auto ev = j.Events();
        ASSERT_EQ(ev.size(), 5u);
        EXPECT_EQ(ev[0].call.dwParamID, (uint32_t)ZT5_CFG_DISPLAY_FISHEYE_X_POS);
        EXPECT_EQ(ev[1].call.dwParamID, (uint32_t)ZT5_CFG_DISPLAY_FISHEYE_Y_POS);
        EXPECT_EQ(ev[2].call.dwParamID, (uint32_t)ZT5_CFG_DISPLAY_FISHEYE_WIDTH);
        EXPECT_EQ(ev[3].call.dwParamID, (uint32_t)ZT5_CFG_DISPLAY_FISHEYE_HEIGHT);
        EXPECT_EQ(ev[4].call.op, kMgrOpBlit);
        EXPECT_EQ(ev[4].call.result, 0);
    }
    // Another description is noticed at once.
    ZT5FrameInfo other = info;
    other.dwRotation = 90;
    j.Clear();
    ASSERT_EQ(disp->DrawFrame(buf.data(), &other, 0), 0);
    EXPECT_EQ(j.Of(kMgrOpSetParam, M_DISPLAY_PARAM_VIEWPORT).size() >= 1, true);
}

TEST_F(Frontend, FrameCallbackTakesPlainFramesOnly)
{
    struct Count {
        int calls = 0;
        void *last = nullptr;
    } count;
    ZT5FrameCallback cb = {[](void *frame, void *arg) -> int32_t {
                               auto *c = static_cast<Count *>(arg);
                               c->calls++;
                               c->last = frame;
                               return 42;
                           },
                           &count};
    ASSERT_EQ(disp->SetDisplayParam(ZT5_CFG_CODEC_FRAME_CALLBACK, &cb), 0);
    ASSERT_EQ(InitDefault(), 0);
    MgrJournal j;
    std::vector<uint8_t> buf(64 * 64 * 3 / 2);
    ZT5FrameInfo info = MakeInfo(64, 64);
    EXPECT_EQ(disp->DrawFrame(buf.data(), &info, 0), 42);
    EXPECT_EQ(count.calls, 1);
    EXPECT_EQ(count.last, buf.data());
    EXPECT_TRUE(j.Of(kMgrOpBlit).empty());
    uint32_t triple[3] = {0, 0, 0};
    ASSERT_EQ(disp->GetDisplayParam(ZT5_CFG_COMMON_BENCHMARK_FRAME, triple), 0);
    EXPECT_EQ(triple[1], 1u) << "item 6 counts the callback";

    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, 1), 0);
    EXPECT_EQ(disp->DrawFrame(buf.data(), &info, 0), 0);
    EXPECT_EQ(count.calls, 1);
    EXPECT_EQ(j.Of(kMgrOpBlit).size(), 1u);

    // Uninit forgets the callback.
    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, 0), 0);
    ASSERT_EQ(disp->Uninit(), 0);
    ASSERT_EQ(InitDefault(), 0);
    EXPECT_EQ(disp->DrawFrame(buf.data(), &info, 0), 0);
    EXPECT_EQ(count.calls, 1);
}

TEST_F(Frontend, BenchmarkCountsBlitsAndResets)
{
    ASSERT_EQ(InitDefault(), 0);
    std::vector<uint8_t> buf(64 * 64 * 3 / 2);
    ZT5FrameInfo info = MakeInfo(64, 64);
    for (int i = 0; i < 5; ++i) ASSERT_EQ(disp->DrawFrame(buf.data(), &info, 0), 0);
    uint32_t triple[3] = {0, 0, 0};
    ASSERT_EQ(disp->GetDisplayParam(ZT5_CFG_COMMON_BENCHMARK_BLIT, triple), 0);
    EXPECT_EQ(triple[1], 5u);
    ZT5BenchmarkRecord rec = {};
    rec.dwWords[1] = 0;
    ASSERT_EQ(disp->GetDisplayParam(ZT5_CFG_COMMON_BENCHMARK, &rec), 0);
    EXPECT_EQ(rec.dwWords[12], 5u);
    EXPECT_EQ(rec.dwWords[21], 5u);
    rec.dwWords[1] = 3;
    EXPECT_EQ(disp->GetDisplayParam(ZT5_CFG_COMMON_BENCHMARK, &rec), ZT5_ERR_INVALID_PARAM);

    uint32_t any = 0;
    ASSERT_EQ(disp->SetDisplayParam(ZT5_CFG_COMMON_BENCHMARK_RESET, &any), 0);
    uint32_t sentinel[3] = {7, 7, 7};
    ASSERT_EQ(disp->GetDisplayParam(ZT5_CFG_COMMON_BENCHMARK_BLIT, sentinel), 0);
    EXPECT_EQ(sentinel[1], 7u) << "no item after a reset: the caller's words stay";
    ASSERT_EQ(disp->DrawFrame(buf.data(), &info, 0), 0);
    ASSERT_EQ(disp->GetDisplayParam(ZT5_CFG_COMMON_BENCHMARK_BLIT, triple), 0);
    EXPECT_EQ(triple[1], 1u);
    // Mode 1 stops measuring.
    ZT5PlayerMode mode = {1, 1.0f};
    ASSERT_EQ(disp->SetDisplayParam(ZT5_CFG_PLAYER_MODE, &mode), 0);
    ASSERT_EQ(disp->DrawFrame(buf.data(), &info, 0), 0);
    ASSERT_EQ(disp->GetDisplayParam(ZT5_CFG_COMMON_BENCHMARK_BLIT, triple), 0);
    EXPECT_EQ(triple[1], 1u);
}

// ------------------------------------------------------------ two handles

TEST_F(Frontend, SwitchByIdWinsOverTheOverlayCalls)
{
    ASSERT_EQ(InitDefault(), 0);
    MgrJournal j0;
    std::vector<uint8_t> buf(64 * 64 * 3 / 2);
    ZT5FrameInfo info = MakeInfo(64, 64);
    ASSERT_EQ(disp->DrawFrame(buf.data(), &info, 0), 0);
    MDisplayHandle high = j0.Of(kMgrOpBlit)[0].call.hDisplay;

    MgrJournal j;
    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_SWITCH_HANDLE, 0), 0);
    auto shows = j.Of(kMgrOpSetShow);
    ASSERT_EQ(shows.size(), 1u);
    EXPECT_EQ(shows[0].call.hDisplay, high);
    EXPECT_EQ(shows[0].call.dwSize, 0u);

    EXPECT_EQ(disp->ShowDisplayOverlay(1), 0);
    EXPECT_EQ(disp->ShowDisplayOverlay(0), 1);
    j.Clear();
    ASSERT_EQ(disp->DrawFrame(buf.data(), &info, 0), 0);
    auto blits = j.Of(kMgrOpBlit);
    ASSERT_EQ(blits.size(), 1u);
    MDisplayHandle low = blits[0].call.hDisplay;
    EXPECT_NE(low, high) << "frames go to the low handle";
    // The low handle got its first viewport with MDisplayMgrInit.
    auto inits = j.Of(kMgrOpInit);
    ASSERT_EQ(inits.size(), 1u);
    EXPECT_EQ(inits[0].call.hDisplay, low);

    // Back to high: the first frame makes it visible again.
    ASSERT_EQ(SetU32(ZT5_CFG_DISPLAY_SWITCH_HANDLE, 1), 0);
    j.Clear();
    ASSERT_EQ(disp->DrawFrame(buf.data(), &info, 0), 0);
    blits = j.Of(kMgrOpBlit);
    ASSERT_EQ(blits.size(), 1u);
    EXPECT_EQ(blits[0].call.hDisplay, high);
    shows = j.Of(kMgrOpSetShow);
    ASSERT_EQ(shows.size(), 1u);
    EXPECT_EQ(shows[0].call.hDisplay, high);
    EXPECT_EQ(shows[0].call.dwSize, 1u);
    EXPECT_TRUE(j.Of(kMgrOpInit).empty()) << "the high handle had its init already";
}

TEST_F(Frontend, OverlayCallsMoveBetweenHandles)
{
    ASSERT_EQ(InitDefault(), 0);
    MgrJournal j;
    EXPECT_EQ(disp->ShowDisplayOverlay(0), 0);
    // The redraw of the last frame has no agent and no buffer: no blit.
    EXPECT_TRUE(j.Of(kMgrOpBlit).empty());
    std::vector<uint8_t> buf(64 * 64 * 3 / 2);
    ZT5FrameInfo info = MakeInfo(64, 64);
    j.Clear();
    ASSERT_EQ(disp->DrawFrame(buf.data(), &info, 0), 0);
    MDisplayHandle low = j.Of(kMgrOpBlit)[0].call.hDisplay;
    j.Clear();
    EXPECT_EQ(disp->ShowDisplayOverlay(1), 0);
    auto shows = j.Of(kMgrOpSetShow);
    ASSERT_GE(shows.size(), 1u);
    EXPECT_EQ(shows[0].call.hDisplay, low);
    EXPECT_EQ(shows[0].call.dwSize, 0u);
    j.Clear();
    ASSERT_EQ(disp->DrawFrame(buf.data(), &info, 0), 0);
    EXPECT_NE(j.Of(kMgrOpBlit)[0].call.hDisplay, low);
}

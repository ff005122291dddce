// The display manager's own parameter table and blit gates, through its
// public functions and without a renderer (no blit here has the OpenGL road
// on): what it stores, reads back, refuses, and when a blit does nothing. The
// rest of what it does is seen through the host in the test_gl_* suites.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "MDisplayMgr.h"

namespace {

class DisplayMgr : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_NE(h = MDisplayMgrCreate(1), nullptr); }
    void TearDown() override { EXPECT_EQ(MDisplayMgrDelete(h), 0); }
    MRESULT Set(MDWord id, MDWord v) { return MDisplayMgrSetParam(h, id, &v, 4); }
    // The settings value with one change.
    MRESULT Settings(void (*change)(DisplaySettings &))
    {
        change(settings);
        return MDisplayMgrSetSettings(h, &settings, 0);
    }
    MDisplayHandle h = nullptr;
    DisplaySettings settings;
};

} // namespace

TEST(DisplayMgrHandle, CreateDeleteAndTheCallsThatDoNothing)
{
    EXPECT_EQ(MDisplayMgrCreate(0), nullptr);
    EXPECT_EQ(MDisplayMgrCreate(2), nullptr);
    for (auto call : {MDisplayMgrInit, MDisplayMgrUpdate, MDisplayMgrUninit}) EXPECT_EQ(call(nullptr), ZT5_ERR_INVALID_PARAM);
    EXPECT_EQ(MDisplayMgrSetShow(nullptr, 1), ZT5_ERR_INVALID_PARAM);
    ZT5Rect rc = {0, 0, 10, 10};
    EXPECT_EQ(MDisplayMgrEraseRect(1, &rc, 0), 3) << "erasing is the renderer's";
    EXPECT_EQ(MDisplayMgrEraseRectEx(1, nullptr, 0, 0), 3);
    EXPECT_EQ(MDisplayMgrDelete(nullptr), 0);
}

TEST_F(DisplayMgr, ParameterTable)
{
    unsigned char payload[64] = {1};
    for (MDWord id : {MDWord(M_DISPLAY_PARAM_VIEWPORT), MDWord(ZT5_CFG_DISPLAY_UITOUCH_UP), 0x12345678u}) {
        EXPECT_EQ(MDisplayMgrSetParam(h, id, nullptr, 4), ZT5_ERR_INVALID_PARAM) << std::hex << id;
        EXPECT_EQ(MDisplayMgrGetParam(h, id, nullptr, 4), ZT5_ERR_INVALID_PARAM) << std::hex << id;
    }
    EXPECT_EQ(MDisplayMgrSetParam(nullptr, ZT5_CFG_DISPLAY_STATUS, payload, 4), ZT5_ERR_INVALID_PARAM);
    // Ids the front end sends regardless and unknown ones: refused, stored
    // nowhere.
    for (MDWord id : {MDWord(M_DISPLAY_PARAM_FULLSCREEN), MDWord(M_DISPLAY_PARAM_ADJUST),
                      MDWord(ZT5_CFG_DISPLAY_OPENGL_SCALE_RECT), MDWord(ZT5_CFG_DISPLAY_MULTI_DISPLAY),
                      MDWord(ZT5_CFG_CODEC_HINT), 0x12345678u})
        EXPECT_EQ(MDisplayMgrSetParam(h, id, payload, 4), 3) << std::hex << id;
    EXPECT_EQ(MDisplayMgrGetParam(h, ZT5_CFG_DISPLAY_FISHEYE_MODE, payload, 4), 3);
    // Settings come as one value; a view the renderer would refuse is
    // refused here too, and nothing of that value is kept.
    EXPECT_EQ(MDisplayMgrSetSettings(h, nullptr, 0), ZT5_ERR_INVALID_PARAM);
    EXPECT_EQ(Settings([](DisplaySettings &s) { s.lFishEyeMode = 11, s.bUseOpenGles = 1; }), ZT5_ERR_INVALID_PARAM);
    MDWord kept = 7;
    EXPECT_EQ(MDisplayMgrGetParam(h, ZT5_CFG_DISPLAY_USE_OPENGLES, &kept, 4), 0);
    EXPECT_EQ(kept, 0u) << "a refused value changes nothing";
    EXPECT_EQ(Settings([](DisplaySettings &s) { s.lFishEyeMode = -1; }), ZT5_ERR_INVALID_PARAM);
    EXPECT_EQ(Settings([](DisplaySettings &s) { s.lFishEyeMode = 10, s.bUseOpenGles = 0; }), 0);
    // Gestures and restores are taken one by one; settings by id are not.
    for (MDWord id : {ZT5_CFG_DISPLAY_UITOUCH_DOWN, ZT5_CFG_DISPLAY_FE_CURRENTSTATUS})
        EXPECT_EQ(MDisplayMgrSetParam(h, id, payload, 8), 0) << std::hex << id;
    for (MDWord id : {ZT5_CFG_DISPLAY_SCALE_RATIO, ZT5_CFG_DISPLAY_FISHEYE_MODE, ZT5_CFG_CODEC_ALIGNINFO})
        EXPECT_EQ(MDisplayMgrSetParam(h, id, payload, 8), 3) << std::hex << id;

    // Read back: the caps, the switch, the last viewport that had an area.
    MDisplayCaps caps;
    std::memset(&caps, 0x5a, sizeof(caps));
    EXPECT_EQ(MDisplayMgrGetParam(h, M_DISPLAY_PARAM_CAPS, &caps, sizeof(caps)), 0);
    EXPECT_EQ(caps.dwAlignX, 4u);
    EXPECT_EQ(caps.dwAlignY, 4u);
    EXPECT_EQ(caps.dwPixelFormat, 5u);
    EXPECT_EQ(caps.dwReserved0, 0x5a5a5a5au) << "other words are not touched";
    MDWord gl = 7;
    EXPECT_EQ(MDisplayMgrGetParam(h, ZT5_CFG_DISPLAY_USE_OPENGLES, &gl, 4), 0);
    EXPECT_EQ(gl, 0u);
    EXPECT_EQ(Settings([](DisplaySettings &s) { s.bUseOpenGles = 1; }), 0);
    EXPECT_EQ(MDisplayMgrGetParam(h, ZT5_CFG_DISPLAY_USE_OPENGLES, &gl, 4), 0);
    EXPECT_EQ(gl, 1u);
    ZT5Viewport vp = {0x4a00001, 90, 0, 2, 10, 20, 300, 200, {}}, announce = {0x4b00002, 0, 0, 1, 0, 0, 0, 0, {}}, back;
    EXPECT_EQ(MDisplayMgrSetParam(h, M_DISPLAY_PARAM_VIEWPORT, &vp, sizeof(vp)), 0);
    EXPECT_EQ(MDisplayMgrSetParam(h, M_DISPLAY_PARAM_VIEWPORT, &announce, sizeof(announce)), 0);
    EXPECT_EQ(MDisplayMgrGetParam(h, M_DISPLAY_PARAM_VIEWPORT, &back, sizeof(back)), 0);
    EXPECT_EQ(std::memcmp(&back, &vp, sizeof(vp)), 0) << "a viewport without area only announces itself";
    // Without a renderer the live values leave the caller's word alone.
    for (MDWord id : {ZT5_CFG_DISPLAY_SCALE_RATIO, ZT5_CFG_DISPLAY_MAX_SCALE, ZT5_CFG_DISPLAY_GL_SNAPSHOT,
                      ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS}) {
        void *word = &caps;
        EXPECT_EQ(MDisplayMgrGetParam(h, id, &word, sizeof(word)), 0);
        EXPECT_EQ(word, &caps) << std::hex << id;
    }
}

// A blit does nothing, successfully, when asked to skip, without planes, when
// the display is hidden or the OpenGL road is off; without a handle it fails.
TEST_F(DisplayMgr, BlitGates)
{
    std::vector<unsigned char> bytes(64 * 32 * 3 / 2);
    VideoFrame frame, none;
    frame.width = 64;
    frame.height = 32;
    frame.plane[0] = {bytes.data(), 64};
    frame.plane[1] = {bytes.data() + 64 * 32, 32};
    frame.plane[2] = {bytes.data() + 64 * 40, 32};
    ZT5Rect rc = {0, 0, 64, 32};
    EXPECT_EQ(MDisplayMgrBlit(nullptr, nullptr, nullptr, nullptr, 1), 0);
    EXPECT_EQ(MDisplayMgrBlit(nullptr, &none, &rc, nullptr, 0), 0);
    EXPECT_EQ(MDisplayMgrBlit(nullptr, &frame, &rc, nullptr, 0), ZT5_ERR_INVALID_PARAM);
    EXPECT_EQ(MDisplayMgrBlit(h, &frame, &rc, &rc, 0), 0) << "the OpenGL road is off";
    EXPECT_EQ(MDisplayMgrSetShow(h, 0), 0);
    EXPECT_EQ(Settings([](DisplaySettings &s) { s.bUseOpenGles = 1; }), 0);
    EXPECT_EQ(MDisplayMgrBlit(h, &frame, &rc, &rc, 0), 0) << "hidden";
}

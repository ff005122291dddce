// The panorama strip and the half sphere through the real library, as a
// host drives them: dlopen, a display on an X window, the synthetic
// 1920x1080 lens frame (the front end cuts the 1080x1080 lens square),
// gestures and the saved state by parameter ids, snapshots read back.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <mutex>
#include <vector>

#include "FisheyeGl.h"
#include "HostHarness.h"
#include "ZT5Config.h"
#include "ZT5Mutex.h"
#include "ZT5Records.h"

using harness::HostDisplay;
using harness::RgbaImage;

namespace {

const int kW = 640, kH = 360;
const double kPi = 3.14159265358979323846;

harness::I420Frame SceneFrame(int frame = 0)
{
    synthetic::LensFrame lens;
    harness::I420Frame f;
    f.width = lens.width;
    f.height = lens.height;
    f.data = synthetic::MakeFisheyeFrame(lens, frame);
    return f;
}

// Sectors of one row, left to right, ignoring specks and labels.
std::vector<int> SectorSequence(const RgbaImage &img, int y)
{
    std::vector<int> seq;
    int last = -1, len = 0;
    for (int x = 0; x < img.width; x++) {
        int s = fisheyegl::NearestSector(img.At(x, y), 30);
        if (s < 0) continue;
        len = (s == last) ? len + 1 : 1;
        last = s;
        if (len == 8 && (seq.empty() || seq.back() != s)) seq.push_back(s);
    }
    return seq;
}

FECurrentStatusData SaveState(HostDisplay &disp)
{
    FECurrentStatusData *p = nullptr;
    EXPECT_EQ(disp->GetDisplayParam(ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS, &p), 0);
    FECurrentStatusData d;
    std::memset(&d, 0, sizeof(d));
    if (p) std::memcpy(&d, p, sizeof(d)); // copied out at once: the next save overwrites it
    return d;
}

// Cruise events the library reports through the UI callback record.
struct CruiseEvents {
    std::mutex m;
    std::vector<uint32_t> values;
    static void OnEvent(ZT5UIMessage *msg, void *arg)
    {
        CruiseEvents *self = static_cast<CruiseEvents *>(arg);
        if (msg->dwEvent != ZT5_UI_EVENT || msg->dwParamID != ZT5_CFG_DISPLAY_CURISE_STATE_EVENT) return;
        EXPECT_EQ(msg->dwValue1, msg->dwValue2);
        std::lock_guard<std::mutex> lk(self->m);
        self->values.push_back(msg->dwValue1);
    }
    std::vector<uint32_t> Get()
    {
        std::lock_guard<std::mutex> lk(m);
        return values;
    }
};

class FisheyeHostTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        harness::EnsureXThreads();
        lib.reset(new harness::PanoviewLibrary());
        ASSERT_TRUE(lib->ok()) << lib->error();
        win.reset(new harness::XTestWindow(kW, kH));
        ASSERT_TRUE(win->ok()) << win->error();
        disp.reset(new HostDisplay(*lib));
        ASSERT_TRUE(disp->ok());
    }
    void TearDown() override
    {
        disp.reset();
        win.reset();
        lib.reset();
    }
    void Start(uint32_t mode)
    {
        ASSERT_EQ(disp->SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, mode), 0);
        ASSERT_EQ(disp->SetU32(ZT5_CFG_DISPLAY_USE_OPENGLES, 1), 0);
        ASSERT_EQ(disp->Init(*win), 0);
    }
    std::unique_ptr<harness::PanoviewLibrary> lib;
    std::unique_ptr<harness::XTestWindow> win;
    std::unique_ptr<HostDisplay> disp;
};

} // namespace

TEST_F(FisheyeHostTest, PanoramaStripThroughTheLibrary)
{
    Start(2);
    if (HasFatalFailure()) return;
    harness::I420Frame frame = SceneFrame();
    const int row = 220; // latitude 40 degrees: inside the sector band of the strip
    RgbaImage shot;
    bool appeared = disp->PushUntil(
        frame, [&](const RgbaImage &img) { return SectorSequence(img, row).size() >= 4; }, &shot);
    fisheyegl::SaveSnapshot("fisheye_e2e_strip", shot);
    ASSERT_TRUE(appeared) << "no panorama appeared";
    std::vector<int> seq = SectorSequence(shot, row);
    for (size_t i = 1; i < seq.size(); i++) EXPECT_EQ(seq[i], (seq[i - 1] + 7) % 8);
    EXPECT_EQ(fisheyegl::NearestSector(shot.At(kW / 2, row), 30), 4);

    FECurrentStatusData start = SaveState(*disp);
    EXPECT_EQ(start.mFishEyeMode, 2);
    EXPECT_NEAR(start.xMove, 2.035f, 1e-5);

    // A drag of 100 px to the right through the gesture ids.
    float down[2] = {100, 100}, moved[4] = {100, 100, 200, 100}, up[2] = {200, 100};
    disp->Set(ZT5_CFG_DISPLAY_UITOUCH_DOWN, down);
    disp->Set(ZT5_CFG_DISPLAY_UITOUCH_MOVED, moved);
    disp->Set(ZT5_CFG_DISPLAY_UITOUCH_UP, up);
    FECurrentStatusData dragged = SaveState(*disp);
    EXPECT_NEAR(dragged.xMove, 2.035f + 0.225f, 1e-5);
    // 0.225 rad is 38.7 px of strip at the wide position: the boundary
    // between sectors 4 and 3 (at x 400) follows the finger to about 439.
    const int probe = 420;
    EXPECT_EQ(fisheyegl::NearestSector(shot.At(probe, row), 30), 3);
    ASSERT_TRUE(disp->WaitUntil(
        [&](const RgbaImage &img) { return fisheyegl::NearestSector(img.At(probe, row), 30) == 4; }, &shot));
    fisheyegl::SaveSnapshot("fisheye_e2e_strip_dragged", shot);
    EXPECT_EQ(fisheyegl::NearestSector(shot.At(probe + 30, row), 30), 3);

    // Restore the state saved at the start: the first picture comes back.
    ASSERT_EQ(disp->Set(ZT5_CFG_DISPLAY_FE_CURRENTSTATUS, &start), 0);
    ASSERT_TRUE(disp->WaitUntil(
        [&](const RgbaImage &img) { return fisheyegl::NearestSector(img.At(probe, row), 30) == 3; }, &shot));
    EXPECT_NEAR(SaveState(*disp).xMove, 2.035f, 1e-5);

    // A record of another mode is dropped.
    FECurrentStatusData other = dragged;
    other.mFishEyeMode = 1;
    ASSERT_EQ(disp->Set(ZT5_CFG_DISPLAY_FE_CURRENTSTATUS, &other), 0);
    EXPECT_NEAR(SaveState(*disp).xMove, 2.035f, 1e-5);
}

TEST_F(FisheyeHostTest, HalfSphereOpensToTheOverviewThroughTheLibrary)
{
    CruiseEvents events;
    CZT5Mutex callbackMutex;
    ZT5UICallbackRecord record;
    std::memset(&record, 0, sizeof(record));
    record.pMutex = &callbackMutex;
    record.pfnCallback = &CruiseEvents::OnEvent;
    record.pArg = &events;
    ASSERT_EQ(disp->Set(ZT5_CFG_DISPLAY_UICALLBACK, &record), 0);
    Start(1);
    if (HasFatalFailure()) return;
    harness::I420Frame frame = SceneFrame();
    RgbaImage shot;
    // The opening flight runs on the render thread; wait for its end.
    ASSERT_TRUE(disp->PushUntil(
        frame,
        [&](const RgbaImage &) {
            FECurrentStatusData d = SaveState(*disp);
            return d.mFishEyeMode == 1 && d.nRoamInit == 0 && d.fCamZ[0] == 7.1f;
        },
        &shot));
    ASSERT_TRUE(disp->Snapshot(&shot));
    fisheyegl::SaveSnapshot("fisheye_e2e_overview", shot);
    // Around the centre: the sectors in azimuth order, upright.
    int agree = 0;
    for (int k = 0; k < 8; k++) {
        double a = (45.0 * k + 10.0) * kPi / 180.0;
        int x = int(kW / 2 + 60 * std::cos(a)), y = int(kH / 2 - 60 * std::sin(a));
        agree += fisheyegl::NearestSector(shot.At(x, y), 35) == k;
    }
    EXPECT_EQ(agree, 8);

    // Cruise switched on by the host turns the bowl; a touch ends it.
    disp->SetU32(ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, 1);
    float z0 = SaveState(*disp).zAngle[0];
    ASSERT_TRUE(disp->WaitUntil([&](const RgbaImage &) { return SaveState(*disp).zAngle[0] > z0 + 1.0f; }, &shot));
    // The state the view starts in is never reported; switching cruise on is,
    // once.
    ASSERT_TRUE(disp->WaitUntil([&](const RgbaImage &) { return !events.Get().empty(); }, &shot));
    EXPECT_EQ(events.Get(), std::vector<uint32_t>({1}));
    float down[2] = {10, 10};
    disp->Set(ZT5_CFG_DISPLAY_UITOUCH_DOWN, down);
    EXPECT_EQ(SaveState(*disp).mCruiseState, 0);
    // The touch that ends it is reported once too, and nothing after it.
    ASSERT_TRUE(disp->WaitUntil([&](const RgbaImage &) { return events.Get().size() >= 2; }, &shot));
    for (int i = 0; i < 5; i++) disp->Snapshot(&shot); // a few more draws
    EXPECT_EQ(events.Get(), std::vector<uint32_t>({1, 0}));
    disp->Uninit();
}

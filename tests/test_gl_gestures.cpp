// The plain view's gestures end to end, as a host drives them: the library
// is dlopen'ed, a display shows a frame with a red square in its centre on
// an X window, gestures go in through SetDisplayParam, and the square is
// measured in snapshots. Expected sizes and positions come from the view's
// model: a zoom scales the picture about the pan point, a drag pans by
// 0.001 * zoom model units a pixel, and one model unit is half the window in
// the direction the picture fills (the window and the frame have the same
// proportions here, so both directions).
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <future>
#include <limits>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "HostHarness.h"
#include "HostSuite.h"
#include "ZT5Mutex.h"

using namespace harness;

namespace {

const int kW = 640, kH = 360;      // window and frame
const int kSquare = 80;            // side of the red square, frame pixels
const Rgb kGrey = {128, 128, 128}; // background
const Rgb kRed = {210, 40, 40};
const float kNaN = std::numeric_limits<float>::quiet_NaN();
const float kInf = std::numeric_limits<float>::infinity();

// Edge codes of the drag, as the host receives them.
enum { kEdgeTop = 1, kEdgeLeft = 2, kEdgeBottom = 4, kEdgeRight = 8 };

I420Frame SquareFrame()
{
    I420Frame f = MakeSolidFrame(kW, kH, kGrey);
    f.Fill(kW / 2 - kSquare / 2, kH / 2 - kSquare / 2, kW / 2 + kSquare / 2, kH / 2 + kSquare / 2, kRed);
    return f;
}

// Where the red square is in a snapshot (empty when it can't be seen).
Rect SquareBounds(const RgbaImage &img)
{
    return RedBoundsOnGrey(img, kRed);
}

// The square as the model puts it: side kSquare * scale about the window's
// centre shifted by the pan (model units; +y is up on the screen).
struct Box {
    double cx, cy, side;
};
Box ModelSquare(double scale, double transX, double transY)
{
    return Box{kW / 2.0 + transX * kW / 2.0, kH / 2.0 - transY * kH / 2.0, kSquare * scale};
}

std::string Describe(const Rect &r)
{
    return "[" + std::to_string(r.left) + "," + std::to_string(r.top) + " - " + std::to_string(r.right) + "," +
           std::to_string(r.bottom) + "]";
}

// True when the square's edges lie within `tol` pixels of the model's, as
// far as the window shows them (a square panned past the window's edge is
// cut there, or not seen at all).
bool SquareMatches(const Rect &r, const Box &b, double tol = 1.5)
{
    const double left = std::max(0.0, b.cx - b.side / 2), right = std::min(double(kW), b.cx + b.side / 2);
    const double top = std::max(0.0, b.cy - b.side / 2), bottom = std::min(double(kH), b.cy + b.side / 2);
    if (right <= left || bottom <= top) return r.width() <= 0;
    if (r.width() <= 0) return false;
    return std::fabs(r.left - left) <= tol && std::fabs(r.right - right) <= tol && std::fabs(r.top - top) <= tol &&
           std::fabs(r.bottom - bottom) <= tol;
}

// True when every pixel shows the picture: each channel between the grey's
// and the red's (with a few levels of slack), as the two colours and their
// blends at the square's edge are. A bar, black or garbage fails.
bool AllPicture(const RgbaImage &img)
{
    if (img.empty()) return false;
    const Rgb grey = ExpectedRgb(kGrey), red = ExpectedRgb(kRed);
    const uint8_t lo[3] = {std::min(grey.r, red.r), std::min(grey.g, red.g), std::min(grey.b, red.b)};
    const uint8_t hi[3] = {std::max(grey.r, red.r), std::max(grey.g, red.g), std::max(grey.b, red.b)};
    for (int y = 0; y < img.height; y++)
        for (int x = 0; x < img.width; x++) {
            const uint8_t *p = img.PixelPtr(x, y);
            for (int c = 0; c < 3; c++)
                if (p[c] + 8 < lo[c] || p[c] > hi[c] + 8) return false;
        }
    return true;
}

ImagePredicate SquareIs(Box b, double tol = 1.5)
{
    return [b, tol](const RgbaImage &img) { return SquareMatches(SquareBounds(img), b, tol); };
}

// Records every UI message on the host's side.
struct EventLog {
    CZT5Mutex mutex;
    ZT5UICallbackRecord record = {};
    std::vector<ZT5UIMessage> messages;
    std::vector<std::thread::id> threads;

    EventLog()
    {
        record.pMutex = &mutex;
        record.pfnCallback = &EventLog::Callback;
        record.pArg = this;
    }
    static void Callback(ZT5UIMessage *pMessage, void *pArg)
    {
        EventLog *self = static_cast<EventLog *>(pArg);
        // The sender holds the record's mutex while it calls.
        self->messages.push_back(*pMessage);
        self->threads.push_back(std::this_thread::get_id());
    }
    std::vector<uint32_t> Codes()
    {
        mutex.Lock();
        std::vector<uint32_t> codes;
        for (const ZT5UIMessage &m : messages) codes.push_back(m.dwValue1);
        mutex.Unlock();
        return codes;
    }
    void Clear()
    {
        mutex.Lock();
        messages.clear();
        threads.clear();
        mutex.Unlock();
    }
};

class Gestures : public HostSuite {
protected:
    void SetUp() override
    {
        HostSuite::SetUp();
        m_frame = SquareFrame();
    }

    // A display in the plain view on a window, set up but not started.
    void MakeDisplay()
    {
        m_window.reset(new XTestWindow(kW, kH));
        ASSERT_TRUE(m_window->ok()) << m_window->error();
        m_display.reset(new HostDisplay(*s_lib));
        ASSERT_TRUE(m_display->ok());
        EXPECT_EQ(m_display->SetU32(ZT5_CFG_DISPLAY_USE_OPENGLES, 1), ZT5_OK);
        EXPECT_EQ(m_display->SetU32(ZT5_CFG_DISPLAY_FIT_MODE, 0), ZT5_OK);
        EXPECT_EQ(m_display->SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, 0), ZT5_OK);
    }
    void Init() { ASSERT_EQ(m_display->Init(*m_window), ZT5_OK); }
    // Pushes the frame until the unzoomed square shows.
    void ShowFrame(Box expected = ModelSquare(1, 0, 0))
    {
        RgbaImage shot;
        ASSERT_TRUE(m_display->PushUntil(m_frame, SquareIs(expected), &shot))
            << "square at " << Describe(SquareBounds(shot));
    }
    void Start()
    {
        // A failed step ends only itself: stop before using what it didn't make.
        MakeDisplay();
        if (HasFatalFailure()) return;
        Init();
        if (HasFatalFailure()) return;
        ShowFrame();
    }
    // Polls the snapshot until the square is where the model puts it.
    void ExpectSquare(Box b, const std::string &png = "", double tol = 1.5)
    {
        RgbaImage shot;
        bool ok = m_display->WaitUntil(SquareIs(b, tol), &shot);
        if (!png.empty() || !ok) SaveImage(Name(png.empty() ? "_fail" : png), shot);
        EXPECT_TRUE(ok) << "square at " << Describe(SquareBounds(shot)) << ", model centre " << b.cx << ","
                        << b.cy << " side " << b.side;
    }

    void Drag(float x0, float y0, float x1, float y1)
    {
        float p[4] = {x0, y0, x1, y1};
        EXPECT_EQ(m_display->Set(ZT5_CFG_DISPLAY_UITOUCH_MOVED, p), ZT5_OK);
    }
    void Pinch(float rate, float cx = kW / 2.0f, float cy = kH / 2.0f)
    {
        m_pinchCentre[0] = cx;
        m_pinchCentre[1] = cy;
        ZT5TouchPinch pinch = {rate, m_pinchCentre};
        EXPECT_EQ(m_display->Set(ZT5_CFG_DISPLAY_UITOUCH_VELOCITY, &pinch), ZT5_OK);
    }
    void DoubleTap(float x, float y)
    {
        // The display keeps this pointer for its next start: it lives as
        // long as the fixture.
        m_tap[0] = x;
        m_tap[1] = y;
        EXPECT_EQ(m_display->Set(ZT5_CFG_DISPLAY_UITOUCH_DOUBLETAP, m_tap), ZT5_OK);
    }
    uint32_t ReadU32(uint32_t id, uint32_t initial = 0xdeadbeef)
    {
        uint32_t v = initial;
        EXPECT_EQ(m_display->get()->GetDisplayParam(id, &v), ZT5_OK);
        return v;
    }
    uint32_t Scale() { return ReadU32(ZT5_CFG_DISPLAY_SCALE_RATIO); }
    // Polls the scale read until it equals `percent`.
    bool WaitScale(uint32_t percent)
    {
        for (int i = 0; i < 4000; i++) {
            if (Scale() == percent) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return false;
    }
    // The saved state through the host interface, copied out at once.
    bool Save(FECurrentStatusData *out)
    {
        FECurrentStatusData *p = nullptr;
        EXPECT_EQ(m_display->get()->GetDisplayParam(ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS, &p), ZT5_OK);
        if (!p) return false;
        std::memcpy(out, p, sizeof(*out));
        return true;
    }
    // Restores a record; the display keeps the pointer, so the record lives
    // in the fixture.
    void Restore(const FECurrentStatusData &rec)
    {
        m_records.emplace_back(new FECurrentStatusData(rec));
        EXPECT_EQ(m_display->Set(ZT5_CFG_DISPLAY_FE_CURRENTSTATUS, m_records.back().get()), ZT5_OK);
    }
    // Waits until two snapshots in a row are equal, then returns that one.
    RgbaImage SettledSnapshot()
    {
        RgbaImage last, shot;
        for (int i = 0; i < 500; i++) {
            std::this_thread::sleep_for(std::chrono::milliseconds(30));
            if (!m_display->Snapshot(&shot)) continue;
            if (!last.empty() && shot.rgba == last.rgba) return shot;
            last = shot;
        }
        ADD_FAILURE() << "the picture never settled";
        return shot;
    }


    std::unique_ptr<XTestWindow> m_window;
    std::unique_ptr<HostDisplay> m_display;
    I420Frame m_frame;
    float m_pinchCentre[2] = {0, 0};
    float m_tap[2] = {0, 0};
    std::vector<std::unique_ptr<FECurrentStatusData>> m_records;
};

FECurrentStatusData PlainRecord(float scale, float transX, float transY)
{
    FECurrentStatusData rec = {};
    rec.mScaleRatio = scale;
    rec.mTransX = transX;
    rec.mTransY = transY;
    rec.mFishEyeMode = 0;
    return rec;
}

} // namespace

// ------------------------------------------------------------------ zoom

TEST_F(Gestures, PinchZoomsInFixedStepsAboutTheCentre)
{
    Start();
    if (HasFatalFailure()) return;
    EXPECT_EQ(Scale(), 100u);
    for (int i = 0; i < 10; i++) Pinch(1.3f);
    // Ten steps of 0.055: 1.55.
    ExpectSquare(ModelSquare(1.55, 0, 0), "_in");
    uint32_t s = Scale();
    EXPECT_TRUE(s == 155u || s == 154u) << s;

    // Rates of 1.0 and below zoom out by the same step.
    Pinch(1.0f);
    Pinch(0.5f);
    Pinch(0.99f);
    ExpectSquare(ModelSquare(1.55 - 3 * 0.055, 0, 0));
    s = Scale();
    EXPECT_TRUE(s == 138u || s == 137u) << s;

    // Never below 1.0, however many steps out.
    for (int i = 0; i < 30; i++) Pinch(0.8f);
    ExpectSquare(ModelSquare(1, 0, 0));
    EXPECT_EQ(Scale(), 100u);
    // Nor beyond the limit of 4.0.
    for (int i = 0; i < 80; i++) Pinch(2.0f);
    ExpectSquare(ModelSquare(4, 0, 0), "_max");
    EXPECT_EQ(Scale(), 400u);
}

TEST_F(Gestures, ScaleSettingAndLimitThroughTheHost)
{
    Start();
    if (HasFatalFailure()) return;
    EXPECT_EQ(m_display->SetU32(ZT5_CFG_DISPLAY_SCALE_RATIO, 250), ZT5_OK);
    ExpectSquare(ModelSquare(2.5, 0, 0), "_250");
    EXPECT_EQ(Scale(), 250u);
    EXPECT_EQ(ReadU32(ZT5_CFG_DISPLAY_MAX_SCALE), 400u);

    // Half a zoom is no zoom; beyond the limit is the limit.
    EXPECT_EQ(m_display->SetU32(ZT5_CFG_DISPLAY_SCALE_RATIO, 50), ZT5_OK);
    ExpectSquare(ModelSquare(1, 0, 0));
    EXPECT_EQ(Scale(), 100u);
    EXPECT_EQ(m_display->SetU32(ZT5_CFG_DISPLAY_SCALE_RATIO, 0xffffffffu), ZT5_OK);
    ExpectSquare(ModelSquare(4, 0, 0));
    EXPECT_EQ(Scale(), 400u);

    // A lower limit takes the present zoom down with it at the next draw.
    EXPECT_EQ(m_display->SetU32(ZT5_CFG_DISPLAY_MAX_SCALE, 300), ZT5_OK);
    EXPECT_EQ(ReadU32(ZT5_CFG_DISPLAY_MAX_SCALE), 300u);
    ExpectSquare(ModelSquare(3, 0, 0));
    EXPECT_EQ(Scale(), 300u);
    // A limit of 0 is ignored by the view.
    EXPECT_EQ(m_display->SetU32(ZT5_CFG_DISPLAY_MAX_SCALE, 0), ZT5_OK);
    for (int i = 0; i < 10; i++) Pinch(1.5f);
    ExpectSquare(ModelSquare(3, 0, 0));
    EXPECT_EQ(Scale(), 300u);
    // A limit below 1.0 shows the picture smaller and still centred; the
    // scale read never says less than 100.
    EXPECT_EQ(m_display->SetU32(ZT5_CFG_DISPLAY_MAX_SCALE, 50), ZT5_OK);
    ExpectSquare(ModelSquare(0.5, 0, 0), "_half");
    EXPECT_EQ(Scale(), 100u);
    Drag(300, 180, 400, 200);
    ExpectSquare(ModelSquare(0.5, 0, 0));
}

TEST_F(Gestures, ScaleReadsLeaveTheWordAloneWithoutARenderer)
{
    MakeDisplay();
    if (HasFatalFailure()) return;
    // Before Init: no display handle.
    EXPECT_EQ(ReadU32(ZT5_CFG_DISPLAY_SCALE_RATIO), 0xdeadbeefu);
    EXPECT_EQ(ReadU32(ZT5_CFG_DISPLAY_MAX_SCALE), 0xdeadbeefu);
    FECurrentStatusData *p = reinterpret_cast<FECurrentStatusData *>(uintptr_t(0x1234));
    EXPECT_EQ(m_display->get()->GetDisplayParam(ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS, &p), ZT5_OK);
    EXPECT_EQ(p, reinterpret_cast<FECurrentStatusData *>(uintptr_t(0x1234)));
    // After Init, before the first frame: no renderer yet.
    Init();
    EXPECT_EQ(ReadU32(ZT5_CFG_DISPLAY_SCALE_RATIO), 0xdeadbeefu);
    EXPECT_EQ(ReadU32(ZT5_CFG_DISPLAY_MAX_SCALE), 0xdeadbeefu);
    EXPECT_EQ(m_display->get()->GetDisplayParam(ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS, &p), ZT5_OK);
    EXPECT_EQ(p, reinterpret_cast<FECurrentStatusData *>(uintptr_t(0x1234)));
    // A scale set now is kept and lands when the renderer comes up.
    EXPECT_EQ(m_display->SetU32(ZT5_CFG_DISPLAY_SCALE_RATIO, 200), ZT5_OK);
    EXPECT_EQ(m_display->SetU32(ZT5_CFG_DISPLAY_MAX_SCALE, 350), ZT5_OK);
    ShowFrame(ModelSquare(2, 0, 0));
    EXPECT_EQ(Scale(), 200u);
    EXPECT_EQ(ReadU32(ZT5_CFG_DISPLAY_MAX_SCALE), 350u);
}

TEST_F(Gestures, DoubleTapZoomsToTheLimitAndBackWithThePan)
{
    Start();
    if (HasFatalFailure()) return;
    // The scale read while the animation runs: every value is 1.0 plus a
    // whole number of 0.06 steps, rising without a jump back.
    DoubleTap(kW / 2.0f, kH / 2.0f);
    std::vector<uint32_t> seen;
    for (int i = 0; i < 20000 && (seen.empty() || seen.back() != 400u); i++) {
        uint32_t s = Scale();
        if (seen.empty() || s != seen.back()) seen.push_back(s);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ASSERT_FALSE(seen.empty());
    ASSERT_EQ(seen.back(), 400u);
    EXPECT_GE(seen.size(), 3u) << "no intermediate zoom seen";
    for (size_t i = 0; i < seen.size(); i++) {
        const int v = int(seen[i]) - 100;
        // Truncation to a percent may take one off a multiple of 6.
        EXPECT_TRUE(v % 6 == 0 || v % 6 == 5) << "scale " << seen[i] << " is not 1.0 + k * 0.06";
        if (i) {
            EXPECT_GT(seen[i], seen[i - 1]);
        }
    }
    ExpectSquare(ModelSquare(4, 0, 0), "_in");
    FECurrentStatusData st;
    ASSERT_TRUE(Save(&st));
    EXPECT_FLOAT_EQ(st.mScaleRatio, 4.0f);
    EXPECT_EQ(st.mTransX, 0.0f);
    EXPECT_EQ(st.mTransY, 0.0f);

    // Pan to the right and up, then tap again: zoom and pan go back to the
    // start together, the pan staying in proportion to the zoom above 1.0.
    Drag(100, 200, 400, 200); // 300 px * 0.004 = 1.2 model units right
    Drag(300, 300, 300, 150); // 150 px * 0.004 = 0.6 up
    ExpectSquare(ModelSquare(4, 1.2, 0.6), "_panned");
    ASSERT_TRUE(Save(&st));
    ASSERT_NEAR(st.mTransX, 1.2f, 1e-4);
    ASSERT_NEAR(st.mTransY, 0.6f, 1e-4);
    DoubleTap(0, 0); // the window's corner counts
    int samples = 0;
    for (int i = 0; i < 20000; i++) {
        ASSERT_TRUE(Save(&st));
        if (st.mScaleRatio <= 1.0f) break;
        if (st.mScaleRatio < 3.9f) {
            samples++;
            EXPECT_NEAR(st.mTransX, 0.4 * (st.mScaleRatio - 1.0), 2e-3) << "at zoom " << st.mScaleRatio;
            EXPECT_NEAR(st.mTransY, 0.2 * (st.mScaleRatio - 1.0), 2e-3) << "at zoom " << st.mScaleRatio;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_GT(samples, 0);
    ASSERT_TRUE(WaitScale(100));
    ExpectSquare(ModelSquare(1, 0, 0), "_out");
    ASSERT_TRUE(Save(&st));
    EXPECT_EQ(st.mScaleRatio, 1.0f);
    EXPECT_EQ(st.mTransX, 0.0f);
    EXPECT_EQ(st.mTransY, 0.0f);
}

TEST_F(Gestures, DragStopsTheAnimationAndATapResumesIt)
{
    Start();
    if (HasFatalFailure()) return;
    DoubleTap(kW, kH); // the far corner counts
    uint32_t s = 100;
    for (int i = 0; i < 20000 && s < 160; i++) {
        s = Scale();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ASSERT_GE(s, 160u);
    ASSERT_LT(s, 400u) << "the animation ended before it could be stopped";
    Drag(300, 180, 301, 180); // one pixel is a real drag
    // A draw under way may still take one step; then the picture stands.
    SettledSnapshot();
    const uint32_t stopped = Scale();
    EXPECT_GT(stopped, 100u);
    EXPECT_LT(stopped, 400u);
    SettledSnapshot();
    EXPECT_EQ(Scale(), stopped);
    // Taps outside the window change nothing.
    DoubleTap(-1, 5);
    DoubleTap(kW + 1.0f, 5);
    DoubleTap(5, kH + 0.5f);
    DoubleTap(kNaN, 5);
    SettledSnapshot();
    EXPECT_EQ(Scale(), stopped);
    // The next tap goes on in the same direction.
    DoubleTap(10, 10);
    EXPECT_TRUE(WaitScale(400));

    // A pinch stops it too.
    DoubleTap(10, 10);
    s = 400;
    for (int i = 0; i < 20000 && s > 300; i++) {
        s = Scale();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ASSERT_GT(s, 100u);
    Pinch(1.5f);
    SettledSnapshot();
    const uint32_t pinched = Scale();
    EXPECT_GT(pinched, 100u);
    SettledSnapshot();
    EXPECT_EQ(Scale(), pinched);
}

// ------------------------------------------------------------------ drag

TEST_F(Gestures, DragMovesThePictureByTheModelsUnits)
{
    Start();
    if (HasFatalFailure()) return;
    EXPECT_EQ(m_display->SetU32(ZT5_CFG_DISPLAY_SCALE_RATIO, 200), ZT5_OK);
    ExpectSquare(ModelSquare(2, 0, 0));
    // 100 px right and 50 px down at zoom 2: 0.2 and -0.1 model units, so
    // 64 px right and 18 px down on the screen.
    Drag(300, 200, 400, 250);
    ExpectSquare(ModelSquare(2, 0.2, -0.1), "_moved");
    RgbaImage shot;
    ASSERT_TRUE(m_display->Snapshot(&shot));
    Rect r = SquareBounds(shot);
    EXPECT_NEAR((r.left + r.right) / 2.0, kW / 2.0 + 64, 1.0);
    EXPECT_NEAR((r.top + r.bottom) / 2.0, kH / 2.0 + 18, 1.0);
    FECurrentStatusData st;
    ASSERT_TRUE(Save(&st));
    EXPECT_NEAR(st.mTransX, 0.2f, 1e-5);
    EXPECT_NEAR(st.mTransY, -0.1f, 1e-5);

    // Far beyond the edge: the pan stops at the limit, zoom - 1.
    Drag(10, 300, 630, 350);
    ExpectSquare(ModelSquare(2, 1, -0.2), "_limit");
    ASSERT_TRUE(Save(&st));
    EXPECT_EQ(st.mTransX, 1.0f);
}

TEST_F(Gestures, DragPansInModelUnitsOfALetterboxedPicture)
{
    // A 4:3 frame in the 16:9 window fills its height: one model unit is
    // half the window's height (180 px) up and down, and half the picture's
    // width (240 px) across.
    MakeDisplay();
    if (HasFatalFailure()) return;
    Init();
    I420Frame frame = MakeSolidFrame(480, 360, kGrey);
    frame.Fill(240 - kSquare / 2, 180 - kSquare / 2, 240 + kSquare / 2, 180 + kSquare / 2, kRed);
    RgbaImage shot;
    ASSERT_TRUE(m_display->PushUntil(frame, SquareIs(Box{320, 180, double(kSquare)}), &shot))
        << "square at " << Describe(SquareBounds(shot));
    EXPECT_EQ(m_display->SetU32(ZT5_CFG_DISPLAY_SCALE_RATIO, 200), ZT5_OK);
    ExpectSquare(Box{320, 180, 2.0 * kSquare});
    Drag(300, 200, 400, 250); // 0.2 units right, 0.1 down
    ExpectSquare(Box{320 + 0.2 * 240, 180 + 0.1 * 180, 2.0 * kSquare}, "_moved");
}

TEST_F(Gestures, EdgeEventsWithoutAMutexOrACallback)
{
    Start();
    if (HasFatalFailure()) return;
    // A record without a mutex: the message still arrives.
    static std::vector<uint32_t> codes; // written by the callback, on this thread
    codes.clear();
    ZT5UICallbackRecord bare = {};
    bare.pfnCallback = [](ZT5UIMessage *m, void *) { codes.push_back(m->dwValue1); };
    EXPECT_EQ(m_display->Set(ZT5_CFG_DISPLAY_UICALLBACK, &bare), ZT5_OK);
    Drag(300, 180, 320, 181);
    EXPECT_EQ(codes, std::vector<uint32_t>{kEdgeRight});
    // A record without a callback: the message block is filled, nothing
    // is called.
    CZT5Mutex mutex;
    ZT5UICallbackRecord silent = {};
    silent.pMutex = &mutex;
    EXPECT_EQ(m_display->Set(ZT5_CFG_DISPLAY_UICALLBACK, &silent), ZT5_OK);
    Drag(300, 180, 298, 160);
    EXPECT_EQ(silent.msg.dwEvent, uint32_t(ZT5_UI_EVENT));
    EXPECT_EQ(silent.msg.dwValue1, uint32_t(kEdgeBottom));
    EXPECT_EQ(silent.msg.dwValue2, uint32_t(kEdgeBottom));
    EXPECT_EQ(silent.msg.dwParamID, uint32_t(ZT5_CFG_DISPLAY_EDGE_EVENT));
    EXPECT_EQ(codes.size(), 1u);
    // The display keeps the last record it was given; leave it one that
    // outlives this test's locals.
    static ZT5UICallbackRecord none = {};
    EXPECT_EQ(m_display->Set(ZT5_CFG_DISPLAY_UICALLBACK, &none), ZT5_OK);
}

TEST_F(Gestures, DragAgainstTheEdgeReportsItOnTheCallersThread)
{
    Start();
    if (HasFatalFailure()) return;
    EventLog log;
    EXPECT_EQ(m_display->Set(ZT5_CFG_DISPLAY_UICALLBACK, &log.record), ZT5_OK);

    // At zoom 1.0 the pan can't move: every drag with a clear direction
    // meets an edge.
    Drag(300, 180, 310, 182);  // right
    Drag(300, 180, 290, 178);  // left
    Drag(300, 180, 301, 190);  // down the screen
    Drag(300, 180, 299, 170);  // up
    Drag(300, 180, 310, 190);  // |dx| == |dy|: no clear direction
    Drag(300, 180, 290, 170);  // the same, the other way
    Drag(300, 180, 0, 180);    // the current point at x = 0: ignored whole
    Drag(300, 180, 200, 0);    // and at y = 0
    Drag(300, 180, 641, 180);  // and beyond the window
    Drag(460, 180, 640, 360);  // the far corner is inside; diagonal: no event
    std::vector<uint32_t> want = {kEdgeRight, kEdgeLeft, kEdgeTop, kEdgeBottom};
    EXPECT_EQ(log.Codes(), want);
    log.mutex.Lock();
    for (const ZT5UIMessage &m : log.messages) {
        EXPECT_EQ(m.dwEvent, uint32_t(ZT5_UI_EVENT));
        EXPECT_EQ(m.dwValue1, m.dwValue2);
        EXPECT_EQ(m.dwParamID, uint32_t(ZT5_CFG_DISPLAY_EDGE_EVENT));
    }
    for (std::thread::id t : log.threads) EXPECT_EQ(t, std::this_thread::get_id());
    log.mutex.Unlock();
    // None of these moved the picture.
    ExpectSquare(ModelSquare(1, 0, 0));

    // At zoom 2.0 the limits are +-1: a drag inside them is quiet, each
    // move past the right one reports, and the draw takes the pan back.
    EXPECT_EQ(m_display->SetU32(ZT5_CFG_DISPLAY_SCALE_RATIO, 200), ZT5_OK);
    ExpectSquare(ModelSquare(2, 0, 0));
    log.Clear();
    Drag(300, 180, 400, 180); // 0.2
    Drag(300, 180, 300, 100); // 0.16 up
    EXPECT_TRUE(log.Codes().empty());
    // A current point on the window's left or top border: no pan, no event
    // (0.6 model units of pan would show).
    Drag(300, 180, 0, 180);
    Drag(300, 180, 200, 0);
    ExpectSquare(ModelSquare(2, 0.2, 0.16));
    EXPECT_TRUE(log.Codes().empty());
    Drag(100, 180, 500, 180); // 0.2 + 0.8 = 1.0: at the limit
    Drag(300, 180, 305, 180);
    ExpectSquare(ModelSquare(2, 1, 0.16));
    Drag(300, 180, 305, 180);
    Drag(300, 180, 305, 181);
    want = {kEdgeRight, kEdgeRight, kEdgeRight, kEdgeRight};
    EXPECT_EQ(log.Codes(), want);
    FECurrentStatusData st;
    ExpectSquare(ModelSquare(2, 1, 0.16));
    ASSERT_TRUE(Save(&st));
    EXPECT_EQ(st.mTransX, 1.0f);
    // Back to the left leaves the edge quietly.
    log.Clear();
    Drag(300, 180, 250, 180);
    EXPECT_TRUE(log.Codes().empty());
}

TEST_F(Gestures, EdgeCallbackMaySwitchTheView)
{
    // A host that uses the edge for its own navigation switches the view
    // from inside the callback: the drag that reported it must return.
    Start();
    if (HasFatalFailure()) return;
    struct Switcher {
        HostDisplay *display;
        int calls = 0;
        static void OnEdge(ZT5UIMessage *msg, void *arg)
        {
            if (msg->dwParamID != ZT5_CFG_DISPLAY_EDGE_EVENT) return; // cruise reports of the new view
            Switcher *self = static_cast<Switcher *>(arg);
            if (self->calls++ == 0) self->display->SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, 2);
        }
    };
    static Switcher switcher;
    switcher.display = m_display.get();
    switcher.calls = 0;
    static ZT5UICallbackRecord record = {};
    record.pfnCallback = &Switcher::OnEdge;
    record.pArg = &switcher;
    ASSERT_EQ(m_display->Set(ZT5_CFG_DISPLAY_UICALLBACK, &record), ZT5_OK);
    auto drag = std::async(std::launch::async, [&] { Drag(300, 180, 320, 181); });
    if (drag.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
        ADD_FAILURE() << "the drag whose edge callback switched the view never returned";
        std::abort(); // a deadlocked display can't be torn down
    }
    EXPECT_EQ(switcher.calls, 1);
    FECurrentStatusData st;
    ASSERT_TRUE(Save(&st));
    EXPECT_EQ(st.mFishEyeMode, 2);
}

// ------------------------------------------------------------------ saved state

TEST_F(Gestures, RestoreBringsBackThePictureOfTheSave)
{
    Start();
    if (HasFatalFailure()) return;
    EXPECT_EQ(m_display->SetU32(ZT5_CFG_DISPLAY_SCALE_RATIO, 300), ZT5_OK);
    Drag(300, 200, 380, 150);
    ExpectSquare(ModelSquare(3, 0.24, 0.15));
    RgbaImage saved = SettledSnapshot();
    SaveImage(Name("_saved"), saved);
    FECurrentStatusData rec;
    ASSERT_TRUE(Save(&rec));
    EXPECT_EQ(rec.mFishEyeMode, 0);
    EXPECT_EQ(rec.bRestored, 0u);

    // Change the view: zoom out, pan elsewhere.
    for (int i = 0; i < 12; i++) Pinch(0.5f);
    Drag(300, 200, 100, 300);
    RgbaImage changed;
    ASSERT_TRUE(m_display->WaitUntil([&](const RgbaImage &img) { return img.rgba != saved.rgba; }, &changed));

    Restore(rec);
    RgbaImage restored;
    const bool same =
        m_display->WaitUntil([&](const RgbaImage &img) { return img.rgba == saved.rgba; }, &restored);
    SaveImage(Name("_restored"), restored);
    EXPECT_TRUE(same) << "restored picture differs from the saved one; square at "
                      << Describe(SquareBounds(restored)) << " vs " << Describe(SquareBounds(saved));
    FECurrentStatusData again;
    ASSERT_TRUE(Save(&again));
    EXPECT_EQ(again.mScaleRatio, rec.mScaleRatio);
    EXPECT_EQ(again.mTransX, rec.mTransX);
    EXPECT_EQ(again.mTransY, rec.mTransY);
    EXPECT_EQ(again.bRestored, 1u);
}

TEST_F(Gestures, RestoreCarriesTheOtherFieldsThroughUnchanged)
{
    Start();
    if (HasFatalFailure()) return;
    FECurrentStatusData rec = PlainRecord(2.0f, -0.5f, 0.25f);
    rec.mAnimalStepX = 0.01f;
    rec.mAnimalStepY = -0.02f;
    rec.fCamZ[2] = 7.5f;
    rec.xMove = -3.0f;
    rec.dwReserved148 = 0xabcdef01u;
    rec.mCruiseState = 2;
    rec.bIsAutoTouring[3] = 9;
    Restore(rec);
    ExpectSquare(ModelSquare(2, -0.5, 0.25));
    FECurrentStatusData out;
    ASSERT_TRUE(Save(&out));
    FECurrentStatusData want = rec;
    want.bRestored = 1;
    EXPECT_EQ(std::memcmp(&out, &want, sizeof(out)), 0) << "a field the plain view doesn't use changed";
    // Two saves give the same address, the second over the first.
    FECurrentStatusData *p1 = nullptr, *p2 = nullptr;
    m_display->get()->GetDisplayParam(ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS, &p1);
    Drag(300, 200, 340, 200);
    m_display->get()->GetDisplayParam(ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS, &p2);
    EXPECT_EQ(p1, p2);
    ASSERT_NE(p2, nullptr);
    EXPECT_NEAR(p2->mTransX, -0.5f + 0.08f, 1e-5);
}

TEST_F(Gestures, RecordSetBeforeInitIsAppliedOnceTheRendererIsUp)
{
    MakeDisplay();
    if (HasFatalFailure()) return;
    FECurrentStatusData rec = PlainRecord(2.0f, 1.0f, -0.5f);
    Restore(rec); // only kept: no display handle yet
    Init();
    ShowFrame(ModelSquare(2, 1, -0.5));
    EXPECT_EQ(Scale(), 200u);
    FECurrentStatusData out;
    ASSERT_TRUE(Save(&out));
    EXPECT_EQ(out.mScaleRatio, 2.0f);
    EXPECT_EQ(out.mTransX, 1.0f);
    EXPECT_EQ(out.mTransY, -0.5f);
    EXPECT_EQ(out.bRestored, 1u);
}

TEST_F(Gestures, RecordSetBeforeTheFirstFrameIsAppliedWithIt)
{
    MakeDisplay();
    if (HasFatalFailure()) return;
    Init();
    FECurrentStatusData rec = PlainRecord(1.5f, -0.25f, 0.5f);
    Restore(rec); // the renderer doesn't exist yet
    ShowFrame(ModelSquare(1.5, -0.25, 0.5));
    FECurrentStatusData out;
    ASSERT_TRUE(Save(&out));
    EXPECT_EQ(out.bRestored, 1u);
}

TEST_F(Gestures, RecordOfAnotherModeIsStoredButNotApplied)
{
    MakeDisplay();
    if (HasFatalFailure()) return;
    FECurrentStatusData rec = PlainRecord(2.0f, 1.0f, 0.0f);
    rec.mFishEyeMode = 3;
    Restore(rec);
    Init();
    ShowFrame(ModelSquare(1, 0, 0));
    EXPECT_EQ(Scale(), 100u);
    FECurrentStatusData out;
    ASSERT_TRUE(Save(&out));
    EXPECT_EQ(out.mFishEyeMode, 0);
    EXPECT_EQ(out.bRestored, 0u);
    EXPECT_EQ(out.mScaleRatio, 1.0f);

    // Set live, the same: SetDisplayParam says 0 and nothing moves.
    rec.mFishEyeMode = 9;
    Restore(rec);
    SettledSnapshot();
    ExpectSquare(ModelSquare(1, 0, 0));
    EXPECT_EQ(Scale(), 100u);
    // The record of the right mode applies at once.
    rec.mFishEyeMode = 0;
    Restore(rec);
    ExpectSquare(ModelSquare(2, 1, 0));
}

// ------------------------------------------------------------------ bad input

TEST_F(Gestures, NonFiniteAndHugeGesturesLeaveTheViewWorking)
{
    Start();
    if (HasFatalFailure()) return;
    EventLog log;
    EXPECT_EQ(m_display->Set(ZT5_CFG_DISPLAY_UICALLBACK, &log.record), ZT5_OK);
    EXPECT_EQ(m_display->SetU32(ZT5_CFG_DISPLAY_SCALE_RATIO, 200), ZT5_OK);
    ExpectSquare(ModelSquare(2, 0, 0));

    const float big = std::numeric_limits<float>::max();
    // Non-finite points: ignored whole, no pan, no event.
    Drag(kNaN, 100, 300, 100);
    Drag(100, kNaN, 300, 100);
    Drag(100, 100, kNaN, 100);
    Drag(100, 100, 300, kNaN);
    Drag(kInf, 100, 300, 100);
    Drag(-kInf, -kInf, 300, 100);
    Drag(100, 100, kInf, 100);
    Drag(100, 100, 300, -kInf);
    Drag(100, 100, big, 100);
    Drag(100, 100, 1e30f, 1e30f);
    EXPECT_TRUE(log.Codes().empty());
    SettledSnapshot();
    ExpectSquare(ModelSquare(2, 0, 0));
    FECurrentStatusData st;
    ASSERT_TRUE(Save(&st));
    EXPECT_EQ(st.mTransX, 0.0f);
    EXPECT_EQ(st.mTransY, 0.0f);

    // A huge start point is a drag far past the edge: the pan goes to its
    // limit and the edge is reported, and nothing overflows.
    Drag(-big, 100, 300, 100);
    Drag(-big, 100, 300, 100);
    Drag(300, big, 300, 100);
    Drag(300, -big, 300, 100);
    std::vector<uint32_t> want = {kEdgeRight, kEdgeRight, kEdgeBottom, kEdgeTop};
    EXPECT_EQ(log.Codes(), want);
    ExpectSquare(ModelSquare(2, 1, -1), "_corner");

    // Pinches of odd rates: anything not above 1.0 is a step out.
    for (float rate : {0.0f, -1.0f, -big, kNaN, -kInf}) Pinch(rate, kNaN, kInf);
    ExpectSquare(ModelSquare(2 - 5 * 0.055, 2 - 5 * 0.055 - 1, -(2 - 5 * 0.055 - 1)));
    Pinch(kInf);
    Pinch(big);
    // In again by two steps; the pan stays where the smaller limit left it.
    ExpectSquare(ModelSquare(2 - 3 * 0.055, 2 - 5 * 0.055 - 1, -(2 - 5 * 0.055 - 1)));

    // The next good gestures work as on a fresh view.
    Restore(PlainRecord(2.0f, 0.0f, 0.0f));
    ExpectSquare(ModelSquare(2, 0, 0));
    Drag(300, 200, 400, 250);
    ExpectSquare(ModelSquare(2, 0.2, -0.1), "_after");
    Pinch(1.5f);
    ExpectSquare(ModelSquare(2.055, 0.2, -0.1));
}

TEST_F(Gestures, GarbageRecordsLeaveTheViewDrawable)
{
    Start();
    if (HasFatalFailure()) return;
    const float big = std::numeric_limits<float>::max();
    struct Case {
        const char *name;
        float scale, tx, ty, sx, sy;
        Box expect; // where the square must be once the limits have run
    };
    const Case cases[] = {
        {"nan", kNaN, kNaN, kNaN, kNaN, kNaN, ModelSquare(1, 0, 0)},
        {"inf", kInf, -kInf, kInf, kInf, -kInf, ModelSquare(1, 0, 0)},
        {"neg-inf-scale", -kInf, 0.5f, 0.5f, 0, 0, ModelSquare(1, 0, 0)},
        {"huge", big, big, -big, big, -big, ModelSquare(4, 3, -3)},
        {"huge-neg", -big, -big, big, 0, 0, ModelSquare(1, 0, 0)},
        {"nan-pan", 2.0f, kNaN, 0.5f, 0, 0, ModelSquare(2, 0, 0.5)},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        FECurrentStatusData rec;
        std::memset(&rec, 0xff, sizeof(rec)); // every field garbage: NaN floats, -1 words
        rec.mFishEyeMode = 0;
        rec.mScaleRatio = c.scale;
        rec.mTransX = c.tx;
        rec.mTransY = c.ty;
        rec.mAnimalStepX = c.sx;
        rec.mAnimalStepY = c.sy;
        Restore(rec);
        ExpectSquare(c.expect, std::string("_") + c.name);
        EXPECT_TRUE(AllPicture(SettledSnapshot()));
        const uint32_t s = Scale();
        EXPECT_GE(s, 100u);
        EXPECT_LE(s, 400u);
        // A double tap runs its animation with the garbage steps and ends
        // on the limit, with a picture all along.
        DoubleTap(10, 10);
        ASSERT_TRUE(WaitScale(c.expect.side > kSquare ? 100 : 400)) << Scale();
        ExpectSquare(c.expect.side > kSquare ? ModelSquare(1, 0, 0) : ModelSquare(4, 0, 0));
        // And the next good gesture works.
        Restore(PlainRecord(2.0f, 0.0f, 0.0f));
        Drag(300, 200, 400, 250);
        ExpectSquare(ModelSquare(2, 0.2, -0.1));
        Restore(PlainRecord(1.0f, 0.0f, 0.0f));
        ExpectSquare(ModelSquare(1, 0, 0));
    }

    // Random bytes throughout.
    srand(12345);
    for (int round = 0; round < 20; round++) {
        FECurrentStatusData rec;
        unsigned char *b = reinterpret_cast<unsigned char *>(&rec);
        for (size_t i = 0; i < sizeof(rec); i++) b[i] = uint8_t(rand());
        rec.mFishEyeMode = 0;
        Restore(rec);
        RgbaImage shot = SettledSnapshot();
        if (!AllPicture(shot)) {
            SaveImage(Name("_random" + std::to_string(round)), shot);
            ADD_FAILURE() << "round " << round << ": not all picture";
        }
        const uint32_t s = Scale();
        EXPECT_GE(s, 100u);
        EXPECT_LE(s, 400u);
    }
    Restore(PlainRecord(2.0f, 0.0f, 0.0f));
    Drag(300, 200, 400, 250);
    ExpectSquare(ModelSquare(2, 0.2, -0.1));
}

// The plain view's gestures as a host drives them: a frame with a red square
// in its centre, gestures through SetDisplayParam, the square measured in
// snapshots. The model: a zoom scales the picture about the pan point, a drag
// pans by 0.001 * zoom model units a pixel, one model unit is half the window
// (window and frame have the same proportions), the pan stays within
// +-(zoom - 1), the zoom within 1 and the limit (4 unless set).
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>

#include "Harness.h"

using namespace harness;

namespace {

const int kW = 640, kH = 360, kSquare = 80;
const Rgb kGrey = {128, 128, 128}, kRed = {210, 40, 40};
const float kNaN = std::numeric_limits<float>::quiet_NaN(), kInf = std::numeric_limits<float>::infinity();
const float kBig = std::numeric_limits<float>::max();
enum { kTop = 1, kLeft = 2, kBottom = 4, kRight = 8 }; // edge codes

// Where the square is: more red than green, half way from grey to red.
Rect SquareBounds(const Image &img)
{
    const Rgb red = Shown(kRed);
    return BoundsWhere(img, [&](Rgb c) { return int(c.r) - int(c.g) > (int(red.r) - int(red.g)) / 2; });
}

// The square as the model puts it, as far as the window shows it.
struct Model {
    double scale, tx, ty;
};
Check SquareIs(Model m, int winW = kW, int winH = kH, int picW = kW)
{
    return [=](const Image &img) {
        const double cx = winW / 2.0 + m.tx * picW / 2.0, cy = winH / 2.0 - m.ty * winH / 2.0, half = kSquare * m.scale / 2;
        const double l = std::max(0.0, cx - half), r = std::min(double(winW), cx + half);
        const double t = std::max(0.0, cy - half), b = std::min(double(winH), cy + half);
        const Rect s = SquareBounds(img);
        if (r <= l || b <= t) return s.width() <= 0;
        return s.width() > 0 && std::fabs(s.left - l) <= 1.5 && std::fabs(s.right - r) <= 1.5 &&
               std::fabs(s.top - t) <= 1.5 && std::fabs(s.bottom - b) <= 1.5;
    };
}

// Every pixel is picture: between the grey and the red, as they and their
// blends at the square's edge are. A bar, black or garbage fails.
bool AllPicture(const Image &img)
{
    const Rgb g = Shown(kGrey), r = Shown(kRed);
    auto within = [](int v, int a, int b) { return v + 8 >= std::min(a, b) && v <= std::max(a, b) + 8; };
    for (int y = 0; y < img.height; y++)
        for (int x = 0; x < img.width; x++) {
            const Rgb c = img.At(x, y);
            if (!within(c.r, r.r, g.r) || !within(c.g, r.g, g.g) || !within(c.b, r.b, g.b)) return false;
        }
    return !img.empty();
}

FECurrentStatusData PlainRecord(float scale, float tx, float ty)
{
    FECurrentStatusData rec = {};
    rec.mScaleRatio = scale;
    rec.mTransX = tx;
    rec.mTransY = ty;
    return rec;
}

class Gestures : public ::testing::Test {
protected:
    Gestures() : rig(kW, kH), frame(kW, kH, kGrey)
    {
        frame.Fill(kW / 2 - kSquare / 2, kH / 2 - kSquare / 2, kW / 2 + kSquare / 2, kH / 2 + kSquare / 2, kRed);
    }
    void SetUp() override { ASSERT_TRUE(rig.ok()); }
    void Start(Model m = {1, 0, 0})
    {
        ASSERT_EQ(rig.Init(), ZT5_OK);
        ExpectSquare(m);
    }
    void ExpectSquare(Model m, const std::string &png = "")
    {
        Image shot;
        const bool ok = d.PushUntil(frame, SquareIs(m), &shot);
        if (!ok || !png.empty()) SaveShot(shot, png.empty() ? "_fail" : png);
        const Rect s = SquareBounds(shot);
        EXPECT_TRUE(ok) << "square at " << s.left << "," << s.top << "-" << s.right << "," << s.bottom << ", model zoom "
                        << m.scale << " pan " << m.tx << "," << m.ty;
    }
    // Pushes frames until `cond` holds.
    bool Until(const std::function<bool()> &cond)
    {
        return d.PushUntil(frame, [&](const Image &) { return cond(); });
    }
    uint32_t Scale() { return d.GetU32(ZT5_CFG_DISPLAY_SCALE_RATIO); }
    Image Settled() { return d.Settled(frame); }

    Rig rig;
    Display &d = rig.display;
    Frame frame;
};

// A script of gestures and settings, each step followed by the square it
// must leave and the zoom the host reads back (0: not read).
struct Step {
    const char *what;
    std::function<void(Display &)> act;
    Model square;
    std::vector<uint32_t> percent; // any of these
};
void Repeat(Display &d, int n, float rate) { for (int i = 0; i < n; i++) d.Pinch(rate, kW / 2.0f, kH / 2.0f); }

} // namespace

TEST_F(Gestures, ScriptsOfZoomPanAndLimits)
{
    ASSERT_NO_FATAL_FAILURE(Start());
    const Step steps[] = {
        {"ten pinches in, 0.055 each", [](Display &d) { Repeat(d, 10, 1.3f); }, {1.55, 0, 0}, {155, 154}},
        {"rates of 1 and below zoom out", [](Display &d) { d.Pinch(1.0f); d.Pinch(0.5f); d.Pinch(0.99f); }, {1.385, 0, 0}, {138, 137}},
        {"never below 1", [](Display &d) { Repeat(d, 30, 0.8f); }, {1, 0, 0}, {100}},
        {"nor above the limit", [](Display &d) { Repeat(d, 80, 2.0f); }, {4, 0, 0}, {400}},
        {"scale set by the host", [](Display &d) { d.SetU32(ZT5_CFG_DISPLAY_SCALE_RATIO, 250); }, {2.5, 0, 0}, {250}},
        {"half a zoom is none", [](Display &d) { d.SetU32(ZT5_CFG_DISPLAY_SCALE_RATIO, 50); }, {1, 0, 0}, {100}},
        {"a huge scale is the limit", [](Display &d) { d.SetU32(ZT5_CFG_DISPLAY_SCALE_RATIO, 0xffffffffu); }, {4, 0, 0}, {400}},
        {"a lower limit takes the zoom down", [](Display &d) { d.SetU32(ZT5_CFG_DISPLAY_MAX_SCALE, 300); }, {3, 0, 0}, {300}},
        {"a limit of 0 is ignored", [](Display &d) { d.SetU32(ZT5_CFG_DISPLAY_MAX_SCALE, 0); Repeat(d, 10, 1.5f); }, {3, 0, 0}, {300}},
        {"a limit below 1 shrinks, centred", [](Display &d) { d.SetU32(ZT5_CFG_DISPLAY_MAX_SCALE, 50); }, {0.5, 0, 0}, {100}},
        {"and no drag moves it", [](Display &d) { d.Drag(300, 180, 400, 200); }, {0.5, 0, 0}, {100}},
        {"zoom 2", [](Display &d) { d.SetU32(ZT5_CFG_DISPLAY_MAX_SCALE, 400); d.SetU32(ZT5_CFG_DISPLAY_SCALE_RATIO, 200); }, {2, 0, 0}, {200}},
        {"100 px right, 50 down: 0.2, -0.1", [](Display &d) { d.Drag(300, 200, 400, 250); }, {2, 0.2, -0.1}, {}},
        {"far past the edge: the limit", [](Display &d) { d.Drag(10, 300, 630, 350); }, {2, 1, -0.2}, {}},
        {"non-finite or huge points are ignored", [](Display &d) {
             for (auto p : {std::array<float, 4>{kNaN, 100, 300, 100}, {100, kNaN, 300, 100}, {100, 100, kNaN, 100},
                            {100, 100, 300, kNaN}, {kInf, 100, 300, 100}, {-kInf, -kInf, 300, 100},
                            {100, 100, kInf, 100}, {100, 100, 300, -kInf}, {100, 100, kBig, 100}, {100, 100, 1e30f, 1e30f}})
                 d.Drag(p[0], p[1], p[2], p[3]);
         }, {2, 1, -0.2}, {}},
        {"a huge start point pans to the limits", [](Display &d) { d.Drag(-kBig, 100, 300, 100); d.Drag(300, -kBig, 300, 100); }, {2, 1, -1}, {}},
        {"odd rates step out, the pan follows the limit; non-finite pinches are dropped", [](Display &d) {
             for (float r : {0.0f, -1.0f, -kBig}) d.Pinch(r, 10, 10);
             for (float r : {kNaN, -kInf, kInf}) d.Pinch(r);
             d.Pinch(0.5f, kNaN, kInf);
         }, {2 - 3 * 0.055, 1 - 3 * 0.055, -(1 - 3 * 0.055)}, {}},
        {"huge rates step in", [](Display &d) { d.Pinch(kBig); }, {2 - 2 * 0.055, 1 - 3 * 0.055, -(1 - 3 * 0.055)}, {}},
    };
    // A limit set absurdly high reads back as the largest percent there is.
    d.SetU32(ZT5_CFG_DISPLAY_MAX_SCALE, 0xffffffffu);
    EXPECT_GT(d.GetU32(ZT5_CFG_DISPLAY_MAX_SCALE), 4294967000u);
    d.SetU32(ZT5_CFG_DISPLAY_MAX_SCALE, 400);
    for (const Step &s : steps) {
        SCOPED_TRACE(s.what);
        s.act(d);
        ExpectSquare(s.square);
        if (!s.percent.empty()) {
            const uint32_t p = Scale();
            EXPECT_NE(std::find(s.percent.begin(), s.percent.end(), p), s.percent.end()) << "zoom read " << p;
        }
    }
    const Image saved = Settled();
    const FECurrentStatusData st = d.Saved();
    EXPECT_NEAR(st.mScaleRatio, 2 - 2 * 0.055, 1e-4);
    EXPECT_EQ(st.mFishEyeMode, 0);
    // Restored after other gestures, the saved record brings back the very
    // picture of the save.
    Repeat(d, 12, 0.5f);
    d.Drag(300, 200, 100, 300);
    ASSERT_TRUE(d.PushUntil(frame, [&](const Image &i) { return i.rgba != saved.rgba; }));
    d.Restore(st);
    Image restored;
    EXPECT_TRUE(d.PushUntil(frame, [&](const Image &i) { return i.rgba == saved.rgba; }, &restored));
    SaveShot(restored, "_restored");
}

// A 4:3 frame in the 16:9 window fills its height: a model unit is half the
// window's height up and down and half the picture's width across.
TEST_F(Gestures, DragPansInUnitsOfALetterboxedPicture)
{
    ASSERT_EQ(rig.Init(), ZT5_OK);
    frame = Frame(480, 360, kGrey);
    frame.Fill(240 - kSquare / 2, 180 - kSquare / 2, 240 + kSquare / 2, 180 + kSquare / 2, kRed);
    ASSERT_TRUE(d.PushUntil(frame, SquareIs({1, 0, 0}, kW, kH, 480)));
    ASSERT_EQ(d.SetU32(ZT5_CFG_DISPLAY_SCALE_RATIO, 200), ZT5_OK);
    d.Drag(300, 200, 400, 250);
    EXPECT_TRUE(d.PushUntil(frame, SquareIs({2, 0.2, -0.1}, kW, kH, 480)));
}

// A double tap animates the zoom to the limit in steps, and back to 1 with
// the pan shrinking in proportion; a drag or a pinch stops the animation, the
// next tap resumes it, taps outside the window do nothing.
TEST_F(Gestures, DoubleTapAnimatesTheZoomBothWays)
{
    ASSERT_NO_FATAL_FAILURE(Start());
    d.DoubleTap(kW / 2.0f, kH / 2.0f);
    std::vector<uint32_t> seen;
    Until([&] {
        const uint32_t s = Scale();
        if (seen.empty() || s != seen.back()) seen.push_back(s);
        return s == 400;
    });
    ASSERT_FALSE(seen.empty());
    EXPECT_EQ(seen.back(), 400u);
    EXPECT_GE(seen.size(), 3u) << "no zoom between the ends";
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
    ExpectSquare({4, 0, 0});

    d.Drag(100, 200, 400, 200); // 300 px at zoom 4: 1.2 right
    d.Drag(300, 300, 300, 150); // 0.6 up
    ExpectSquare({4, 1.2, 0.6});
    d.DoubleTap(0, 0); // the window's corner counts
    int samples = 0;
    Until([&] {
        const FECurrentStatusData st = d.Saved();
        if (st.mScaleRatio > 1.0f && st.mScaleRatio < 3.9f) {
            samples++;
            EXPECT_NEAR(st.mTransX, 0.4 * (st.mScaleRatio - 1.0), 2e-3) << "at zoom " << st.mScaleRatio;
            EXPECT_NEAR(st.mTransY, 0.2 * (st.mScaleRatio - 1.0), 2e-3) << "at zoom " << st.mScaleRatio;
        }
        return st.mScaleRatio <= 1.0f;
    });
    EXPECT_GT(samples, 0);
    ExpectSquare({1, 0, 0});

    // Stopped half way by a drag of one pixel, or by a pinch.
    for (int stopper = 0; stopper < 2; stopper++) {
        SCOPED_TRACE(stopper ? "pinch" : "drag");
        d.DoubleTap(kW, kH);
        ASSERT_TRUE(Until([&] { return Scale() >= (stopper ? 130u : 160u); }));
        if (stopper) d.Pinch(1.5f); else d.Drag(300, 180, 301, 180);
        Settled();
        const uint32_t stopped = Scale();
        ASSERT_LT(stopped, 400u) << "the animation ended before it could be stopped";
        for (auto p : {std::array<float, 2>{-1, 5}, {kW + 1.0f, 5}, {5, kH + 0.5f}, {kNaN, 5}}) d.DoubleTap(p[0], p[1]);
        Settled();
        EXPECT_EQ(Scale(), stopped);
        d.DoubleTap(10, 10); // resumes in the same direction
        EXPECT_TRUE(Until([&] { return Scale() == 400u; }));
        d.DoubleTap(10, 10);
        EXPECT_TRUE(Until([&] { return d.Saved().mScaleRatio <= 1.0f; })); // at the end: a tap now starts anew
    }
}

// Each drag that meets the edge of the picture reports it once, on the
// caller's thread, as long as its direction is clear.
TEST_F(Gestures, DragsAgainstTheEdgeReportIt)
{
    ASSERT_NO_FATAL_FAILURE(Start());
    EventLog log;
    ASSERT_EQ(d.Set(ZT5_CFG_DISPLAY_UICALLBACK, &log.record), ZT5_OK);
    struct Case {
        uint32_t percent;
        float x0, y0, x1, y1;
        std::vector<uint32_t> codes;
    } cases[] = {
        // At zoom 1 the pan can't move: every clear direction meets an edge.
        {100, 300, 180, 310, 182, {kRight}}, {100, 300, 180, 290, 178, {kLeft}},
        {100, 300, 180, 301, 190, {kTop}},   {100, 300, 180, 299, 170, {kBottom}},
        {100, 300, 180, 310, 190, {}},       {100, 300, 180, 290, 170, {}}, // |dx| == |dy|
        {100, 300, 180, 0, 180, {}},         {100, 300, 180, 200, 0, {}},   // current point on the border
        {100, 300, 180, 641, 180, {}},       {100, 460, 180, 640, 360, {}}, // beyond; far corner, diagonal
        // At zoom 2 the limits are +-1: quiet inside, each move past them reports.
        {200, 300, 180, 400, 180, {}},       {200, 300, 180, 300, 100, {}},
        {200, 100, 180, 500, 180, {kRight}}, {200, 300, 180, 305, 180, {kRight}},
        {200, 300, 180, 305, 181, {kRight}}, {200, 300, 180, 250, 180, {}},
    };
    uint32_t percent = 100;
    for (const Case &c : cases) {
        SCOPED_TRACE(std::to_string(c.x0) + "," + std::to_string(c.y0) + " -> " + std::to_string(c.x1) + "," +
                     std::to_string(c.y1) + " at " + std::to_string(c.percent));
        if (c.percent != percent) { // the new zoom, centred
            percent = c.percent;
            d.Restore(PlainRecord(percent / 100.0f, 0, 0));
            ExpectSquare({percent / 100.0, 0, 0});
        }
        log.Clear();
        d.Drag(c.x0, c.y0, c.x1, c.y1);
        EXPECT_EQ(log.Values(ZT5_CFG_DISPLAY_EDGE_EVENT), c.codes); // sent before the drag returns
    }
    log.mutex.Lock();
    for (const ZT5UIMessage &m : log.messages) EXPECT_TRUE(m.dwEvent == ZT5_UI_EVENT && m.dwValue2 == m.dwValue1);
    log.mutex.Unlock();
    d.Restore(PlainRecord(1, 0, 0));
    ExpectSquare({1, 0, 0});

    // A record without a mutex still gets its call; one without a callback
    // gets the message block filled.
    static std::vector<uint32_t> codes;
    static ZT5UICallbackRecord bare = {}, silent = {};
    static CZT5Mutex mutex;
    bare.pfnCallback = [](ZT5UIMessage *m, void *) { codes.push_back(m->dwValue1); };
    silent.pMutex = &mutex;
    ASSERT_EQ(d.Set(ZT5_CFG_DISPLAY_UICALLBACK, &bare), ZT5_OK);
    d.Drag(300, 180, 320, 181);
    EXPECT_EQ(codes, std::vector<uint32_t>{kRight});
    ASSERT_EQ(d.Set(ZT5_CFG_DISPLAY_UICALLBACK, &silent), ZT5_OK);
    d.Drag(300, 180, 320, 181);
    EXPECT_EQ(silent.msg.dwValue1, uint32_t(kRight));
    EXPECT_EQ(silent.msg.dwParamID, uint32_t(ZT5_CFG_DISPLAY_EDGE_EVENT));
}

// A restored record of the plain view brings back its picture (whenever it
// is set: Settings.TakeEffectWheneverTheyAreSet), and fields the plain view
// doesn't use travel through; a record of another view, before Init or
// live, is kept but not applied.
TEST_F(Gestures, RestoreAppliesTheRecordOfItsViewOnly)
{
    auto record = [](int32_t mode) {
        FECurrentStatusData rec = PlainRecord(2, 0.5f, 0);
        rec.mFishEyeMode = mode;
        rec.fCamZ[2] = 7.5f, rec.dwReserved148 = 0xabcdef01u, rec.bIsAutoTouring[3] = 9, rec.mCruiseState = 2;
        return rec;
    };
    d.Restore(record(3));
    ASSERT_NO_FATAL_FAILURE(Start());
    d.Restore(record(9));
    ExpectSquare({1, 0, 0});
    FECurrentStatusData out = d.Saved();
    EXPECT_EQ(out.mFishEyeMode, 0);
    EXPECT_EQ(out.bRestored, 0u);
    FECurrentStatusData rec = record(0);
    d.Restore(rec);
    ExpectSquare({2, 0.5, 0});
    rec.bRestored = 1;
    out = d.Saved();
    EXPECT_EQ(std::memcmp(&out, &rec, sizeof(out)), 0) << "a field the plain view doesn't use changed";
}

// Records of garbage (non-finite, huge, random bytes) leave a drawable view:
// the limits bring every value back in range, and the next good gestures
// work as on a fresh view.
TEST_F(Gestures, GarbageRecordsLeaveTheViewDrawable)
{
    ASSERT_NO_FATAL_FAILURE(Start());
    struct Case {
        const char *name;
        float scale, tx, ty, sx, sy;
        Model square;
    } cases[] = {
        {"nan", kNaN, kNaN, kNaN, kNaN, kNaN, {1, 0, 0}},     {"inf", kInf, -kInf, kInf, kInf, -kInf, {1, 0, 0}},
        {"-inf-scale", -kInf, 0.5f, 0.5f, 0, 0, {1, 0, 0}},   {"huge", kBig, kBig, -kBig, kBig, -kBig, {4, 3, -3}},
        {"huge-neg", -kBig, -kBig, kBig, 0, 0, {1, 0, 0}},    {"nan-pan", 2.0f, kNaN, 0.5f, 0, 0, {2, 0, 0.5}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        FECurrentStatusData rec;
        std::memset(&rec, 0xff, sizeof(rec)); // every other field garbage too
        rec.mFishEyeMode = 0;
        rec.mScaleRatio = c.scale, rec.mTransX = c.tx, rec.mTransY = c.ty;
        rec.mAnimalStepX = c.sx, rec.mAnimalStepY = c.sy;
        d.Restore(rec);
        ExpectSquare(c.square, std::string("_") + c.name);
        EXPECT_TRUE(AllPicture(Settled()));
        // A double tap runs its animation with the garbage steps to an end.
        const bool in = c.square.scale == 1;
        d.DoubleTap(10, 10);
        ASSERT_TRUE(Until([&] { return Scale() == (in ? 400u : 100u); })) << Scale();
        ExpectSquare({in ? 4.0 : 1.0, 0, 0});
        d.Restore(PlainRecord(2, 0, 0));
        d.Drag(300, 200, 400, 250);
        ExpectSquare({2, 0.2, -0.1});
    }
    srand(12345);
    for (int round = 0; round < 10; round++) {
        FECurrentStatusData rec;
        for (size_t i = 0; i < sizeof(rec); i++) reinterpret_cast<uint8_t *>(&rec)[i] = uint8_t(rand());
        rec.mFishEyeMode = 0;
        d.Restore(rec);
        const Image shot = Settled();
        if (!AllPicture(shot)) SaveShot(shot, "_random" + std::to_string(round));
        EXPECT_TRUE(AllPicture(shot)) << "round " << round;
        EXPECT_TRUE(Scale() >= 100u && Scale() <= 400u) << Scale();
    }
}

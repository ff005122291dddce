// The plug-in boundary as a host sees it, without drawing (the OpenGL road
// stays off, so no X display is needed): the two exported functions, the
// factory, the public headers, and what the display object answers to its
// lifecycle, its parameters and frames.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstdlib>
#include <cstring>
#include <fstream>

#include "Harness.h"

using namespace harness;

namespace {

const uint32_t kWnd = 0x4400001; // no window is ever looked at without the OpenGL road

ZT5FrameInfo Info(uint32_t w, uint32_t h, uint32_t cs = ZT5_FRAME_CS_I420)
{
    return ZT5FrameInfo{w, h, w, h, 0, cs, 0, 0};
}

} // namespace

TEST(PluginBoundary, ExportedFunctionsAndFactory)
{
    ASSERT_NE(LibraryHandle(), nullptr) << Error();
    auto get = reinterpret_cast<PFN_ZT_GetPlugin>(dlsym(LibraryHandle(), "ZT_GetPlugin"));
    auto rel = reinterpret_cast<PFN_ZT_ReleasePlugin>(dlsym(LibraryHandle(), "ZT_ReleasePlugin"));
    ASSERT_TRUE(get && rel);
    EXPECT_EQ(get(nullptr), ZT5_ERR_INVALID_PARAM);
    EXPECT_EQ(rel(nullptr), ZT5_ERR_INVALID_PARAM);
    IZT5Plugin *plugin = nullptr;
    ASSERT_EQ(get(&plugin), ZT5_OK);
    uint32_t disp; // the type's bytes read "psid" on a little-endian machine
    std::memcpy(&disp, "psid", 4);
    EXPECT_EQ(disp, ZT5_PLUGIN_TYPE_DISP);
    EXPECT_EQ(plugin->QueryType(disp), ZT5_OK);
    EXPECT_EQ(plugin->ReleaseType(disp), ZT5_OK);
    EXPECT_EQ(plugin->QueryType(disp + 1), ZT5_ERR_UNKNOWN_TYPE);
    EXPECT_EQ(plugin->ReleaseType(0), ZT5_ERR_UNKNOWN_TYPE);
    void *obj = reinterpret_cast<void *>(0x1);
    EXPECT_EQ(plugin->CreateObject(disp, disp, nullptr), ZT5_ERR_INVALID_PARAM);
    EXPECT_EQ(plugin->CreateObject(disp, 0x76696465, &obj), ZT5_ERR_INVALID_PARAM);
    EXPECT_EQ(obj, nullptr) << "the out pointer is cleared first";
    EXPECT_EQ(plugin->CreateObject(0, disp, &obj), ZT5_ERR_INVALID_PARAM);
    void *a = nullptr, *b = nullptr;
    ASSERT_EQ(plugin->CreateObject(disp, disp, &a), ZT5_OK);
    ASSERT_EQ(plugin->CreateObject(disp, disp, &b), ZT5_OK);
    ASSERT_TRUE(a && b && a != b);
    // A wrong type destroys nothing: the object still answers.
    EXPECT_EQ(plugin->DestroyObject(0, disp, a), ZT5_ERR_INVALID_PARAM);
    EXPECT_EQ(plugin->DestroyObject(disp, 1, a), ZT5_ERR_INVALID_PARAM);
    EXPECT_EQ(plugin->DestroyObject(disp, disp, nullptr), ZT5_ERR_INVALID_PARAM);
    uint32_t zoom = 0;
    EXPECT_EQ(static_cast<IZT5Display *>(a)->GetDisplayParam(ZT5_CFG_DISPLAY_ZOOM, &zoom), ZT5_OK);
    EXPECT_EQ(zoom, 100u);
    EXPECT_EQ(plugin->DestroyObject(disp, disp, a), ZT5_OK);
    // The factory may go before its displays; a display initialised, fed a
    // frame and destroyed without Uninit leaves nothing behind.
    EXPECT_EQ(rel(plugin), ZT5_OK);
    IZT5Display *d = static_cast<IZT5Display *>(b);
    ZT5DisplayParam rec = {kWnd, {0, 0, 320, 240}, {0, 0, 320, 240}, 0, 0};
    EXPECT_EQ(d->Init(&rec), ZT5_OK);
    Frame f(32, 32);
    ZT5FrameInfo info = Info(32, 32);
    EXPECT_EQ(d->DrawFrame(f.data.data(), &info, 0), ZT5_OK);
    delete d;
}

// A host compiles against include/ alone.
TEST(PluginBoundary, PublicHeadersStandAlone)
{
    char dir[] = "/tmp/panoview-hdrXXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string src = std::string(dir) + "/host.cpp", obj = std::string(dir) + "/host.o";
    std::ofstream(src) << "#include \"ZT5Plugin.h\"\n#include \"ZT5Mutex.h\"\n"
                          "int main() { IZT5Plugin *p = 0; ZT_GetPlugin(&p); void *o = 0;\n"
                          "  p->CreateObject(ZT5_PLUGIN_TYPE_DISP, ZT5_PLUGIN_TYPE_DISP, &o);\n"
                          "  ZT5DisplayParam r = {}; ZT5FrameInfo fi = {}; ZT5UICallbackRecord ui = {}; CZT5Mutex m;\n"
                          "  (void)ui; (void)m; ((IZT5Display *)o)->Init(&r); ((IZT5Display *)o)->DrawFrame(0, &fi, 0);\n"
                          "  return 0; }\n";
    const char *cxx = std::getenv("CXX");
    const std::string cmd = std::string(cxx && *cxx ? cxx : "c++") + " -std=c++17 -Wall -Werror -c -I '" +
                            PANOVIEW_SOURCE_DIR "/include' '" + src + "' -o '" + obj + "' 2>&1";
    const std::string out = Shell(cmd);
    EXPECT_TRUE(std::ifstream(obj).good()) << cmd << "\n" << out;
    std::system(("rm -rf '" + std::string(dir) + "'").c_str());
}

// Parameters: a null payload is refused for every id, before and after Init;
// ids the display doesn't serve are unsupported; values out of range are
// refused and leave the stored one.
TEST(DisplayBoundary, ParameterCatalogue)
{
    Display d;
    ASSERT_TRUE(d.ok());
    for (int phase = 0; phase < 2; phase++) {
        for (uint32_t id : kHostIds) {
            EXPECT_EQ(d->SetDisplayParam(id, nullptr), ZT5_ERR_INVALID_PARAM) << std::hex << id;
            EXPECT_EQ(d->GetDisplayParam(id, nullptr), ZT5_ERR_INVALID_PARAM) << std::hex << id;
        }
        if (phase == 0) {
            ASSERT_EQ(d.Init(kWnd, 1280, 720), ZT5_OK);
        }
    }
    uint32_t word = 0;
    for (uint32_t id : {0x12345u, 0xFFFFFFFFu, 0u, uint32_t(ZT5_CFG_PLUGINMGR_HDL), uint32_t(ZT5_CFG_DISPLAY_RENDERER_INITED),
                        uint32_t(ZT5_CFG_COMMON_BENCHMARK), uint32_t(ZT5_CFG_DISPLAY_GL_SNAPSHOT)})
        EXPECT_EQ(d->SetDisplayParam(id, &word), ZT5_ERR_UNSUPPORTED) << std::hex << id;
    for (uint32_t id : {0x12345u, uint32_t(ZT5_CFG_DISPLAY_FIT_MODE), uint32_t(ZT5_CFG_DISPLAY_UITOUCH_DOWN),
                        uint32_t(ZT5_CFG_COMMON_ORIENTATION)})
        EXPECT_EQ(d->GetDisplayParam(id, &word), ZT5_ERR_UNSUPPORTED) << std::hex << id;

    struct Case {
        uint32_t id, value;
        int32_t result;
        uint32_t readBack; // 0: not readable
    } cases[] = {
        {ZT5_CFG_DISPLAY_ZOOM, 24, ZT5_ERR_INVALID_PARAM, 100}, {ZT5_CFG_DISPLAY_ZOOM, 801, ZT5_ERR_INVALID_PARAM, 100},
        {ZT5_CFG_DISPLAY_ZOOM, 25, ZT5_OK, 25},                 {ZT5_CFG_DISPLAY_ZOOM, 800, ZT5_OK, 800},
        {ZT5_CFG_COMMON_ROTATION, 90, ZT5_OK, 90},              {ZT5_CFG_COMMON_ROTATION, 45, ZT5_ERR_INVALID_PARAM, 90},
        {ZT5_CFG_COMMON_ROTATION, 360, ZT5_ERR_INVALID_PARAM, 90},
        {ZT5_CFG_COMMON_ORIENTATION, 3, ZT5_ERR_UNSUPPORTED, 0}, {ZT5_CFG_COMMON_ORIENTATION, 2, ZT5_OK, 0},
        {ZT5_CFG_DISPLAY_STATUS, 2, ZT5_OK, 1},                 {ZT5_CFG_DISPLAY_STATUS, 1, ZT5_OK, 1},
        {ZT5_CFG_DISPLAY_FIT_MODE, 1, ZT5_OK, 0},               {ZT5_CFG_DISPLAY_ZOOM, 100, ZT5_ERR_INVALID_PARAM, 800},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::to_string(c.id) + " = " + std::to_string(c.value));
        EXPECT_EQ(d.SetU32(c.id, c.value), c.result);
        if (c.readBack) {
            EXPECT_EQ(d.GetU32(c.id), c.readBack);
        }
    }
    // The reads served by the display manager leave the word alone while
    // there is no handle, and answer once there is.
    Display fresh;
    EXPECT_EQ(fresh.GetU32(ZT5_CFG_DISPLAY_USE_OPENGLES, 0xABCD), 0xABCDu);
    void *p = &word;
    EXPECT_EQ(fresh->GetDisplayParam(ZT5_CFG_DISPLAY_GL_SNAPSHOT, &p), ZT5_OK);
    EXPECT_EQ(p, &word);
    fresh.SetU32(ZT5_CFG_DISPLAY_USE_OPENGLES, 1);
    ASSERT_EQ(fresh.Init(kWnd, 640, 480), ZT5_OK);
    EXPECT_EQ(fresh.GetU32(ZT5_CFG_DISPLAY_USE_OPENGLES, 0xABCD), 1u) << "the remembered switch reached the manager";
}

// Init and Uninit: rectangles that can't hold a picture are refused and
// leave the display uninitialised; frames need an initialised display.
TEST(DisplayBoundary, LifecycleAndRectangles)
{
    Display d;
    ASSERT_TRUE(d.ok());
    Frame f(64, 64);
    ZT5FrameInfo info = Info(64, 64);
    EXPECT_EQ(d->DrawFrame(f.data.data(), &info, 0), ZT5_ERR_NOT_READY);
    EXPECT_EQ(d->DrawFrame(nullptr, nullptr, 0), ZT5_ERR_NOT_READY);
    EXPECT_EQ(d->Init(nullptr), ZT5_ERR_INVALID_PARAM);
    struct Bad {
        ZT5Rect screen, clip;
    } bad[] = {{{0, 0, 0, 0}, {0, 0, 0, 0}},       {{0, 0, 100, 100}, {100, 0, 200, 100}},
               {{0, 0, 100, 100}, {0, 100, 100, 200}}, {{100, 100, 0, 0}, {100, 100, 0, 0}},
               {{INT32_MIN, 0, INT32_MAX, 100}, {INT32_MIN, 0, INT32_MAX, 100}}};
    for (const Bad &b : bad) {
        ZT5DisplayParam rec = {kWnd, b.screen, b.clip, 0, 0};
        EXPECT_EQ(d->Init(&rec), ZT5_ERR_INVALID_PARAM) << int(&b - bad);
        EXPECT_EQ(d->DrawFrame(f.data.data(), &info, 0), ZT5_ERR_NOT_READY);
    }
    ZT5DisplayParam back;
    ASSERT_EQ(d->GetDisplayParam(ZT5_CFG_DISPLAY_PARAM, &back), ZT5_OK);
    EXPECT_EQ(back.hWnd, 0u);
    // An empty clip with a good screen is taken, as the screen.
    ZT5DisplayParam rec = {kWnd, {0, 0, 640, 480}, {0, 0, 0, 0}, 0, 0};
    ASSERT_EQ(d->Init(&rec), ZT5_OK);
    ASSERT_EQ(d->GetDisplayParam(ZT5_CFG_DISPLAY_PARAM, &back), ZT5_OK);
    EXPECT_EQ(back.rtClip.right, 640);
    EXPECT_EQ(back.rtClip.bottom, 480);
    EXPECT_EQ(d->Init(&rec), ZT5_ERR_ALREADY_INITED);
    EXPECT_EQ(d->Init(nullptr), ZT5_ERR_ALREADY_INITED) << "already initialised comes first";
    EXPECT_EQ(d->DrawFrame(f.data.data(), &info, 0), ZT5_OK);
    EXPECT_EQ(d->Uninit(), ZT5_OK);
    EXPECT_EQ(d->Uninit(), ZT5_OK);
    EXPECT_EQ(d->DrawFrame(f.data.data(), &info, 0), ZT5_ERR_NOT_READY);
    ASSERT_EQ(d->Init(&rec), ZT5_OK);
    EXPECT_EQ(d->DrawFrame(f.data.data(), &info, 0), ZT5_OK);
    // Without the OpenGL road nothing is drawn: no snapshot record appears.
    void *p = &rec;
    EXPECT_EQ(d->GetDisplayParam(ZT5_CFG_DISPLAY_GL_SNAPSHOT, &p), ZT5_OK);
    EXPECT_EQ(p, &rec);
    EXPECT_EQ(d.GetU32(ZT5_CFG_DISPLAY_USE_OPENGLES, 77), 0u);
}

// Frames without size or data, and sizes the geometry can't take, are
// refused; the refused ones leave the display as it was.
TEST(DisplayBoundary, FramesAndSizesThatAreRefused)
{
    Display d;
    ASSERT_TRUE(d.ok());
    ASSERT_EQ(d.Init(kWnd, 1280, 720), ZT5_OK);
    Frame f(64, 48);
    struct Case {
        uint32_t w, h;
        bool data, info, skip;
        int32_t result;
    } cases[] = {{64, 48, true, true, false, ZT5_OK},   {0, 48, true, true, false, ZT5_ERR_INVALID_PARAM},
                 {64, 0, true, true, false, ZT5_ERR_INVALID_PARAM}, {20000, 48, true, true, false, ZT5_ERR_INVALID_PARAM},
                 {64, 48, true, false, false, ZT5_ERR_INVALID_PARAM}, {64, 48, false, true, false, ZT5_ERR_INVALID_PARAM},
                 {64, 48, false, true, true, ZT5_OK}};
    for (const Case &c : cases) {
        ZT5FrameInfo info = Info(c.w, c.h);
        EXPECT_EQ(d->DrawFrame(c.data ? f.data.data() : nullptr, c.info ? &info : nullptr, c.skip), c.result) << int(&c - cases);
    }
    ZT5Rect src = {0, 0, 100000, 10};
    EXPECT_EQ(d.Set(ZT5_CFG_DISPLAY_SOURCE_RECT, &src), ZT5_ERR_INVALID_PARAM);
    ZT5DisplayParam huge = {kWnd, {-(1 << 30), 0, 1 << 30, 720}, {-(1 << 30), 0, 1 << 30, 720}, 0, 0};
    EXPECT_EQ(d.Set(ZT5_CFG_DISPLAY_PARAM, &huge), ZT5_ERR_INVALID_PARAM);
    // The largest frame against a one-pixel source in every fit mode: the
    // products stay in range or the frame is refused.
    src = {0, 0, 1, 1};
    ASSERT_EQ(d.Set(ZT5_CFG_DISPLAY_SOURCE_RECT, &src), ZT5_OK);
    ASSERT_EQ(d.SetWindow(kWnd, 60000, 60000), ZT5_OK);
    const ZT5FrameInfo big = Info(16384, 16384);
    for (uint32_t fit : {0u, 1u, 2u, 4u, 5u}) {
        ASSERT_EQ(d.SetU32(ZT5_CFG_DISPLAY_FIT_MODE, fit), ZT5_OK);
        const int32_t r = d->DrawFrame(nullptr, &big, 1);
        EXPECT_TRUE(r == ZT5_OK || r == ZT5_ERR_INVALID_PARAM) << fit << " " << r;
    }
    // Hidden, a frame is a no-op that doesn't look at its arguments.
    ASSERT_EQ(d.SetU32(ZT5_CFG_DISPLAY_STATUS, 0), ZT5_OK);
    EXPECT_EQ(d->DrawFrame(nullptr, nullptr, 0), ZT5_OK);
}

// The zoom the host reads back is the ratio the fitting achieved: kept while
// the window grows, worked out at once when a new zoom is asked.
TEST(DisplayBoundary, ZoomReadBackIsTheAchievedRatio)
{
    struct Case {
        int winW, winH, frameW, frameH, growW, growH;
        uint32_t asked, first, afterGrow, afterAsk;
    } cases[] = {{1280, 720, 1920, 1080, 0, 0, 200, 66, 66, 66}, {960, 540, 1280, 720, 1600, 1000, 50, 75, 75, 50},
                 {1280, 720, 640, 480, 0, 0, 200, 100, 100, 150}};
    for (const Case &c : cases) {
        SCOPED_TRACE(int(&c - cases));
        Display d;
        ASSERT_EQ(d.Init(kWnd, c.winW, c.winH), ZT5_OK);
        Frame f(c.frameW, c.frameH);
        ASSERT_EQ(d.Push(f), ZT5_OK);
        EXPECT_EQ(d.GetU32(ZT5_CFG_DISPLAY_ZOOM), c.first);
        if (c.growW) {
            ASSERT_EQ(d.SetWindow(kWnd, c.growW, c.growH), ZT5_OK);
            ASSERT_EQ(d.Push(f), ZT5_OK);
        }
        EXPECT_EQ(d.GetU32(ZT5_CFG_DISPLAY_ZOOM), c.afterGrow);
        ASSERT_EQ(d.SetU32(ZT5_CFG_DISPLAY_ZOOM, c.asked), ZT5_OK);
        EXPECT_EQ(d.GetU32(ZT5_CFG_DISPLAY_ZOOM), c.afterAsk);
    }
}

// The codec's frame callback takes the plain view's frames instead of the
// display, and is forgotten at Uninit; the benchmark counts blits and
// callbacks, resets, and stops in player mode 1.
TEST(DisplayBoundary, FrameCallbackAndBenchmark)
{
    static int calls;
    calls = 0;
    ZT5FrameCallback cb = {[](void *, void *) -> int32_t { return ++calls, 42; }, &calls};
    Display d;
    ASSERT_EQ(d.Set(ZT5_CFG_CODEC_FRAME_CALLBACK, &cb), ZT5_OK);
    ASSERT_EQ(d.Init(kWnd, 640, 480), ZT5_OK);
    Frame f(64, 64);
    auto triple = [&](uint32_t id) {
        uint32_t t[3] = {7, 7, 7};
        EXPECT_EQ(d->GetDisplayParam(id, t), ZT5_OK);
        return t[1];
    };
    EXPECT_EQ(d.Push(f), 42);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(triple(ZT5_CFG_COMMON_BENCHMARK_FRAME), 1u);
    ASSERT_EQ(d.SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, 1), ZT5_OK);
    EXPECT_EQ(d.Push(f), ZT5_OK) << "a fisheye view takes its frames itself";
    ASSERT_EQ(d.SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, 0), ZT5_OK);
    ASSERT_EQ(d->Uninit(), ZT5_OK);
    ASSERT_EQ(d.Init(kWnd, 640, 480), ZT5_OK);
    for (int i = 0; i < 4; i++) ASSERT_EQ(d.Push(f), ZT5_OK);
    EXPECT_EQ(calls, 1) << "Uninit forgets the callback";
    EXPECT_EQ(triple(ZT5_CFG_COMMON_BENCHMARK_BLIT), 5u);
    ZT5BenchmarkRecord rec = {};
    ASSERT_EQ(d->GetDisplayParam(ZT5_CFG_COMMON_BENCHMARK, &rec), ZT5_OK);
    EXPECT_EQ(rec.dwWords[12], 5u);
    rec.dwWords[1] = 3;
    EXPECT_EQ(d->GetDisplayParam(ZT5_CFG_COMMON_BENCHMARK, &rec), ZT5_ERR_INVALID_PARAM) << "a triple index is 0..2";
    ASSERT_EQ(d.SetU32(ZT5_CFG_COMMON_BENCHMARK_RESET, 0), ZT5_OK);
    EXPECT_EQ(triple(ZT5_CFG_COMMON_BENCHMARK_BLIT), 0u) << "no item after a reset: zeros, not the old words";
    ASSERT_EQ(d.Push(f), ZT5_OK);
    EXPECT_EQ(triple(ZT5_CFG_COMMON_BENCHMARK_BLIT), 1u);
    ZT5PlayerMode mode = {1, 1.0f};
    ASSERT_EQ(d.Set(ZT5_CFG_PLAYER_MODE, &mode), ZT5_OK);
    ASSERT_EQ(d.Push(f), ZT5_OK);
    EXPECT_EQ(triple(ZT5_CFG_COMMON_BENCHMARK_BLIT), 1u);
}

// A handle chosen by id wins over the overlay calls, which then only report.
TEST(DisplayBoundary, SwitchByIdWinsOverOverlayCalls)
{
    Display d;
    ASSERT_EQ(d.Init(kWnd, 640, 480), ZT5_OK);
    Frame f(64, 64);
    ASSERT_EQ(d.Push(f), ZT5_OK);
    EXPECT_EQ(d->ShowDisplayOverlay(0), ZT5_OK);
    EXPECT_EQ(d.Push(f), ZT5_OK);
    EXPECT_EQ(d->ShowDisplayOverlay(1), ZT5_OK);
    ASSERT_EQ(d.SetU32(ZT5_CFG_DISPLAY_SWITCH_HANDLE, 0), ZT5_OK);
    EXPECT_EQ(d->ShowDisplayOverlay(1), 0);
    EXPECT_EQ(d->ShowDisplayOverlay(0), 1);
    ASSERT_EQ(d.SetU32(ZT5_CFG_DISPLAY_SWITCH_HANDLE, 1), ZT5_OK);
    EXPECT_EQ(d->ShowDisplayOverlay(1), 1);
    EXPECT_EQ(d.Push(f), ZT5_OK);
}

// The display object under concurrent host calls: frames on one thread,
// parameters, overlay calls, handle switches and reads on others. The
// frames go the whole way to a recording render object. No deadlock, no
// crash, and (under ThreadSanitizer) no race.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "RecordingRenderer.h"
#include "test_frontend_util.h"

using namespace fetest;

TEST(FrontendThreads, FramesWhileParametersOverlayAndSwitchesRunElsewhere)
{
    RecordingRenderer::Install();
    IZT5Plugin *plugin = nullptr;
    ASSERT_EQ(ZT_GetPlugin(&plugin), 0);
    void *obj = nullptr;
    ASSERT_EQ(plugin->CreateObject(ZT5_PLUGIN_TYPE_DISP, ZT5_PLUGIN_TYPE_DISP, &obj), 0);
    IZT5Display *disp = static_cast<IZT5Display *>(obj);
    uint32_t one = 1;
    ASSERT_EQ(disp->SetDisplayParam(ZT5_CFG_DISPLAY_USE_OPENGLES, &one), 0);
    ZT5DisplayParam rec = MakeRecord(0x4400001, 640, 480);
    ASSERT_EQ(disp->Init(&rec), 0);

    std::atomic<bool> stop{false};
    std::atomic<int> frames{0}, frameErrors{0};
    std::thread drawer([&] {
        std::vector<uint8_t> a = MakePatternI420(320, 240), b = MakePatternI420(256, 128);
        ZT5FrameInfo ia = MakeInfo(320, 240), ib = MakeInfo(256, 128);
        while (!stop.load()) {
            bool odd = frames.load() & 1;
            int32_t r = disp->DrawFrame(odd ? b.data() : a.data(), odd ? &ib : &ia, 0);
            if (r != 0) frameErrors++;
            frames++;
        }
    });
    std::thread setter([&] {
        for (int i = 0; i < 400 && !stop.load(); ++i) {
            uint32_t v = i % 11;
            disp->SetDisplayParam(ZT5_CFG_DISPLAY_FISHEYE_MODE, &v);
            uint32_t fit = (i % 3 == 0) ? 5 : 0;
            disp->SetDisplayParam(ZT5_CFG_DISPLAY_FIT_MODE, &fit);
            uint32_t zoom = 50 + i % 200;
            disp->SetDisplayParam(ZT5_CFG_DISPLAY_ZOOM, &zoom);
            uint32_t rot = (i % 4) * 90;
            disp->SetDisplayParam(ZT5_CFG_COMMON_ROTATION, &rot);
            ZT5FishEyeParam lens = {5000, 5000, 1000 + i * 10, 4000};
            disp->SetDisplayParam(ZT5_CFG_COMMON_FISHEYE_PARAM, &lens);
            ZT5DisplayParam r2 = MakeRecord(0x4400001, 600 + (i % 5) * 20, 480);
            disp->SetDisplayParam(ZT5_CFG_DISPLAY_PARAM, &r2);
            ZT5TouchPoint p = {float(i), float(i)};
            disp->SetDisplayParam(ZT5_CFG_DISPLAY_UITOUCH_DOWN, &p);
            uint32_t show = i % 7 ? 1 : 0;
            disp->SetDisplayParam(ZT5_CFG_DISPLAY_STATUS, &show);
        }
        uint32_t show = 1;
        disp->SetDisplayParam(ZT5_CFG_DISPLAY_STATUS, &show);
    });
    std::thread overlay([&] {
        for (int i = 0; i < 60 && !stop.load(); ++i) {
            disp->ShowDisplayOverlay(i & 1);
            if (i % 10 == 9) {
                uint32_t high = (i / 10) & 1;
                disp->SetDisplayParam(ZT5_CFG_DISPLAY_SWITCH_HANDLE, &high);
            }
        }
        uint32_t high = 1;
        disp->SetDisplayParam(ZT5_CFG_DISPLAY_SWITCH_HANDLE, &high);
    });
    std::thread reader([&] {
        for (int i = 0; i < 2000 && !stop.load(); ++i) {
            uint32_t v = 0;
            disp->GetDisplayParam(ZT5_CFG_DISPLAY_ZOOM, &v);
            disp->GetDisplayParam(ZT5_CFG_DISPLAY_USE_OPENGLES, &v);
            uint32_t triple[3];
            disp->GetDisplayParam(ZT5_CFG_COMMON_BENCHMARK_BLIT, triple);
            ZT5DisplayParam back;
            disp->GetDisplayParam(ZT5_CFG_DISPLAY_PARAM, &back);
            void *snap = nullptr;
            disp->GetDisplayParam(ZT5_CFG_DISPLAY_GL_SNAPSHOT, &snap);
        }
    });
    setter.join();
    overlay.join();
    reader.join();
    stop = true;
    drawer.join();

    EXPECT_GT(frames.load(), 0);
    // Back on the high handle, shown: frames are drawn again.
    std::vector<uint8_t> a = MakePatternI420(320, 240);
    ZT5FrameInfo ia = MakeInfo(320, 240);
    uint32_t fit = 0;
    disp->SetDisplayParam(ZT5_CFG_DISPLAY_FIT_MODE, &fit);
    size_t before = RecordingRenderer::Calls(RRCall::RenderBuffer).size();
    EXPECT_EQ(disp->DrawFrame(a.data(), &ia, 0), 0);
    EXPECT_EQ(disp->DrawFrame(a.data(), &ia, 0), 0);
    EXPECT_GT(RecordingRenderer::Calls(RRCall::RenderBuffer).size(), before);

    EXPECT_EQ(disp->Uninit(), 0);
    EXPECT_EQ(plugin->DestroyObject(ZT5_PLUGIN_TYPE_DISP, ZT5_PLUGIN_TYPE_DISP, disp), 0);
    ZT_ReleasePlugin(plugin);
    RecordingRenderer::Uninstall();
}

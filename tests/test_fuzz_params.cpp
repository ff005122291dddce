// Random parameters and frames through the exported interface, with a
// recording render object so that every frame is copied by the manager.
// Payloads are valid memory of random bytes; ids whose payload carries
// pointers the library follows get valid pointers of the right size. Frames
// come with buffers of exactly the size they declare. Run under
// AddressSanitizer this finds any read outside a buffer, crash or leak.
// Deterministic: a fixed seed.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "RecordingRenderer.h"
#include "test_frontend_util.h"

using namespace fetest;

namespace {

const uint32_t kIds[] = {
    FETEST_HOST_IDS
    ZT5_CFG_PLUGINMGR_HDL, M_DISPLAY_PARAM_VIEWPORT, 0x9000099, 0x12345678};

const uint32_t kCsTypes[] = {ZT5_FRAME_CS_I420, ZT5_FRAME_CS_I420_B, ZT5_FRAME_CS_SEMIPLANAR_A,
                             ZT5_FRAME_CS_SEMIPLANAR_B, ZT5_FRAME_CS_SEMIPLANAR_C, ZT5_FRAME_CS_PACKED2,
                             ZT5_FRAME_CS_PACKED3, ZT5_FRAME_CS_PACKED4_A, ZT5_FRAME_CS_PACKED4_B,
                             ZT5_FRAME_CS_OUTPUT, 0x2, 0x77};

size_t FrameBytes(uint32_t cs, size_t w, size_t h)
{
    switch (cs) {
    case ZT5_FRAME_CS_PACKED2: return w * h * 2;
    case ZT5_FRAME_CS_PACKED3: return w * h * 3;
    case ZT5_FRAME_CS_PACKED4_A:
    case ZT5_FRAME_CS_PACKED4_B: return w * h * 4;
    default: return w * h * 3 / 2;
    }
}

int32_t NoopCallback(void *, void *) { return 0; }
void NoopUI(ZT5UIMessage *, void *) {}

} // namespace

TEST(FuzzParams, RandomParametersAndFramesStayInBounds)
{
    RecordingRenderer::Install();
    std::mt19937 rng(20240611);
    auto rnd = [&](uint32_t n) { return n ? uint32_t(rng() % n) : 0u; };

    // Memory that payload pointers may keep: lives longer than the display.
    std::vector<uint8_t> yuvHost(1 << 20);
    CZT5Mutex hostMutex;
    FECurrentStatusData status = {};
    double table[13] = {0};
    ZT5DistortionParam dist = {table, 13};
    char font[] = "/nonexistent.ttf";
    float floats[4] = {1, 2, 3, 4};
    float centre[2] = {0.5f, 0.5f};
    ZT5UICallbackRecord ui = {nullptr, NoopUI, nullptr, {}, {}};
    alignas(8) uint8_t logoBytes[256];
    const size_t kAgentSide = 1024;
    std::vector<uint8_t> agentMem(kAgentSide * kAgentSide * 4 * 2);
    ZT5SharedMemAgent agent = {};

    IZT5Plugin *plugin = nullptr;
    ASSERT_EQ(ZT_GetPlugin(&plugin), 0);
    void *obj = nullptr;
    ASSERT_EQ(plugin->CreateObject(ZT5_PLUGIN_TYPE_DISP, ZT5_PLUGIN_TYPE_DISP, &obj), 0);
    IZT5Display *disp = static_cast<IZT5Display *>(obj);
    uint32_t one = 1;
    disp->SetDisplayParam(ZT5_CFG_DISPLAY_USE_OPENGLES, &one);
    ZT5DisplayParam rec = MakeRecord(0x4400001, 800, 600);
    ASSERT_EQ(disp->Init(&rec), 0);

    int draws = 0, drawn = 0;
    for (int iter = 0; iter < 10000; ++iter) {
        if (rnd(3) == 0) {
            // A random frame, with a buffer of exactly its declared size.
            uint32_t cs = kCsTypes[rnd(sizeof(kCsTypes) / 4)];
            uint32_t w = 1 + rnd(rnd(8) == 0 ? 4096 : 700);
            uint32_t h = 1 + rnd(rnd(8) == 0 ? 4096 : 500);
            if (size_t(w) * h > 4096u * 1024u) h = 1 + rnd(4096u * 1024u / w);
            ZT5FrameInfo f = MakeInfo(w, h, cs, rnd(4) == 0 ? rng() : rnd(4) * 90, rnd(7));
            std::vector<uint8_t> buf(FrameBytes(cs, w, h));
            for (size_t i = 0; i < buf.size(); i += 4096) buf[i] = uint8_t(rng());
            uint32_t skip = rnd(10) == 0;
            disp->DrawFrame(buf.data(), &f, skip);
            ++draws;
            continue;
        }
        if (rnd(40) == 0) {
            // Frames from the agent: its buffers are large enough for any
            // frame up to kAgentSide square at 4 bytes a pixel.
            uint32_t w = 1 + rnd(kAgentSide), h = 1 + rnd(kAgentSide);
            agent.dwYStride = w;
            agent.dwUVStride = w / 2;
            agent.dwCheckA = rnd(4) != 0;
            agent.dwCheckB = 1;
            agent.dwBusy0 = rnd(2);
            agent.dwBusy1 = rnd(2);
            uint8_t *b0 = agentMem.data(), *b1 = agentMem.data() + agentMem.size() / 2;
            agent.pPlane0[0] = b0;
            agent.pPlane0[1] = b0 + size_t(w) * h;
            agent.pPlane0[2] = b0 + size_t(w) * h + size_t(w) * h / 4;
            agent.pPlane1[0] = b1;
            agent.pPlane1[1] = b1 + size_t(w) * h;
            agent.pPlane1[2] = b1 + size_t(w) * h + size_t(w) * h / 4;
            ZT5SharedMemAgent *pa = &agent;
            disp->SetDisplayParam(ZT5_CFG_COMMON_SHAREDMEM_AGENT, &pa);
            ZT5FrameInfo f = MakeInfo(w, h, rnd(2) ? ZT5_FRAME_CS_I420 : ZT5_FRAME_CS_SEMIPLANAR_A);
            if (disp->DrawFrame(nullptr, &f, 0) == 0) ++drawn;
            ZT5SharedMemAgent *none = nullptr;
            disp->SetDisplayParam(ZT5_CFG_COMMON_SHAREDMEM_AGENT, &none);
            continue;
        }
        if (rnd(400) == 0) {
            disp->Uninit();
            rec = MakeRecord(0x4400001 + rnd(3), 100 + rnd(1500), 100 + rnd(1000));
            disp->Init(&rec);
            continue;
        }

        uint32_t id = kIds[rnd(sizeof(kIds) / 4)];
        alignas(8) uint8_t payload[128];
        for (auto &b : payload) b = uint8_t(rng());
        void *pValue = payload;
        // Small values are far more interesting than random words.
        if (rnd(2)) {
            uint32_t small = rnd(6) == 0 ? rnd(1000) : rnd(12);
            memcpy(payload, &small, 4);
        }
        switch (id) {
        case ZT5_CFG_COMMON_SHAREDMEM_AGENT: {
            void *none = nullptr;
            memcpy(payload, &none, sizeof(none));
            break;
        }
        case ZT5_CFG_DISPLAY_SWITCH_HANDLE:
            // Switching to the low handle waits up to 200 ms for a frame.
            if (rnd(50) != 0) {
                uint32_t high = 1;
                memcpy(payload, &high, 4);
            }
            break;
        case ZT5_CFG_DISPLAY_PARAM: {
            ZT5DisplayParam p;
            memcpy(&p, payload, sizeof(p));
            if (rnd(2)) {
                p.rtScreen = {int32_t(rnd(50)), int32_t(rnd(50)), int32_t(100 + rnd(2000)),
                              int32_t(100 + rnd(1500))};
                p.rtClip = rnd(2) ? p.rtScreen : ZT5Rect{0, 0, 0, 0};
                p.hWnd = 0x4400001 + rnd(3);
            }
            memcpy(payload, &p, sizeof(p));
            break;
        }
        case ZT5_CFG_COMMON_FISHEYE_PARAM:
            if (rnd(2)) {
                int32_t lens[4] = {int32_t(rnd(12000)) - 1000, int32_t(rnd(12000)) - 1000,
                                   int32_t(rnd(12000)) - 1000, int32_t(rnd(12000)) - 1000};
                memcpy(payload, lens, sizeof(lens));
            }
            break;
        case ZT5_CFG_DISPLAY_UITOUCH_VELOCITY: {
            ZT5TouchPinch p = {1.0f, centre};
            memcpy(payload, &p, sizeof(p));
            break;
        }
        case ZT5_CFG_DISPLAY_UITOUCH_MOVE_VELOCITY:
        case ZT5_CFG_DISPLAY_UITOUCH_DOUBLETAP:
            pValue = floats;
            break;
        case ZT5_CFG_DISPLAY_YUV_BUFFER: pValue = yuvHost.data(); break;
        case ZT5_CFG_DISPLAY_YUV_BUFFER_LEN: {
            uint32_t len = rnd(uint32_t(yuvHost.size()) + 1);
            memcpy(payload, &len, 4);
            break;
        }
        case ZT5_CFG_DISPLAY_YUV_BUFFER_MUTEX:
        case ZT5_CFG_DISPLAY_FACE_MUTEX: pValue = &hostMutex; break;
        case ZT5_CFG_DISPLAY_UICALLBACK: pValue = &ui; break;
        case ZT5_CFG_DISPLAY_FE_CURRENTSTATUS: pValue = &status; break;
        case ZT5_CFG_DISPLAY_DISTORTION_PARAM: pValue = &dist; break;
        case ZT5_CFG_DISPLAY_FONT_PATH: pValue = font; break;
        case ZT5_CFG_DISPLAY_LOGO_DATA: {
            ZT5VideoLogo logo = {logoBytes, 0, 0, 1, 1, rnd(sizeof(logoBytes) + 1)};
            if (rnd(5) == 0) logo.pData = nullptr;
            memcpy(payload, &logo, sizeof(logo));
            break;
        }
        case ZT5_CFG_DISPLAY_FACE_LIST: {
            // Random records (names without their NUL among them) behind a real pointer.
            ZT5FaceList list = {rnd(60), uint32_t(rng()), rnd(8) ? reinterpret_cast<ZT5FaceRect *>(logoBytes) : nullptr};
            if (list.pFaces) list.dwCount = rnd(5);
            memcpy(payload, &list, sizeof(list));
            break;
        }
        case ZT5_CFG_CODEC_FRAME_CALLBACK: {
            ZT5FrameCallback cb = {rnd(2) ? NoopCallback : nullptr, rnd(2) ? payload : nullptr};
            memcpy(payload, &cb, sizeof(cb));
            break;
        }
        case ZT5_CFG_DISPLAY_GL_SNAPSHOT:
        case ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS:
            break; // get only: the set answers 4
        default:
            break;
        }
        if (rnd(2))
            disp->SetDisplayParam(id, pValue);
        else
            disp->GetDisplayParam(id, pValue);
    }
    EXPECT_GT(draws, 2500);
    disp->Uninit();
    EXPECT_EQ(plugin->DestroyObject(ZT5_PLUGIN_TYPE_DISP, ZT5_PLUGIN_TYPE_DISP, disp), 0);
    ZT_ReleasePlugin(plugin);
    RecordingRenderer::Uninstall();
    (void)drawn;
}

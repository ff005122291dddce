// Random parameters and frames through the host interface, on a display that
// draws. Payloads are valid memory of random bytes; ids whose payload
// carries pointers the library follows get valid pointers of the right
// size. Frame buffers are exactly the size they declare. Under
// AddressSanitizer this finds any read outside a buffer, crash or leak.
// Deterministic: a fixed seed.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "Harness.h"

using namespace harness;

namespace {

} // namespace

TEST(Fuzz, RandomParametersAndFramesStayInBounds)
{
    std::mt19937 rng(20240611);
    auto rnd = [&](uint32_t n) { return n ? uint32_t(rng() % n) : 0u; };
    // Memory that payload pointers may keep: lives longer than the display.
    std::vector<uint8_t> yuvHost(1 << 20), agentMem(1024 * 1024 * 8), logoBytes(256);
    std::vector<ZT5FaceRect> faces(5);
    uint8_t *faceBytes = reinterpret_cast<uint8_t *>(faces.data());
    for (size_t i = 0; i < faces.size() * sizeof(ZT5FaceRect); i++) faceBytes[i] = uint8_t(rng());
    CZT5Mutex hostMutex;
    FECurrentStatusData status = {};
    double table[13] = {0};
    ZT5DistortionParam dist = {table, 13};
    char font[] = "/nonexistent.ttf";
    float floats[4] = {1, 2, 3, 4}, centre[2] = {0.5f, 0.5f};
    ZT5UICallbackRecord ui = {nullptr, [](ZT5UIMessage *, void *) {}, nullptr, {}, {}};
    ZT5SharedMemAgent agent = {};
    Rig rig(480, 360);
    ASSERT_TRUE(rig.ok());
    Display &d = rig.display;
    ASSERT_EQ(rig.Init(), ZT5_OK);

    int draws = 0;
    for (int iter = 0; iter < 4000; ++iter) {
        if (rnd(3) == 0) {
            const uint32_t cs = kFrameTypes[rnd(uint32_t(kFrameTypes.size()))];
            const uint32_t w = 1 + rnd(rnd(8) == 0 ? 4096 : 700);
            uint32_t h = 1 + rnd(rnd(8) == 0 ? 4096 : 500);
            if (size_t(w) * h > 4096u * 1024u) h = 1 + rnd(4096u * 1024u / w);
            ZT5FrameInfo f = {w, h, w, h, 0, cs, rnd(4) == 0 ? uint32_t(rng()) : rnd(4) * 90, rnd(7)};
            std::vector<uint8_t> buf(FrameBytes(cs, w, h));
            for (size_t i = 0; i < buf.size(); i += 4096) buf[i] = uint8_t(rng());
            d->DrawFrame(buf.data(), &f, rnd(10) == 0);
            ++draws;
            continue;
        }
        if (rnd(40) == 0) { // frames from the agent, whose buffers fit any frame up to 1024 square
            const uint32_t w = 1 + rnd(1024), h = 1 + rnd(1024);
            agent.dwYStride = w, agent.dwUVStride = w / 2, agent.dwCheckA = rnd(4) != 0, agent.dwCheckB = 1;
            agent.dwBusy0 = rnd(2), agent.dwBusy1 = rnd(2);
            uint8_t *b0 = agentMem.data(), *b1 = b0 + agentMem.size() / 2;
            for (int i = 0; i < 3; i++) {
                const size_t off = i == 0 ? 0 : size_t(w) * h + (i - 1) * size_t(w) * h / 4;
                agent.pPlane0[i] = b0 + off, agent.pPlane1[i] = b1 + off;
            }
            ZT5SharedMemAgent *pa = &agent, *none = nullptr;
            d.Set(ZT5_CFG_COMMON_SHAREDMEM_AGENT, &pa);
            ZT5FrameInfo f = {w, h, w, h, 0, rnd(2) ? uint32_t(ZT5_FRAME_CS_I420) : uint32_t(ZT5_FRAME_CS_SEMIPLANAR_A), 0, 0};
            d->DrawFrame(nullptr, &f, 0);
            d.Set(ZT5_CFG_COMMON_SHAREDMEM_AGENT, &none);
            continue;
        }
        if (rnd(400) == 0) {
            d->Uninit();
            d.Init(rig.window.id(), 100 + rnd(1500), 100 + rnd(1000));
            continue;
        }
        const uint32_t id = kHostIds[rnd(uint32_t(kHostIds.size()))];
        alignas(8) uint8_t payload[128];
        for (auto &b : payload) b = uint8_t(rng());
        void *pValue = payload;
        if (rnd(2)) { // small values are far more interesting than random words
            const uint32_t small = rnd(6) == 0 ? rnd(1000) : rnd(12);
            std::memcpy(payload, &small, 4);
        }
        switch (id) {
        case ZT5_CFG_COMMON_SHAREDMEM_AGENT: std::memset(payload, 0, sizeof(void *)); break;
        case ZT5_CFG_DISPLAY_SWITCH_HANDLE: // the low handle waits up to 200 ms for a frame
            if (rnd(50) != 0) std::memset(payload, 0, 4), payload[0] = 1;
            break;
        case ZT5_CFG_DISPLAY_PARAM: {
            ZT5DisplayParam p;
            std::memcpy(&p, payload, sizeof(p));
            p.hWnd = rnd(8) ? rig.window.id() : 0; // the one window there is, or none
            if (rnd(2)) {
                p.rtScreen = {int32_t(rnd(50)), int32_t(rnd(50)), int32_t(100 + rnd(2000)), int32_t(100 + rnd(1500))};
                p.rtClip = rnd(2) ? p.rtScreen : ZT5Rect{0, 0, 0, 0};
            }
            std::memcpy(payload, &p, sizeof(p));
            break;
        }
        case ZT5_CFG_COMMON_FISHEYE_PARAM:
            if (rnd(2))
                for (int i = 0; i < 4; i++) reinterpret_cast<int32_t *>(payload)[i] = int32_t(rnd(12000)) - 1000;
            break;
        case ZT5_CFG_DISPLAY_UITOUCH_VELOCITY: {
            ZT5TouchPinch p = {1.0f, centre};
            std::memcpy(payload, &p, sizeof(p));
            break;
        }
        case ZT5_CFG_DISPLAY_UITOUCH_MOVE_VELOCITY:
        case ZT5_CFG_DISPLAY_UITOUCH_DOUBLETAP: pValue = floats; break;
        case ZT5_CFG_DISPLAY_YUV_BUFFER: pValue = yuvHost.data(); break;
        case ZT5_CFG_DISPLAY_YUV_BUFFER_LEN: {
            const uint32_t len = rnd(uint32_t(yuvHost.size()) + 1);
            std::memcpy(payload, &len, 4);
            break;
        }
        case ZT5_CFG_DISPLAY_YUV_BUFFER_MUTEX:
        case ZT5_CFG_DISPLAY_FACE_MUTEX: pValue = &hostMutex; break;
        case ZT5_CFG_DISPLAY_UICALLBACK: pValue = &ui; break;
        case ZT5_CFG_DISPLAY_FE_CURRENTSTATUS: pValue = &status; break;
        case ZT5_CFG_DISPLAY_DISTORTION_PARAM: pValue = &dist; break;
        case ZT5_CFG_DISPLAY_FONT_PATH: pValue = font; break;
        case ZT5_CFG_DISPLAY_LOGO_DATA: {
            ZT5VideoLogo logo = {rnd(5) ? logoBytes.data() : nullptr, 0, 0, 1, 1, rnd(uint32_t(logoBytes.size()) + 1)};
            std::memcpy(payload, &logo, sizeof(logo));
            break;
        }
        case ZT5_CFG_DISPLAY_FACE_LIST: {
            // Random records (names without their NUL among them) behind a real pointer, or none.
            ZT5FaceList list = {rnd(60), uint32_t(rng()), rnd(8) ? faces.data() : nullptr};
            if (list.pFaces) list.dwCount = rnd(5);
            std::memcpy(payload, &list, sizeof(list));
            break;
        }
        case ZT5_CFG_CODEC_FRAME_CALLBACK: {
            const PFN_ZT5_FRAME_CALLBACK noop = [](void *, void *) -> int32_t { return 0; };
            ZT5FrameCallback cb = {rnd(2) ? noop : nullptr, rnd(2) ? payload : nullptr};
            std::memcpy(payload, &cb, sizeof(cb));
            break;
        }
        default: break;
        }
        if (rnd(2))
            d->SetDisplayParam(id, pValue);
        else
            d->GetDisplayParam(id, pValue);
    }
    EXPECT_GT(draws, 1000);
}

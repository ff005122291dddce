// SetDisplayParam and GetDisplayParam with every host id, random payloads
// and payload sizes. An input is a list of calls: an id (by index into the
// host ids), set or get, a payload length, then the payload. The payload is
// copied into memory of exactly that length, so that a read past what the
// id takes is caught by AddressSanitizer; ids whose payload carries
// pointers the library follows get valid pointers of the right kind.
#include <cstdint>
#include <vector>

#include "FuzzHost.h"
#include "HostIds.h"
#include "ZT5Mutex.h"

using fuzz::Bytes;

namespace {

// Payload bytes the size an id reads at most; a shorter input is padded by
// the reader with zeros, never read past.
size_t PayloadBytes(uint32_t id)
{
    switch (id) {
    case ZT5_CFG_DISPLAY_PARAM: return sizeof(ZT5DisplayParam);
    case ZT5_CFG_COMMON_BENCHMARK: return sizeof(ZT5BenchmarkRecord);
    case ZT5_CFG_DISPLAY_RENDER_STATS: return sizeof(ZT5RenderStats);
    default: return 64;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    IZT5Display *d = fuzz::Display();
    Bytes in(data, size);
    // Memory that a kept pointer may still point at on later inputs.
    static CZT5Mutex hostMutex;
    static std::vector<uint8_t> yuvHost(1 << 16);
    static ZT5FaceRect faces[3] = {};
    static float points[4] = {10, 10, 20, 20};
    static ZT5UICallbackRecord ui = {nullptr, [](ZT5UIMessage *, void *) {}, nullptr, {}, {}};
    static char font[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
    static double table[13] = {0};
    static ZT5DistortionParam dist = {table, 13};
    static FECurrentStatusData status = {};
    for (int calls = 0; calls < 16 && in.Left() >= 2; calls++) {
        const uint32_t id = kHostIds[in.U8() % kHostIds.size()];
        const bool set = in.U8() & 1;
        std::vector<uint8_t> payload(PayloadBytes(id));
        in.Take(payload.data(), payload.size());
        void *p = payload.data();
        switch (id) {
        case ZT5_CFG_COMMON_SHAREDMEM_AGENT: // no agent: its planes are the host's memory
            std::memset(p, 0, sizeof(void *));
            break;
        case ZT5_CFG_DISPLAY_SWITCH_HANDLE: // the low handle waits up to 200 ms for a frame
            payload[0] = 1, payload[1] = payload[2] = payload[3] = 0;
            break;
        case ZT5_CFG_DISPLAY_PARAM: {
            ZT5DisplayParam r;
            std::memcpy(&r, p, sizeof(r));
            r.hWnd = (payload[0] & 7) ? fuzz::Window() : 0; // the one window there is, or none
            std::memcpy(p, &r, sizeof(r));
            break;
        }
        case ZT5_CFG_DISPLAY_UITOUCH_VELOCITY: {
            ZT5TouchPinch pinch;
            std::memcpy(&pinch.zoomRate, p, 4);
            pinch.pCenter = (payload[4] & 1) ? points : nullptr;
            std::memcpy(p, &pinch, sizeof(pinch));
            break;
        }
        case ZT5_CFG_DISPLAY_UITOUCH_MOVE_VELOCITY:
        case ZT5_CFG_DISPLAY_UITOUCH_DOUBLETAP: std::memcpy(points, p, sizeof(points)), p = points; break;
        case ZT5_CFG_DISPLAY_YUV_BUFFER: p = yuvHost.data(); break;
        case ZT5_CFG_DISPLAY_YUV_BUFFER_LEN: {
            const uint32_t len = uint32_t(payload[0] | payload[1] << 8) % uint32_t(yuvHost.size() + 1);
            std::memcpy(p, &len, 4);
            break;
        }
        case ZT5_CFG_DISPLAY_YUV_BUFFER_MUTEX:
        case ZT5_CFG_DISPLAY_FACE_MUTEX: p = &hostMutex; break;
        case ZT5_CFG_DISPLAY_UICALLBACK: p = &ui; break;
        case ZT5_CFG_DISPLAY_FE_CURRENTSTATUS: std::memcpy(&status, p, payload.size()), p = &status; break;
        case ZT5_CFG_DISPLAY_DISTORTION_PARAM: p = &dist; break;
        case ZT5_CFG_DISPLAY_FONT_PATH: p = font; break;
        case ZT5_CFG_DISPLAY_FACE_INFO: // a record of the host's the display reads at each draw: none here
            if (set) continue;
            break;
        case ZT5_CFG_DISPLAY_LOGO_DATA: {
            static char name[] = "/nonexistent.bmp";
            ZT5VideoLogo logo;
            std::memcpy(&logo, p, sizeof(logo));
            logo.pData = (payload[0] & 1) ? name : nullptr;
            logo.dwDataSize %= sizeof(name) + 1;
            std::memcpy(p, &logo, sizeof(logo));
            break;
        }
        case ZT5_CFG_DISPLAY_FACE_LIST: {
            ZT5FaceList list;
            std::memcpy(&list, p, sizeof(list));
            std::memcpy(faces, p, sizeof(faces) < payload.size() ? sizeof(faces) : payload.size());
            list.pFaces = (payload[0] & 7) ? faces : nullptr;
            if (list.pFaces) list.dwCount %= 4;
            std::memcpy(p, &list, sizeof(list));
            break;
        }
        case ZT5_CFG_DISPLAY_PICTURE: {
            // A real buffer of at most its size, or none; a short wait.
            static std::vector<uint8_t> pixels(1 << 20);
            ZT5Picture pic;
            std::memcpy(&pic, p, sizeof(pic));
            pic.pBuffer = (payload[0] & 1) ? pixels.data() : nullptr;
            pic.dwSize %= uint32_t(pixels.size() + 1);
            pic.dwWaitMs %= 50;
            std::memcpy(p, &pic, sizeof(pic));
            break;
        }
        case ZT5_CFG_CODEC_FRAME_CALLBACK: {
            const PFN_ZT5_FRAME_CALLBACK noop = [](void *, void *) -> int32_t { return 0; };
            ZT5FrameCallback cb = {(payload[0] & 1) ? noop : nullptr, nullptr};
            std::memcpy(p, &cb, sizeof(cb));
            break;
        }
        default: break;
        }
        if (set)
            d->SetDisplayParam(id, p);
        else
            d->GetDisplayParam(id, p);
    }
    fuzz::PushPlainFrame();
    fuzz::Settle();
    return 0;
}

// Helpers shared by the display object's tests: a journal of every call the
// display object makes into the display manager, and patterned frames.
#ifndef PANOVIEW_TEST_FRONTEND_UTIL_H
#define PANOVIEW_TEST_FRONTEND_UTIL_H

#include <cstdint>
#include <cstring>
#include <mutex>
#include <vector>

#include "CZT5Panoview.h"
#include "FrontendMgrCalls.h"
#include "ZT5Plugin.h"

namespace fetest {

// Every id a host may send, with a set or a get action or both.
#define FETEST_HOST_IDS  \
    ZT5_CFG_COMMON_ROTATION, ZT5_CFG_COMMON_ORIENTATION, ZT5_CFG_COMMON_SHAREDMEM_AGENT, \
    ZT5_CFG_COMMON_BENCHMARK, ZT5_CFG_COMMON_BENCHMARK_BLIT, ZT5_CFG_COMMON_BENCHMARK_FRAME, \
    ZT5_CFG_COMMON_BENCHMARK_RESET, ZT5_CFG_COMMON_FISHEYE_PARAM, ZT5_CFG_PLAYER_MODE, \
    ZT5_CFG_PLAYER_PARENT_OBJECT, ZT5_CFG_DISPLAY_PARAM, ZT5_CFG_DISPLAY_STATUS, ZT5_CFG_DISPLAY_SOURCE_RECT, \
    ZT5_CFG_DISPLAY_LAST_FRAME, ZT5_CFG_DISPLAY_FIT_MODE, ZT5_CFG_DISPLAY_FULLSCREEN, \
    ZT5_CFG_DISPLAY_SWITCH_HANDLE, ZT5_CFG_DISPLAY_ZOOM, ZT5_CFG_DISPLAY_FRAMEINFO, ZT5_CFG_DISPLAY_RESIZE_ALG, \
    ZT5_CFG_DISPLAY_UPDATE, ZT5_CFG_DISPLAY_REFRESH, ZT5_CFG_DISPLAY_ADJUST, ZT5_CFG_DISPLAY_RESERVED_15, \
    ZT5_CFG_DISPLAY_CLIP_TO_VIEWPORT, ZT5_CFG_DISPLAY_USE_OPENGLES, ZT5_CFG_DISPLAY_OPENGL_SCALE_RECT, \
    ZT5_CFG_DISPLAY_UITOUCH_VELOCITY, ZT5_CFG_DISPLAY_UITOUCH_MOVED, ZT5_CFG_DISPLAY_FISHEYE_MODE, \
    ZT5_CFG_DISPLAY_YUV_BUFFER, ZT5_CFG_DISPLAY_YUV_BUFFER_LEN, ZT5_CFG_DISPLAY_UITOUCH_UP, \
    ZT5_CFG_DISPLAY_UITOUCH_DOWN, ZT5_CFG_DISPLAY_UITOUCH_MOVE_VELOCITY, ZT5_CFG_DISPLAY_YUV_BUFFER_MUTEX, \
    ZT5_CFG_DISPLAY_YUV_BUFFER_MODE, ZT5_CFG_DISPLAY_UITOUCH_DOUBLETAP, ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, \
    ZT5_CFG_DISPLAY_UICALLBACK, ZT5_CFG_DISPLAY_AUTOCURISE_VELOCITY, ZT5_CFG_DISPLAY_OPENGL_FULLVIEW, \
    ZT5_CFG_DISPLAY_FE_BASE_ANIMATION, ZT5_CFG_DISPLAY_FE_BG_STAR, ZT5_CFG_DISPLAY_FE_BG_CLOUD, \
    ZT5_CFG_DISPLAY_FE_CURRENTSTATUS, ZT5_CFG_DISPLAY_ROTATION_ANGLE, ZT5_CFG_DISPLAY_MULTI_DISPLAY, \
    ZT5_CFG_DISPLAY_GL_SNAPSHOT, ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS, ZT5_CFG_DISPLAY_FE_PLATFORM, \
    ZT5_CFG_DISPLAY_EAGL_LAYER, ZT5_CFG_DISPLAY_SCALE_RATIO, ZT5_CFG_DISPLAY_MAX_SCALE, \
    ZT5_CFG_DISPLAY_DISTORTION_PARAM, ZT5_CFG_DISPLAY_FONT_PATH, ZT5_CFG_DISPLAY_FACE_INFO, \
    ZT5_CFG_DISPLAY_FACE_MUTEX, ZT5_CFG_DISPLAY_FACE_OPTION, ZT5_CFG_DISPLAY_BACK_COLOR, \
    ZT5_CFG_DISPLAY_LOGO_DATA, ZT5_CFG_DISPLAY_FACE_LIST, ZT5_CFG_CODEC_FRAME_CALLBACK, ZT5_CFG_CODEC_ALIGNINFO, ZT5_CFG_CODEC_HINT,

struct MgrEvent {
    FrontendMgrCall call;
    // A copy of the payload for the ids whose payload size the manager
    // defines (viewport, caps, frame description, lens values, flags).
    std::vector<uint8_t> payload;

    template <typename T> T As() const
    {
        T v;
        std::memset(&v, 0, sizeof(v));
        std::memcpy(&v, payload.data(), std::min(sizeof(v), payload.size()));
        return v;
    }
    uint32_t Word() const { return As<uint32_t>(); }
};

// Records the display object's calls into the manager while it lives.
class MgrJournal {
public:
    MgrJournal() { FrontendSetMgrObserver(&MgrJournal::Observe, this); }
    ~MgrJournal() { FrontendSetMgrObserver(nullptr, nullptr); }

    std::vector<MgrEvent> Events()
    {
        std::lock_guard<std::mutex> l(m_mutex);
        return m_events;
    }
    void Clear()
    {
        std::lock_guard<std::mutex> l(m_mutex);
        m_events.clear();
    }
    std::vector<MgrEvent> Of(FrontendMgrOp op, uint32_t id = 0)
    {
        std::vector<MgrEvent> out;
        for (auto &e : Events())
            if (e.call.op == op && (id == 0 || e.call.dwParamID == id)) out.push_back(e);
        return out;
    }
    // Last SetParam of an id, or null.
    bool LastSet(uint32_t id, MgrEvent *pOut)
    {
        auto v = Of(kMgrOpSetParam, id);
        if (v.empty()) return false;
        *pOut = v.back();
        return true;
    }
    size_t Count() { return Events().size(); }

private:
    static bool CopyPayload(const FrontendMgrCall &c)
    {
        if (c.op != kMgrOpSetParam && c.op != kMgrOpGetParam) return false;
        if (!c.pValue) return false;
        switch (c.dwParamID) {
        case M_DISPLAY_PARAM_CAPS:
        case M_DISPLAY_PARAM_VIEWPORT:
        case M_DISPLAY_PARAM_FULLSCREEN:
        case M_DISPLAY_PARAM_ADJUST:
        case M_DISPLAY_PARAM_CONTINUEBUF:
        case M_DISPLAY_PARAM_FRAMEINFO:
        case ZT5_CFG_DISPLAY_FISHEYE_X_POS:
        case ZT5_CFG_DISPLAY_FISHEYE_Y_POS:
        case ZT5_CFG_DISPLAY_FISHEYE_WIDTH:
        case ZT5_CFG_DISPLAY_FISHEYE_HEIGHT:
        case ZT5_CFG_DISPLAY_USE_OPENGLES:
        case ZT5_CFG_DISPLAY_FISHEYE_MODE:
        case ZT5_CFG_DISPLAY_STATUS:
        case ZT5_CFG_DISPLAY_SCALE_RATIO:
        case ZT5_CFG_DISPLAY_MAX_SCALE:
        case ZT5_CFG_DISPLAY_ROTATION_ANGLE:
        case ZT5_CFG_PLUGINMGR_HDL:
            return true;
        default:
            return false;
        }
    }
    static void Observe(const FrontendMgrCall &c, void *arg)
    {
        MgrJournal *self = static_cast<MgrJournal *>(arg);
        MgrEvent e;
        e.call = c;
        if (CopyPayload(c)) {
            const uint8_t *p = static_cast<const uint8_t *>(c.pValue);
            e.payload.assign(p, p + c.dwSize);
        }
        std::lock_guard<std::mutex> l(self->m_mutex);
        self->m_events.push_back(std::move(e));
    }

    std::mutex m_mutex;
    std::vector<MgrEvent> m_events;
};

inline ZT5DisplayParam MakeRecord(uint32_t hWnd, int cw, int ch)
{
    ZT5DisplayParam p;
    std::memset(&p, 0, sizeof(p));
    p.hWnd = hWnd;
    p.rtScreen = {0, 0, cw, ch};
    p.rtClip = {0, 0, cw, ch};
    return p;
}

inline ZT5FrameInfo MakeInfo(uint32_t w, uint32_t h, uint32_t cs = ZT5_FRAME_CS_I420, uint32_t rot = 0,
                             uint32_t aspect = 0)
{
    ZT5FrameInfo f;
    std::memset(&f, 0, sizeof(f));
    f.dwWidth = w;
    f.dwHeight = h;
    f.dwStride = w;
    f.dwSliceHeight = h;
    f.dwCSType = cs;
    f.dwRotation = rot;
    f.dwAspectRatio = aspect;
    return f;
}

// An I420 frame whose every sample tells where it came from: Y at (x, y) is
// (x * 7 + y * 13) & 255, U at (cx, cy) is (cx * 3 + cy * 5 + 1) & 255, V is
// (cx * 11 + cy * 2 + 7) & 255.
inline uint8_t PatY(int x, int y) { return uint8_t((x * 7 + y * 13) & 255); }
inline uint8_t PatU(int x, int y) { return uint8_t((x * 3 + y * 5 + 1) & 255); }
inline uint8_t PatV(int x, int y) { return uint8_t((x * 11 + y * 2 + 7) & 255); }

inline std::vector<uint8_t> MakePatternI420(int w, int h)
{
    std::vector<uint8_t> buf(size_t(w) * h * 3 / 2);
    uint8_t *y = buf.data();
    uint8_t *u = y + size_t(w) * h;
    uint8_t *v = u + size_t(w) * h / 4;
    for (int r = 0; r < h; ++r)
        for (int c = 0; c < w; ++c) y[size_t(r) * w + c] = PatY(c, r);
    for (int r = 0; r < h / 2; ++r)
        for (int c = 0; c < w / 2; ++c) {
            u[size_t(r) * (w / 2) + c] = PatU(c, r);
            v[size_t(r) * (w / 2) + c] = PatV(c, r);
        }
    return buf;
}

inline uint32_t U32(const void *p)
{
    uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}

} // namespace fetest

#endif

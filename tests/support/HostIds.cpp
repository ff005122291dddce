#include "HostIds.h"

#include <cmath>

const std::vector<uint32_t> kHostIds = {
    ZT5_CFG_COMMON_ROTATION, ZT5_CFG_COMMON_ORIENTATION, ZT5_CFG_COMMON_SHAREDMEM_AGENT, ZT5_CFG_COMMON_BENCHMARK,
    ZT5_CFG_COMMON_BENCHMARK_BLIT, ZT5_CFG_COMMON_BENCHMARK_FRAME, ZT5_CFG_COMMON_BENCHMARK_RESET,
    ZT5_CFG_COMMON_FISHEYE_PARAM, ZT5_CFG_PLAYER_MODE, ZT5_CFG_PLAYER_PARENT_OBJECT, ZT5_CFG_DISPLAY_PARAM,
    ZT5_CFG_DISPLAY_STATUS, ZT5_CFG_DISPLAY_SOURCE_RECT, ZT5_CFG_DISPLAY_LAST_FRAME, ZT5_CFG_DISPLAY_FIT_MODE,
    ZT5_CFG_DISPLAY_FULLSCREEN, ZT5_CFG_DISPLAY_SWITCH_HANDLE, ZT5_CFG_DISPLAY_ZOOM, ZT5_CFG_DISPLAY_FRAMEINFO,
    ZT5_CFG_DISPLAY_RESIZE_ALG, ZT5_CFG_DISPLAY_UPDATE, ZT5_CFG_DISPLAY_REFRESH, ZT5_CFG_DISPLAY_ADJUST,
    ZT5_CFG_DISPLAY_RESERVED_15, ZT5_CFG_DISPLAY_CLIP_TO_VIEWPORT, ZT5_CFG_DISPLAY_USE_OPENGLES,
    ZT5_CFG_DISPLAY_OPENGL_SCALE_RECT, ZT5_CFG_DISPLAY_UITOUCH_VELOCITY, ZT5_CFG_DISPLAY_UITOUCH_MOVED,
    ZT5_CFG_DISPLAY_FISHEYE_MODE, ZT5_CFG_DISPLAY_YUV_BUFFER, ZT5_CFG_DISPLAY_YUV_BUFFER_LEN,
    ZT5_CFG_DISPLAY_UITOUCH_UP, ZT5_CFG_DISPLAY_UITOUCH_DOWN, ZT5_CFG_DISPLAY_UITOUCH_MOVE_VELOCITY,
    ZT5_CFG_DISPLAY_YUV_BUFFER_MUTEX, ZT5_CFG_DISPLAY_YUV_BUFFER_MODE, ZT5_CFG_DISPLAY_UITOUCH_DOUBLETAP,
    ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, ZT5_CFG_DISPLAY_UICALLBACK, ZT5_CFG_DISPLAY_AUTOCURISE_VELOCITY,
    ZT5_CFG_DISPLAY_OPENGL_FULLVIEW, ZT5_CFG_DISPLAY_FE_BASE_ANIMATION, ZT5_CFG_DISPLAY_FE_BG_STAR,
    ZT5_CFG_DISPLAY_FE_BG_CLOUD, ZT5_CFG_DISPLAY_FE_CURRENTSTATUS, ZT5_CFG_DISPLAY_ROTATION_ANGLE,
    ZT5_CFG_DISPLAY_MULTI_DISPLAY, ZT5_CFG_DISPLAY_GL_SNAPSHOT, ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS,
    ZT5_CFG_DISPLAY_FE_PLATFORM, ZT5_CFG_DISPLAY_EAGL_LAYER, ZT5_CFG_DISPLAY_SCALE_RATIO, ZT5_CFG_DISPLAY_MAX_SCALE,
    ZT5_CFG_DISPLAY_DISTORTION_PARAM, ZT5_CFG_DISPLAY_FONT_PATH, ZT5_CFG_DISPLAY_FACE_INFO,
    ZT5_CFG_DISPLAY_FACE_MUTEX, ZT5_CFG_DISPLAY_FACE_OPTION, ZT5_CFG_DISPLAY_BACK_COLOR, ZT5_CFG_DISPLAY_LOGO_DATA,
    ZT5_CFG_DISPLAY_FACE_LIST, ZT5_CFG_COMMON_LENS_MODEL, ZT5_CFG_CODEC_FRAME_CALLBACK, ZT5_CFG_CODEC_ALIGNINFO,
    ZT5_CFG_CODEC_HINT, ZT5_CFG_PLUGINMGR_HDL, ZT5_CFG_DISPLAY_RENDERER_INITED, ZT5_CFG_DISPLAY_OFFSCREEN_SIZE,
    ZT5_CFG_DISPLAY_PICTURE, 0x12345, 0xFFFFFFFF, 0};

const std::vector<uint32_t> kFrameTypes = {
    ZT5_FRAME_CS_I420,     ZT5_FRAME_CS_I420_B,    ZT5_FRAME_CS_SEMIPLANAR_A, ZT5_FRAME_CS_SEMIPLANAR_B,
    ZT5_FRAME_CS_SEMIPLANAR_C, ZT5_FRAME_CS_NV12,  ZT5_FRAME_CS_PACKED2,      ZT5_FRAME_CS_PACKED3,
    ZT5_FRAME_CS_PACKED4_A, ZT5_FRAME_CS_PACKED4_B, ZT5_FRAME_CS_OUTPUT,      ZT5_FRAME_CS_UYVY,
    ZT5_FRAME_CS_I010,     ZT5_FRAME_CS_P010,      0x2,                       0x77};

size_t FrameBytes(uint32_t cs, size_t w, size_t h)
{
    switch (cs) {
    case ZT5_FRAME_CS_PACKED2:
    case ZT5_FRAME_CS_UYVY: return ((w + 1) & ~size_t(1)) * h * 2;
    case ZT5_FRAME_CS_I010: return 2 * (w * h + 2 * ((w + 1) / 2) * ((h + 1) / 2));
    case ZT5_FRAME_CS_P010: return 2 * w * h + 2 * w * ((h + 1) / 2) + 4;
    case ZT5_FRAME_CS_PACKED3: return w * h * 3;
    case ZT5_FRAME_CS_PACKED4_A:
    case ZT5_FRAME_CS_PACKED4_B: return w * h * 4;
    default: return w * h + 2 * ((w + 1) / 2) * ((h + 1) / 2);
    }
}

int PlaneCount(uint32_t cs)
{
    switch (cs) {
    case ZT5_FRAME_CS_I420:
    case ZT5_FRAME_CS_I420_B:
    case ZT5_FRAME_CS_I010: return 3;
    case ZT5_FRAME_CS_NV12:
    case ZT5_FRAME_CS_SEMIPLANAR_A:
    case ZT5_FRAME_CS_SEMIPLANAR_B:
    case ZT5_FRAME_CS_SEMIPLANAR_C:
    case ZT5_FRAME_CS_P010: return 2;
    case ZT5_FRAME_CS_PACKED2:
    case ZT5_FRAME_CS_UYVY: return 1;
    default: return 0;
    }
}

PlaneRows PlaneOf(uint32_t cs, size_t w, size_t h, int plane)
{
    const size_t cw = w / 2 ? w / 2 : 1, ch = h / 2 ? h / 2 : 1;
    const bool b16 = cs == ZT5_FRAME_CS_I010 || cs == ZT5_FRAME_CS_P010;
    if (cs == ZT5_FRAME_CS_PACKED2 || cs == ZT5_FRAME_CS_UYVY) return {((w + 1) & ~size_t(1)) * 2, h};
    if (plane == 0) return {w * (b16 ? 2 : 1), h};
    if (PlaneCount(cs) == 2) return {cw * (b16 ? 4 : 2), ch};
    return {cw * (b16 ? 2 : 1), ch};
}

int NonFiniteField(const FECurrentStatusData &s)
{
    const float *arrays[] = {s.fCamZ, s.fCamTranZ, s.fCamRotZ, s.fCamTranY, s.fCamAngleZ, s.fTz, s.zAngle, s.fCamRotX};
    const float *singles[] = {&s.xMove, &s.fTilt, &s.mTransX, &s.mTransY, &s.mAnimalStepX, &s.mAnimalStepY,
                              &s.mScaleRatio, &s.mfZoom, &s.mCruiseVelocity};
    std::vector<const float *> fields(singles, singles + 9);
    for (const float *a : arrays)
        for (int i = 0; i < 4; i++) fields.push_back(a + i);
    for (const float *f : fields)
        if (!std::isfinite(*f)) return int(reinterpret_cast<const char *>(f) - reinterpret_cast<const char *>(&s));
    return -1;
}

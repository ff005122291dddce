/* Records that cross the boundary between a host and Panoview.
 * Records without pointers keep their exact byte layout; records that carry
 * a pointer or a host handle use a pointer-sized field in its place. */
#ifndef ZT5_RECORDS_H
#define ZT5_RECORDS_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define ZT5_STATIC_ASSERT(c, m) static_assert(c, m)
#else
#define ZT5_STATIC_ASSERT(c, m) _Static_assert(c, m)
#endif

/* Four-character plug-in type and sub-type served by Panoview: 'disp'. */
#define ZT5_PLUGIN_TYPE_DISP 0x64697370u

typedef struct ZT5Rect {
    int32_t left, top, right, bottom;
} ZT5Rect;

/* Frame description, 32 bytes. */
typedef struct ZT5FrameInfo {
    uint32_t dwWidth;
    uint32_t dwHeight;
    uint32_t dwStride;
    uint32_t dwSliceHeight;
    uint32_t dwReserved;
    uint32_t dwCSType;
    uint32_t dwRotation;
    uint32_t dwAspectRatio;
} ZT5FrameInfo;
ZT5_STATIC_ASSERT(sizeof(ZT5FrameInfo) == 32, "FrameInfo is 32 bytes");

/* Display record of Init and ZT5_CFG_DISPLAY_PARAM, 44 bytes. hWnd is the
 * native window (an X11 Window id on Linux); 0 means no display. */
typedef struct ZT5DisplayParam {
    uint32_t hWnd;
    ZT5Rect rtScreen;
    ZT5Rect rtClip;
    uint32_t dwEraseColor;
    uint32_t dwReserved;
} ZT5DisplayParam;
ZT5_STATIC_ASSERT(sizeof(ZT5DisplayParam) == 44, "display record is 44 bytes");

/* ZT5_CFG_DISPLAY_LAST_FRAME, 36 bytes. */
typedef struct ZT5LastFrame {
    uint32_t dwReserved;
    ZT5FrameInfo frameInfo;
} ZT5LastFrame;
ZT5_STATIC_ASSERT(sizeof(ZT5LastFrame) == 36, "last frame record is 36 bytes");

/* ZT5_CFG_COMMON_FISHEYE_PARAM: the lens circle in 1/10000 of the picture. */
typedef struct ZT5FishEyeParam {
    int32_t lCenterX;
    int32_t lCenterY;
    int32_t lRadiusX;
    int32_t lRadiusY;
} ZT5FishEyeParam;
ZT5_STATIC_ASSERT(sizeof(ZT5FishEyeParam) == 16, "fisheye parameter is 16 bytes");

/* ZT5_CFG_COMMON_LENS_MODEL, 24 bytes: the law (ZT5_LENS_*), the whole
 * angle across the lens circle in degrees (0 means 180) and the polynomial's
 * coefficients k1..k4 (theta in radians; other laws ignore them). */
typedef struct ZT5LensModel {
    uint32_t dwLaw;
    float fFieldOfView;
    float fK[4];
} ZT5LensModel;
ZT5_STATIC_ASSERT(sizeof(ZT5LensModel) == 24, "lens model is 24 bytes");

/* ZT5_CFG_DISPLAY_MAP_POINT, 24 bytes. dwToWindow 0: (fX, fY) is a window
 * point (pixels from the window's top left, as the gestures give them) and
 * (fOutX, fOutY) becomes the frame point it shows (pixels of the frame as
 * pushed, before any cut; pixel (i, j) covers i..i+1, j..j+1). dwToWindow 1:
 * (fX, fY) is a frame point and the answer is where it shows in the window.
 * lPane becomes the pane of the answer (0 for a one-pane view), or -1 where
 * the point shows nothing (background, outside the lens circle, out of
 * view), and then fOutX and fOutY are left as they were. A frame point seen
 * in several panes answers the lowest-numbered one. */
typedef struct ZT5PointMap {
    uint32_t dwToWindow;
    float fX, fY;
    float fOutX, fOutY;
    int32_t lPane;
} ZT5PointMap;
ZT5_STATIC_ASSERT(sizeof(ZT5PointMap) == 24, "point map is 24 bytes");

/* Viewport record, 56 bytes. */
typedef struct ZT5Viewport {
    uint32_t hWnd;
    uint32_t dwRotation;
    uint32_t dwResizeAlg;
    uint32_t dwOrientationMode;
    int32_t lLeft;
    int32_t lTop;
    int32_t lWidth;
    int32_t lHeight;
    uint32_t dwReserved[6];
} ZT5Viewport;
ZT5_STATIC_ASSERT(sizeof(ZT5Viewport) == 56, "viewport record is 56 bytes");

/* ZT5_CFG_PLAYER_MODE, 8 bytes. Mode 4 restarts the benchmark counters. */
typedef struct ZT5PlayerMode {
    uint32_t dwMode;
    float fSpeed;
} ZT5PlayerMode;
ZT5_STATIC_ASSERT(sizeof(ZT5PlayerMode) == 8, "player mode record is 8 bytes");

/* ZT5_CFG_CODEC_FRAME_CALLBACK. */
typedef int32_t (*PFN_ZT5_FRAME_CALLBACK)(void *pFrameBuffer, void *pUserData);
typedef struct ZT5FrameCallback {
    PFN_ZT5_FRAME_CALLBACK pfnCallback;
    void *pUserData;
} ZT5FrameCallback;

/* ZT5_CFG_CODEC_ALIGNINFO. */
typedef struct ZT5AlignInfo {
    uint32_t bNeedCrop;
    uint32_t dwAlignCrop;
} ZT5AlignInfo;

/* ZT5_CFG_CODEC_HINT. */
typedef struct ZT5CodecHint {
    uint32_t dwHint0;
    uint32_t dwHint1;
} ZT5CodecHint;

/* ZT5_CFG_DISPLAY_UITOUCH_VELOCITY: pinch rate and a pointer to its centre. */
typedef struct ZT5TouchPinch {
    float zoomRate;
    float *pCenter; /* two floats: x, y */
} ZT5TouchPinch;

/* A touch point; ZT5_CFG_DISPLAY_UITOUCH_MOVED carries two of them. */
typedef struct ZT5TouchPoint {
    float x, y;
} ZT5TouchPoint;

/* The message block the UI callback receives by address. */
typedef struct ZT5UIMessage {
    uint32_t dwEvent;   /* always ZT5_UI_EVENT */
    uint32_t dwValue1;
    uint32_t dwValue2;  /* same as dwValue1 */
    uint32_t dwParamID; /* ZT5_CFG_DISPLAY_CURISE_STATE_EVENT or ZT5_CFG_DISPLAY_EDGE_EVENT */
} ZT5UIMessage;
ZT5_STATIC_ASSERT(sizeof(ZT5UIMessage) == 16, "UI message block is 16 bytes");

typedef void (*PFN_ZT5_UI_CALLBACK)(ZT5UIMessage *pMessage, void *pArg);

/* ZT5_CFG_DISPLAY_UICALLBACK. pMutex points at a CZT5Mutex (ZT5Mutex.h)
 * that the sender holds while it fills the block and calls; null means no
 * lock. The host's record must live as long as the display uses it. */
typedef struct ZT5UICallbackRecord {
    void *pMutex;
    PFN_ZT5_UI_CALLBACK pfnCallback;
    void *pArg;
    ZT5UIMessage msg;
    uint32_t dwHostWords[8];
} ZT5UICallbackRecord;

/* ZT5_CFG_DISPLAY_LOGO_DATA: a BMP file (24 or 32 bits a pixel, rows without
 * fill bytes) shown over the plain view. pData is the file's name and
 * dwDataSize its length in bytes; the library copies at most that many
 * bytes (up to a NUL) and ends its copy with a NUL, so the host may free
 * the name at once. The placement is in fractions of the picture, from its
 * top left corner, y downward: left edge, top edge, width, height. */
typedef struct ZT5VideoLogo {
    void *pData;
    float fX, fY, fWidth, fHeight;
    uint32_t dwDataSize;
} ZT5VideoLogo;

/* ZT5_CFG_DISPLAY_DISTORTION_PARAM: 13 doubles k1 k2 k3 p1 p2 fx fy ox oy and
 * the four crop values (bottom, left, top, right). */
typedef struct ZT5DistortionParam {
    double *pTable;
    uint32_t dwCount;
} ZT5DistortionParam;

/* Snapshot record, written by ZT5_CFG_DISPLAY_GL_SNAPSHOT. Pixels are RGBA,
 * bottom row first, and belong to the display. */
typedef struct ZT5Snapshot {
    void *pBuffer;
    uint32_t dwWidth;
    uint32_t dwHeight;
    uint32_t dwCSType; /* ZT5_SNAPSHOT_RGBA on success */
} ZT5Snapshot;

/* Read with GetDisplayParam(ZT5_CFG_DISPLAY_RENDER_STATS): what the render
 * thread of the current display handle did since it was made. Frames posted
 * but never drawn were overtaken by a newer one before the thread got to
 * them (the newest frame always wins); draws beyond the frames drawn were
 * made for motion, gestures, settings or window changes. */
typedef struct ZT5RenderStats {
    uint32_t dwDraws;        /* draws finished, swap included */
    uint32_t dwFramesPosted; /* frames handed to the render thread */
    uint32_t dwFramesDrawn;  /* of those, frames that reached a draw */
    uint32_t dwNewestDrawn;  /* ordinal (1 = first posted) of the frame the
                                last draw showed: equal to dwFramesPosted
                                once the newest frame is in the window */
} ZT5RenderStats;
ZT5_STATIC_ASSERT(sizeof(ZT5RenderStats) == 16, "ZT5RenderStats is 16 bytes");

/* ZT5_CFG_DISPLAY_PICTURE, read with GetDisplayParam: the picture the
 * display shows, in a buffer of the host's. The host fills pBuffer, dwSize
 * (bytes of the buffer), dwCSType (the layout it wants), dwFrameOrdinal and
 * dwWaitMs; the library fills the buffer, dwSize (bytes written), dwWidth,
 * dwHeight and dwFrameOrdinal (the ordinal of the frame the picture shows).
 *
 * Layouts, rows top-down and tightly packed in both:
 *   ZT5_FRAME_CS_I420   Y (w x h), then U, then V, each (w+1)/2 x (h+1)/2;
 *                       the colour matrix and range are those of
 *                       ZT5_CFG_DISPLAY_YUV_MATRIX, the ones the frames
 *                       come in; converted on the GPU.
 *   ZT5_SNAPSHOT_RGBA   4 bytes a pixel, R G B A.
 * dwFrameOrdinal: 0 for the picture as it stands; n for the picture of the
 * n-th frame posted (1 = the first) or of a later one. A frame not drawn
 * yet is waited for, at most dwWaitMs milliseconds.
 * Results: 0; ZT5_ERR_TIMEOUT when that frame wasn't drawn in time (nothing
 * written); ZT5_ERR_INVALID_PARAM for a null record or buffer, another
 * layout or a buffer too small (nothing written; dwSize, dwWidth and
 * dwHeight then say what is needed); ZT5_ERR_NOT_READY before Init. */
typedef struct ZT5Picture {
    void *pBuffer;
    uint32_t dwSize;
    uint32_t dwCSType;
    uint32_t dwWidth, dwHeight;
    uint32_t dwFrameOrdinal;
    uint32_t dwWaitMs;
} ZT5Picture;
ZT5_STATIC_ASSERT(sizeof(void *) != 8 || sizeof(ZT5Picture) == 32, "ZT5Picture is 32 bytes on 64-bit");
ZT5_STATIC_ASSERT(offsetof(ZT5Picture, dwSize) == sizeof(void *), "ZT5Picture starts with its pointer");

/* Shared memory agent of ZT5_CFG_COMMON_SHAREDMEM_AGENT: two buffers the host
 * fills in turn. */
typedef struct ZT5SharedMemAgent {
    uint32_t dwUnused[2];
    uint32_t dwYStride;
    uint32_t dwUVStride;
    uint32_t dwCheckA;
    uint32_t dwCheckB;
    uint32_t dwBusy0;
    uint32_t dwBusy1;
    uint8_t *pPlane0[3];
    uint8_t *pPlane1[3];
} ZT5SharedMemAgent;

/* A three-word benchmark result (ZT5_CFG_COMMON_BENCHMARK_BLIT / _FRAME). */
typedef struct ZT5BenchmarkTriple {
    uint32_t dwWords[3];
} ZT5BenchmarkTriple;

/* ZT5_CFG_COMMON_BENCHMARK: word 1 is the index on input; words 11..13 get the
 * blit triple, words 20..22 the frame triple. */
typedef struct ZT5BenchmarkRecord {
    uint32_t dwWords[23];
} ZT5BenchmarkRecord;
ZT5_STATIC_ASSERT(sizeof(ZT5BenchmarkRecord) == 92, "benchmark record is 92 bytes");

/* Face rectangle of a face list, 60 bytes. Sizes are pixels of the video
 * frame as the host pushes it (before any rotation). name is NUL-terminated
 * and may be empty; dwGender 0 is female, anything else male. */
typedef struct ZT5FaceRect {
    uint32_t dwImageID;
    uint32_t dwGender;
    int32_t dwAge;
    int32_t left, top, width, height;
    char name[32];
} ZT5FaceRect;
ZT5_STATIC_ASSERT(sizeof(ZT5FaceRect) == 60, "face rectangle is 60 bytes");

/* ZT5_CFG_DISPLAY_FACE_LIST: the faces drawn over the plain view from now
 * on, until the next list (a count of 0 clears them). The library copies the
 * records at the call, so the host may free them at once. Refused with 2,
 * nothing changed: more than ZT5_FACE_LIST_MAX records, a null pFaces with
 * a count, or a name without its NUL within 32 bytes.
 * dwTolerance sets how far a face may move and grow between two lists and
 * keep the name it had: left within max(32, dwTolerance >> 5) pixels, width
 * and height within max(18, dwTolerance >> 4) (0 gives those minimums). */
#define ZT5_FACE_LIST_MAX 50
typedef struct ZT5FaceList {
    uint32_t dwCount;
    uint32_t dwTolerance;
    const ZT5FaceRect *pFaces;
} ZT5FaceList;

/* ZT5_CFG_DISPLAY_FACE_INFO: the host's names by image id. The display
 * keeps the pointer and reads the entries at each draw, under the
 * CZT5Mutex given with ZT5_CFG_DISPLAY_FACE_MUTEX when there is one: the
 * host keeps record and entries alive and holds that mutex while it changes
 * them. A face whose dwImageID matches an entry with a name shows that
 * name (at most 24 bytes of it). */
typedef struct ZT5FaceInfoEntry {
    uint32_t dwImageID;
    int32_t left, top, width, height; /* not used by the display */
    char name[24];
    uint32_t dwReserve;
    uint32_t dwUnused;
} ZT5FaceInfoEntry;
ZT5_STATIC_ASSERT(sizeof(ZT5FaceInfoEntry) == 52, "face info entry is 52 bytes");

typedef struct ZT5FaceInfoList {
    const ZT5FaceInfoEntry *pEntries;
    uint32_t dwSize; /* entries */
} ZT5FaceInfoList;

/* Saved state of one view, 264 bytes, the same layout for all views. */
typedef struct FECurrentStatusData {
    float fCamZ[4];
    float fCamTranZ[4];
    float fCamRotZ[4];
    float fCamTranY[4];
    float fCamAngleZ[4];
    float fTz[4];
    float zAngle[4];
    float fCamRotX[4];
    uint32_t dwReserved128;
    float xMove;
    float fTilt;
    float mTransX;
    float mTransY;
    uint32_t dwReserved148;
    float mAnimalStepX;
    uint32_t dwReserved156;
    float mAnimalStepY;
    uint32_t bRestored;
    float mScaleRatio;
    int32_t bIsZoom;
    uint32_t dwReserved176;
    float mfZoom;
    int32_t maxState;
    int32_t maxMinInit;
    int32_t mCruiseState;
    int32_t nCruiseDir;
    float mCruiseVelocity;
    uint32_t dwReserved204;
    int32_t nRoamState;
    int32_t viewBigIndex;
    int32_t mCurViewIndex;
    int32_t nRoamInit;
    uint32_t dwReserved224[4];
    int32_t bIsAutoTouring[4];
    int32_t belasticstate;
    int32_t mFishEyeMode;
} FECurrentStatusData;
ZT5_STATIC_ASSERT(sizeof(FECurrentStatusData) == 264, "saved view state is 264 bytes");
ZT5_STATIC_ASSERT(offsetof(FECurrentStatusData, xMove) == 132, "xMove at 132");
ZT5_STATIC_ASSERT(offsetof(FECurrentStatusData, mTransX) == 140, "mTransX at 140");
ZT5_STATIC_ASSERT(offsetof(FECurrentStatusData, bRestored) == 164, "bRestored at 164");
ZT5_STATIC_ASSERT(offsetof(FECurrentStatusData, mfZoom) == 180, "mfZoom at 180");
ZT5_STATIC_ASSERT(offsetof(FECurrentStatusData, mCruiseVelocity) == 200, "mCruiseVelocity at 200");
ZT5_STATIC_ASSERT(offsetof(FECurrentStatusData, nRoamState) == 208, "nRoamState at 208");
ZT5_STATIC_ASSERT(offsetof(FECurrentStatusData, bIsAutoTouring) == 240, "bIsAutoTouring at 240");
ZT5_STATIC_ASSERT(offsetof(FECurrentStatusData, mFishEyeMode) == 260, "mFishEyeMode at 260");

#endif

// What the plain view draws over its picture: the host's logo (or, while a
// lens correction runs and no logo is loaded, the built-in mark) and the
// face rectangles with their labels. Settings arrive on any thread; loading
// and drawing happen on the render thread, at the view's next draw.
#ifndef PANOVIEW_PLAINOVERLAY_H
#define PANOVIEW_PLAINOVERLAY_H

#include <atomic>
#include <memory>
#include <mutex>

#include "AiRectRender.h"
#include "GlesRenderEffect.h"
#include "VideoLogo.h"

class PlainOverlay {
public:
    // frameFaces: the view's description of the faces of a frame, which
    // this object fills from the face list the host installs.
    explicit PlainOverlay(TextureInfo &frameFaces) : m_FrameFaces(frameFaces) {}
    ~PlainOverlay(); // render thread, context current

    // Any thread. Takes the overlay ids (font path, face names, their mutex,
    // option, logo, face list), copying what it keeps; false for other ids.
    bool SetConfig(MDWord dwID, const void *pValue);

    // What a draw of the plain view tells the overlay.
    struct Frame {
        const float *mvp;       // the picture's matrix
        const float *texCoords; // the picture's corner coordinates for the rotation (no crop)
        MLong videoWidth, videoHeight;
        float pictureRatio;     // the picture's width by height on the screen
        bool bCorrection;       // a lens correction runs
        float frustumX, frustumY; // the letterbox: half extents of the view around the square
        float windowRatio;      // the window's width by height
    };
    // Render thread, right after the picture, within the same draw.
    void Draw(const Frame &f);

    // Render thread: GL objects and glyphs go (the view's Uninitialize).
    void Release();

private:
    PlainOverlay(const PlainOverlay &) = delete;
    PlainOverlay &operator=(const PlainOverlay &) = delete;

    void TakeSettings(); // under m_Lock: what changed since the last draw
    MDWord FaceNames(ZT5FaceRect *faces, MDWord count);
    static bool SameFace(const ZT5FaceRect &a, const ZT5FaceRect &b, MDWord dwTolerance);

    TextureInfo &m_FrameFaces;

    // Written by any thread under m_Lock, taken by the draw.
    std::mutex m_Lock;
    char *m_pFontPath = nullptr;      // owned
    bool m_bFontChanged = false;
    char *m_pLogoName = nullptr;      // owned, set while a load waits
    float m_fLogoPlacement[4] = {0, 0, 0, 0};
    ZT5FaceRect m_Installed[ZT5_FACE_LIST_MAX] = {};
    MDWord m_dwInstalledCount = 0;
    MDWord m_dwInstalledTolerance = 0;
    bool m_bListChanged = false;
    // Single words, read by the draw as they stand.
    std::atomic<const ZT5FaceInfoList *> m_pFaceInfo{nullptr};
    std::atomic<CZT5Mutex *> m_pFaceMutex{nullptr};
    std::atomic<MDWord> m_dwFaceOption{0};

    // Render thread only.
    char *m_pTextFont = nullptr;      // font of the labels, owned
    bool m_bTextFontChanged = false;
    char *m_pLogoLoad = nullptr;      // file to load at this draw, owned
    float m_fLogoLoadPlacement[4] = {0, 0, 0, 0};
    ZT5FaceRect m_FrameList[ZT5_FACE_LIST_MAX] = {}; // what m_FrameFaces points at
    ZT5FaceRect m_Work[ZT5_FACE_LIST_MAX] = {};      // this frame's list, names filled in
    ZT5FaceRect m_LastFaces[ZT5_FACE_LIST_MAX] = {}; // the last frame's
    MDWord m_dwLastCount = 0;
    std::unique_ptr<AiRectRender> m_pRects;
    bool m_bRectsTried = false;
    std::unique_ptr<VideoLogo> m_pLogo;
    std::unique_ptr<VideoLogo> m_pMark;
    bool m_bMarkTried = false;
};

#endif

// What the plain view draws over its picture: the host's logo (or, while a
// lens correction runs and no logo is loaded, the built-in mark) and the
// faces (FaceOverlay). Settings arrive on any thread; loading and drawing
// happen on the render thread, at the view's next draw.
#ifndef PANOVIEW_PLAINOVERLAY_H
#define PANOVIEW_PLAINOVERLAY_H

#include <atomic>
#include <memory>
#include <mutex>

#include "FaceOverlay.h"
#include "GlesRenderEffect.h"
#include "VideoLogo.h"

class PlainOverlay {
public:
    PlainOverlay() = default;
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

    FaceOverlay m_Faces;

    // Written by any thread under m_Lock, taken by the draw.
    std::mutex m_Lock;
    char *m_pLogoName = nullptr;      // owned, set while a load waits
    float m_fLogoPlacement[4] = {0, 0, 0, 0};

    // Render thread only.
    char *m_pLogoLoad = nullptr;      // file to load at this draw, owned
    float m_fLogoLoadPlacement[4] = {0, 0, 0, 0};
    std::unique_ptr<VideoLogo> m_pLogo;
    std::unique_ptr<VideoLogo> m_pMark;
    bool m_bMarkTried = false;
};

#endif

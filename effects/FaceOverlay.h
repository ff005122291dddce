// The faces the host gives: the list (ZT5_CFG_DISPLAY_FACE_LIST), what is
// drawn of them (the face option), the labels' font, the names by image id
// and their mutex. One object holds them and draws them, for either kind of
// view:
// - over the plain view's picture, rectangles and labels in the picture's
//   square, so that they zoom, pan and turn with it (DrawOverPicture);
// - over a fisheye view, whose programs draw the rectangles themselves as
//   they bend the picture (from Marks), the labels upright beside where the
//   view shows each rectangle, in window pixels (DrawLabels).
// Settings arrive on any thread and are copied under the object's lock;
// everything else runs on the render thread, context current (destruction
// too).
#ifndef PANOVIEW_FACEOVERLAY_H
#define PANOVIEW_FACEOVERLAY_H

#include <atomic>
#include <memory>
#include <mutex>

#include "AiRectRender.h"
#include "FrameSampler.h"
#include "ViewMap.h"
#include "ZT5Mutex.h"

class FaceOverlay {
public:
    FaceOverlay() = default;
    ~FaceOverlay();

    // Any thread. Takes the face ids (font path, names, their mutex,
    // option, list), copying what it keeps; false for other ids.
    bool SetConfig(MDWord dwID, const void *pValue);

    // Over the plain view, right after its picture: the picture's matrix,
    // its corners' coordinates for the rotation, the frame's size and the
    // picture's width by height on the screen.
    void DrawOverPicture(const float *mvp, const float *texCoords, MLong videoWidth, MLong videoHeight,
                         float pictureRatio);

    // The rectangles in the lens box's unit square for the programs of the
    // fisheye views, made again when the list, the option or the box
    // changes; none unless the option asks for rectangles.
    const FaceMarks *Marks(const FrameBox &box);
    // Over a fisheye view, right after its draw: each face's label lines,
    // left-aligned a few pixels right of the rightmost of the rectangle's
    // corners and side middles as `map` shows them.
    void DrawLabels(const ViewMap &map);

    // Render thread: GL objects and glyphs go.
    void Release();

private:
    FaceOverlay(const FaceOverlay &) = delete;
    FaceOverlay &operator=(const FaceOverlay &) = delete;

    // Under m_Lock: what changed since the last draw. Then this draw's
    // faces, named; false when there are none.
    void TakeSettings();
    bool PrepareFaces();
    void NameFaces(ZT5FaceRect *faces, MDWord count);
    static bool SameFace(const ZT5FaceRect &a, const ZT5FaceRect &b, MDWord dwTolerance);

    // Written by any thread under m_Lock, taken by the draws.
    std::mutex m_Lock;
    char *m_pFontPath = nullptr; // owned
    bool m_bFontChanged = false;
    ZT5FaceRect m_Installed[ZT5_FACE_LIST_MAX] = {};
    MDWord m_dwInstalledCount = 0;
    MDWord m_dwInstalledTolerance = 0;
    bool m_bListChanged = false;
    unsigned m_nList = 1; // counts lists and options, for the marks
    // Single words, read by the draw as they stand.
    std::atomic<const ZT5FaceInfoList *> m_pFaceInfo{nullptr};
    std::atomic<CZT5Mutex *> m_pFaceMutex{nullptr};
    std::atomic<MDWord> m_dwFaceOption{0};

    // Render thread only.
    char *m_pTextFont = nullptr; // font of the labels, owned
    bool m_bTextFontChanged = false;
    ZT5FaceRect m_List[ZT5_FACE_LIST_MAX] = {};      // the list taken last
    MDWord m_dwCount = 0, m_dwTolerance = 0;
    ZT5FaceRect m_Work[ZT5_FACE_LIST_MAX] = {};      // this draw's list, names filled in
    ZT5FaceRect m_LastFaces[ZT5_FACE_LIST_MAX] = {}; // the last draw's
    MDWord m_dwLastCount = 0;
    std::unique_ptr<AiRectRender> m_pRects;
    bool m_bRectsTried = false;
    FaceMarks m_Marks;
    unsigned m_nMarksList = 0; // the list the marks were made from
    FrameBox m_MarksBox;       // and the lens box
};

#endif

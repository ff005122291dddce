// The overlay settings of a display as one layer keeps them for the layer
// below: font path, host name list and its mutex, face option, background
// colour, logo and face list. Each layer that must replay them to a rebuilt
// layer below (front end, manager, render object, renderer) holds one.
//
// What the host may free is copied: the font path, the logo record with its
// file name, the face list with its records. The name list and its mutex
// are the host's and stay pointers. Values travel down with the payload of
// their id, pointing into this store's copies: the layer below reads them
// during the call and copies what it keeps.
#ifndef PANOVIEW_OVERLAYSETTINGS_H
#define PANOVIEW_OVERLAYSETTINGS_H

#include <functional>
#include <mutex>

#include "MRuntime.h"
#include "ZT5Config.h"
#include "ZT5Records.h"

class COverlaySettings {
public:
    // Receives one value: the id and its payload.
    using Sink = std::function<void(MDWord dwID, void *pValue)>;

    COverlaySettings() = default;
    ~COverlaySettings();

    static bool IsOverlayId(MDWord dwID);

    // Whether a face list may be taken: at most ZT5_FACE_LIST_MAX records,
    // records present when counted, every name ending within its 32 bytes.
    static bool FaceListValid(const ZT5FaceList *pList);

    // Stores the value of an overlay id and, when it changed the store,
    // hands the stored value to `forward` before another thread may store
    // again (so that two threads setting one id leave the layer below with
    // the value kept here). False for an id that isn't an overlay id.
    // Refused without change: a null payload; a face list that isn't valid;
    // a logo record without a name.
    bool Store(MDWord dwID, const void *pValue, const Sink &forward = Sink());

    // Hands every value stored so far to `sink`, in one fixed order: font
    // path, mutex, name list, option, background colour, logo, face list
    // (the mutex before the list it guards).
    void Replay(const Sink &sink) const;

private:
    COverlaySettings(const COverlaySettings &) = delete;
    COverlaySettings &operator=(const COverlaySettings &) = delete;

    bool StoreLocked(MDWord dwID, const void *pValue);
    void ForwardLocked(MDWord dwID, const Sink &sink) const;

    mutable std::mutex m_Lock;
    // One flag a value: set once the host gave it, so that a replay doesn't
    // invent values the host never set.
    enum : MDWord {
        kFontPath = 1,
        kFaceMutex = 2,
        kFaceInfo = 4,
        kFaceOption = 8,
        kBackColor = 16,
        kLogo = 32,
        kFaceList = 64,
    };
    MDWord m_dwSet = 0;
    char *m_pFontPath = nullptr; // owned copy
    void *m_pFaceMutex = nullptr;
    void *m_pFaceInfo = nullptr;
    MDWord m_dwFaceOption = 0;
    MDWord m_dwBackColor = 0;
    ZT5VideoLogo m_Logo = {};   // pData: owned, NUL-terminated copy of the name
    ZT5FaceList m_FaceList = {}; // pFaces: m_Faces
    ZT5FaceRect m_Faces[ZT5_FACE_LIST_MAX] = {};
};

#endif

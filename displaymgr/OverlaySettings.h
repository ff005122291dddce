// The overlay settings of a display, a value within its DisplaySettings:
// font path, host name list and its mutex, face option, background colour,
// logo and face list.
//
// What the host may free is copied: the font path, the logo record with its
// file name, the face list with its records; a copy of the value copies
// them again. The name list and its mutex are the host's and stay pointers.
// Values reach the views as the payload of their id, pointing into this
// value: the view reads them during the call and copies what it keeps. The
// value has no lock: its owner's lock guards it.
#ifndef PANOVIEW_OVERLAYSETTINGS_H
#define PANOVIEW_OVERLAYSETTINGS_H

#include <functional>

#include "MRuntime.h"
#include "ZT5Config.h"
#include "ZT5Records.h"

class COverlaySettings {
public:
    // Receives one value: the id and its payload.
    using Sink = std::function<void(MDWord dwID, void *pValue)>;

    COverlaySettings() = default;
    ~COverlaySettings();
    COverlaySettings(const COverlaySettings &other);
    COverlaySettings &operator=(const COverlaySettings &other);

    static bool IsOverlayId(MDWord dwID);

    // Whether a face list may be taken: at most ZT5_FACE_LIST_MAX records,
    // records present when counted, every name ending within its 32 bytes.
    static bool FaceListValid(const ZT5FaceList *pList);

    // Stores the value of an overlay id; false when nothing was stored: an
    // id that isn't an overlay id, a null payload, a face list that isn't
    // valid, a logo record without a name.
    bool Store(MDWord dwID, const void *pValue);

    // Hands the stored value of one id to `sink`, if the host gave one.
    void Forward(MDWord dwID, const Sink &sink) const;
    // Hands every value stored so far to `sink`, in one fixed order: font
    // path, mutex, name list, option, background colour, logo, face list
    // (the mutex before the list it guards).
    void Replay(const Sink &sink) const;

private:
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

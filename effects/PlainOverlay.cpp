#include "PlainOverlay.h"

#include <cstring>
#include <new>

#include "BuiltinMark.h"
#include "MLog.h"

namespace {

// Longest name copied from a host's name entry and from a face record,
// without the NUL.
const size_t kHostNameMax = sizeof(ZT5FaceInfoEntry::name);
const size_t kFaceNameMax = sizeof(ZT5FaceRect::name) - 1;

char *CopyString(const char *s, size_t maxLength)
{
    if (!s) return nullptr;
    const size_t length = strnlen(s, maxLength);
    char *copy = static_cast<char *>(MMemAlloc(length + 1));
    if (!copy) return nullptr;
    MMemCpy(copy, s, length);
    copy[length] = 0;
    return copy;
}

void SetName(ZT5FaceRect &face, const char *name, size_t maxLength)
{
    const size_t length = strnlen(name, maxLength < kFaceNameMax ? maxLength : kFaceNameMax);
    MMemCpy(face.name, name, length);
    face.name[length] = 0;
}

int64_t Distance(int32_t a, int32_t b)
{
    const int64_t d = int64_t(a) - int64_t(b);
    return d < 0 ? -d : d;
}

} // namespace

PlainOverlay::~PlainOverlay()
{
    Release();
    MMemFree(m_pFontPath);
    MMemFree(m_pLogoName);
    MMemFree(m_pLogoLoad);
    MMemFree(m_pTextFont);
}

void PlainOverlay::Release()
{
    m_pRects.reset();
    m_bRectsTried = false;
    m_pLogo.reset();
    m_pMark.reset();
    m_bMarkTried = false;
}

bool PlainOverlay::SetConfig(MDWord dwID, const void *pValue)
{
    switch (dwID) {
    case ZT5_CFG_DISPLAY_FONT_PATH: {
        char *copy = CopyString(static_cast<const char *>(pValue), 4095);
        std::lock_guard<std::mutex> lock(m_Lock);
        MMemFree(m_pFontPath);
        m_pFontPath = copy;
        m_bFontChanged = true;
        return true;
    }
    case ZT5_CFG_DISPLAY_FACE_INFO:
        m_pFaceInfo.store(static_cast<const ZT5FaceInfoList *>(pValue));
        return true;
    case ZT5_CFG_DISPLAY_FACE_MUTEX:
        m_pFaceMutex.store(static_cast<CZT5Mutex *>(const_cast<void *>(pValue)));
        return true;
    case ZT5_CFG_DISPLAY_FACE_OPTION:
        if (pValue) m_dwFaceOption.store(*static_cast<const MDWord *>(pValue));
        return true;
    case ZT5_CFG_DISPLAY_LOGO_DATA: {
        // The file is read on the render thread, at the next draw.
        if (!pValue) return true;
        ZT5VideoLogo logo;
        MMemCpy(&logo, pValue, sizeof(logo));
        if (!logo.pData || !logo.dwDataSize) return true;
        char *name = CopyString(static_cast<const char *>(logo.pData), logo.dwDataSize);
        if (!name) return true;
        std::lock_guard<std::mutex> lock(m_Lock);
        MMemFree(m_pLogoName);
        m_pLogoName = name;
        m_fLogoPlacement[0] = logo.fX;
        m_fLogoPlacement[1] = logo.fY;
        m_fLogoPlacement[2] = logo.fWidth;
        m_fLogoPlacement[3] = logo.fHeight;
        return true;
    }
    case ZT5_CFG_DISPLAY_FACE_LIST: {
        const ZT5FaceList *pList = static_cast<const ZT5FaceList *>(pValue);
        if (!pList || pList->dwCount > ZT5_FACE_LIST_MAX || (pList->dwCount && !pList->pFaces)) return true;
        std::lock_guard<std::mutex> lock(m_Lock);
        if (pList->dwCount) MMemCpy(m_Installed, pList->pFaces, sizeof(ZT5FaceRect) * pList->dwCount);
        for (MDWord i = 0; i < pList->dwCount; i++) m_Installed[i].name[kFaceNameMax] = 0;
        m_dwInstalledCount = pList->dwCount;
        m_dwInstalledTolerance = pList->dwTolerance;
        m_bListChanged = true;
        return true;
    }
    default:
        return false;
    }
}

bool PlainOverlay::SameFace(const ZT5FaceRect &a, const ZT5FaceRect &b, MDWord dwTolerance)
{
    // How far a face may move and grow between two frames and still be the
    // same; its height in the picture plays no part.
    const int64_t moveTol = (dwTolerance >> 5) > 32 ? int64_t(dwTolerance >> 5) : 32;
    const int64_t sizeTol = (dwTolerance >> 4) > 18 ? int64_t(dwTolerance >> 4) : 18;
    const int64_t dWidth = Distance(a.width, b.width);
    return Distance(a.left, b.left) <= moveTol && dWidth <= sizeTol && dWidth <= moveTol &&
           Distance(a.height, b.height) <= sizeTol;
}

// Fills in the names of this frame's faces: first from the host's list by
// image id, then, for a face still without a name, from the face of the
// last frame that lay at almost the same place (the last such face in that
// list wins). The list as it then stands is kept for the next frame. The
// host's list is read under its mutex.
MDWord PlainOverlay::FaceNames(ZT5FaceRect *faces, MDWord count)
{
    CZT5Mutex *pMutex = m_pFaceMutex.load();
    if (pMutex) pMutex->Lock();
    const ZT5FaceInfoList *pInfo = m_pFaceInfo.load();
    if (pInfo && pInfo->pEntries) {
        for (MDWord e = 0; e < pInfo->dwSize; e++) {
            const ZT5FaceInfoEntry &entry = pInfo->pEntries[e];
            if (!entry.name[0]) continue;
            for (MDWord i = 0; i < count; i++)
                if (faces[i].dwImageID == entry.dwImageID) SetName(faces[i], entry.name, kHostNameMax);
        }
    }
    const MDWord tolerance = m_FrameFaces.dwWords[1];
    for (MDWord i = 0; i < count; i++) {
        if (faces[i].name[0]) continue;
        for (MDWord k = 0; k < m_dwLastCount; k++)
            if (m_LastFaces[k].name[0] && SameFace(faces[i], m_LastFaces[k], tolerance))
                SetName(faces[i], m_LastFaces[k].name, kFaceNameMax);
    }
    MMemCpy(m_LastFaces, faces, sizeof(ZT5FaceRect) * count);
    m_dwLastCount = count;
    if (pMutex) pMutex->Unlock();
    return count;
}

void PlainOverlay::TakeSettings()
{
    if (m_bFontChanged) {
        MMemFree(m_pTextFont);
        m_pTextFont = CopyString(m_pFontPath, 4095);
        m_bTextFontChanged = true;
        m_bFontChanged = false;
    }
    if (m_pLogoName) {
        MMemFree(m_pLogoLoad);
        m_pLogoLoad = m_pLogoName;
        m_pLogoName = nullptr;
        MMemCpy(m_fLogoLoadPlacement, m_fLogoPlacement, sizeof(m_fLogoPlacement));
    }
    if (m_bListChanged) {
        // The frame's description of its faces, as a frame source writes it:
        // count, list and the tolerance word.
        MMemCpy(m_FrameList, m_Installed, sizeof(ZT5FaceRect) * m_dwInstalledCount);
        m_FrameFaces.dwWords[1] = m_dwInstalledTolerance;
        m_FrameFaces.dwFaceCnt = m_dwInstalledCount;
        m_FrameFaces.pFaceList = m_FrameList;
        m_bListChanged = false;
    }
}

void PlainOverlay::Draw(const Frame &f)
{
    {
        std::lock_guard<std::mutex> lock(m_Lock);
        TakeSettings();
    }

    // The logo, loaded here on the render thread; a refused file leaves the
    // picture shown so far.
    if (m_pLogoLoad) {
        if (!m_pLogo) {
            m_pLogo.reset(new (std::nothrow) VideoLogo());
            if (m_pLogo && !m_pLogo->Create()) m_pLogo.reset();
        }
        if (m_pLogo) m_pLogo->Load(m_pLogoLoad, m_fLogoLoadPlacement);
        MMemFree(m_pLogoLoad);
        m_pLogoLoad = nullptr;
    }
    if (m_pLogo && m_pLogo->Loaded()) {
        m_pLogo->Draw(f.mvp);
    } else if (f.bCorrection) {
        if (!m_pMark && !m_bMarkTried) {
            m_bMarkTried = true;
            m_pMark.reset(new (std::nothrow) VideoLogo());
            if (m_pMark && !(m_pMark->Create() && m_pMark->LoadMark())) m_pMark.reset();
        }
        if (m_pMark) {
            // Bottom right of the picture, a fifth of the window wide
            // whatever the letterbox, in the mark's own proportions.
            const float w5 = 2.0f / 5.0f;
            const float markRatio = float(kBuiltinMark[1]) / float(kBuiltinMark[0]);
            const float quad[4] = {1.0f - f.frustumX * w5, -1.0f, 1.0f,
                                   -1.0f + f.frustumY * f.windowRatio * w5 * markRatio};
            m_pMark->Draw(f.mvp, quad);
        }
    }

    // The face overlay, made at the first draw; a font given later renders
    // the labels' glyphs anew.
    if (!m_bRectsTried) {
        m_bRectsTried = true;
        m_bTextFontChanged = false;
        m_pRects.reset(new (std::nothrow) AiRectRender());
        if (m_pRects) {
            const MRESULT fontRes = m_pTextFont && m_pTextFont[0] ? m_pRects->Init_font(m_pTextFont) : -1;
            if (fontRes + m_pRects->Init_rect() != 0)
                MLogInfo("[%s] GlesRenderEffect:: Render_frame _aiRectRender init warnning", MLOG_TAG);
        }
    } else if (m_bTextFontChanged && m_pRects) {
        m_bTextFontChanged = false;
        m_pRects->Init_font(m_pTextFont);
    }
    const TextureInfo &faces = m_FrameFaces;
    if (!m_pRects || !faces.dwFaceCnt || !faces.pFaceList) return;
    const MDWord option = m_dwFaceOption.load();
    if (faces.dwFaceCnt <= ZT5_FACE_LIST_MAX) {
        MMemCpy(m_Work, faces.pFaceList, sizeof(ZT5FaceRect) * faces.dwFaceCnt);
        FaceNames(m_Work, faces.dwFaceCnt);
    }
    // A list too long is refused, and the one before drawn again.
    m_pRects->SetFaceList(m_Work, MLong(faces.dwFaceCnt), f.videoWidth, f.videoHeight, option);
    m_pRects->Render(f.mvp, f.texCoords, f.pictureRatio);
}

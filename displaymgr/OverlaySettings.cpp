#include "OverlaySettings.h"

#include <cstring>

namespace {

// Longest font path taken, without its NUL; a longer one is refused.
const size_t kMaxPathLength = 4095;

char *CopyName(const char *p, size_t length)
{
    char *copy = static_cast<char *>(MMemAlloc(length + 1));
    if (!copy) return nullptr;
    MMemCpy(copy, p, length);
    copy[length] = 0;
    return copy;
}

} // namespace

COverlaySettings::~COverlaySettings()
{
    MMemFree(m_pFontPath);
    MMemFree(m_Logo.pData);
}

COverlaySettings::COverlaySettings(const COverlaySettings &other)
{
    *this = other;
}

COverlaySettings &COverlaySettings::operator=(const COverlaySettings &other)
{
    if (this == &other) return *this;
    // The owned names are copied; a copy that fails leaves the value
    // without it, as if the host had never given it.
    MMemFree(m_pFontPath);
    MMemFree(m_Logo.pData);
    m_dwSet = other.m_dwSet;
    m_pFontPath = other.m_pFontPath ? CopyName(other.m_pFontPath, std::strlen(other.m_pFontPath)) : nullptr;
    if (other.m_pFontPath && !m_pFontPath) m_dwSet &= ~MDWord(kFontPath);
    m_pFaceMutex = other.m_pFaceMutex;
    m_pFaceInfo = other.m_pFaceInfo;
    m_dwFaceOption = other.m_dwFaceOption;
    m_dwBackColor = other.m_dwBackColor;
    m_Logo = other.m_Logo;
    m_Logo.pData = other.m_Logo.pData ? CopyName(static_cast<const char *>(other.m_Logo.pData), other.m_Logo.dwDataSize)
                                      : nullptr;
    if (other.m_Logo.pData && !m_Logo.pData) m_dwSet &= ~MDWord(kLogo);
    m_FaceList = other.m_FaceList;
    m_FaceList.pFaces = m_Faces;
    MMemCpy(m_Faces, other.m_Faces, sizeof(m_Faces));
    return *this;
}

bool COverlaySettings::IsOverlayId(MDWord dwID)
{
    switch (dwID) {
    case ZT5_CFG_DISPLAY_FONT_PATH:
    case ZT5_CFG_DISPLAY_FACE_INFO:
    case ZT5_CFG_DISPLAY_FACE_MUTEX:
    case ZT5_CFG_DISPLAY_FACE_OPTION:
    case ZT5_CFG_DISPLAY_BACK_COLOR:
    case ZT5_CFG_DISPLAY_LOGO_DATA:
    case ZT5_CFG_DISPLAY_FACE_LIST:
        return true;
    default:
        return false;
    }
}

bool COverlaySettings::FaceListValid(const ZT5FaceList *pList)
{
    if (!pList || pList->dwCount > ZT5_FACE_LIST_MAX) return false;
    if (pList->dwCount && !pList->pFaces) return false;
    for (MDWord i = 0; i < pList->dwCount; i++)
        if (!std::memchr(pList->pFaces[i].name, 0, sizeof(pList->pFaces[i].name))) return false;
    return true;
}

bool COverlaySettings::Store(MDWord dwID, const void *pValue)
{
    if (!pValue) return false;
    switch (dwID) {
    case ZT5_CFG_DISPLAY_FONT_PATH: {
        const char *p = static_cast<const char *>(pValue);
        const size_t length = strnlen(p, kMaxPathLength + 1);
        if (length > kMaxPathLength) return false;
        char *copy = CopyName(p, length);
        if (!copy) return false;
        MMemFree(m_pFontPath);
        m_pFontPath = copy;
        m_dwSet |= kFontPath;
        return true;
    }
    case ZT5_CFG_DISPLAY_FACE_MUTEX:
        m_pFaceMutex = const_cast<void *>(pValue);
        m_dwSet |= kFaceMutex;
        return true;
    case ZT5_CFG_DISPLAY_FACE_INFO:
        m_pFaceInfo = const_cast<void *>(pValue);
        m_dwSet |= kFaceInfo;
        return true;
    case ZT5_CFG_DISPLAY_FACE_OPTION:
        std::memcpy(&m_dwFaceOption, pValue, sizeof(m_dwFaceOption));
        m_dwSet |= kFaceOption;
        return true;
    case ZT5_CFG_DISPLAY_BACK_COLOR:
        std::memcpy(&m_dwBackColor, pValue, sizeof(m_dwBackColor));
        m_dwSet |= kBackColor;
        return true;
    case ZT5_CFG_DISPLAY_LOGO_DATA: {
        // The name is at most dwDataSize bytes long: read no further.
        ZT5VideoLogo logo;
        std::memcpy(&logo, pValue, sizeof(logo));
        if (!logo.pData || !logo.dwDataSize) return false;
        const size_t length = strnlen(static_cast<const char *>(logo.pData), logo.dwDataSize);
        char *copy = CopyName(static_cast<const char *>(logo.pData), length);
        if (!copy) return false;
        MMemFree(m_Logo.pData);
        m_Logo = logo;
        m_Logo.pData = copy;
        m_Logo.dwDataSize = MDWord(length);
        m_dwSet |= kLogo;
        return true;
    }
    case ZT5_CFG_DISPLAY_FACE_LIST: {
        const ZT5FaceList *pList = static_cast<const ZT5FaceList *>(pValue);
        if (!FaceListValid(pList)) return false;
        if (pList->dwCount) MMemCpy(m_Faces, pList->pFaces, sizeof(ZT5FaceRect) * pList->dwCount);
        m_FaceList.dwCount = pList->dwCount;
        m_FaceList.dwTolerance = pList->dwTolerance;
        m_FaceList.pFaces = m_Faces;
        m_dwSet |= kFaceList;
        return true;
    }
    default:
        return false;
    }
}

void COverlaySettings::Forward(MDWord dwID, const Sink &sink) const
{
    // The payload points into the store: the sink reads it, never writes.
    void *p = nullptr;
    MDWord flag = 0;
    switch (dwID) {
    case ZT5_CFG_DISPLAY_FONT_PATH: flag = kFontPath, p = m_pFontPath; break;
    case ZT5_CFG_DISPLAY_FACE_MUTEX: flag = kFaceMutex, p = m_pFaceMutex; break;
    case ZT5_CFG_DISPLAY_FACE_INFO: flag = kFaceInfo, p = m_pFaceInfo; break;
    case ZT5_CFG_DISPLAY_FACE_OPTION: flag = kFaceOption, p = const_cast<MDWord *>(&m_dwFaceOption); break;
    case ZT5_CFG_DISPLAY_BACK_COLOR: flag = kBackColor, p = const_cast<MDWord *>(&m_dwBackColor); break;
    case ZT5_CFG_DISPLAY_LOGO_DATA: flag = kLogo, p = const_cast<ZT5VideoLogo *>(&m_Logo); break;
    case ZT5_CFG_DISPLAY_FACE_LIST: flag = kFaceList, p = const_cast<ZT5FaceList *>(&m_FaceList); break;
    default: break;
    }
    if (m_dwSet & flag) sink(dwID, p);
}

void COverlaySettings::Replay(const Sink &sink) const
{
    static const MDWord kOrder[] = {ZT5_CFG_DISPLAY_FONT_PATH,   ZT5_CFG_DISPLAY_FACE_MUTEX,
                                    ZT5_CFG_DISPLAY_FACE_INFO,   ZT5_CFG_DISPLAY_FACE_OPTION,
                                    ZT5_CFG_DISPLAY_BACK_COLOR,  ZT5_CFG_DISPLAY_LOGO_DATA,
                                    ZT5_CFG_DISPLAY_FACE_LIST};
    if (!sink) return;
    for (MDWord id : kOrder) Forward(id, sink);
}

#include "FaceOverlay.h"

#include <cmath>
#include <cstring>
#include <new>

#include "MLog.h"
#include "ZT5Config.h"

namespace {

// Longest name copied from a host's name entry and from a face record,
// without the NUL.
const size_t kHostNameMax = sizeof(ZT5FaceInfoEntry::name);
const size_t kFaceNameMax = sizeof(ZT5FaceRect::name) - 1;
// A rectangle grows by this share of its size on each side.
const double kMargin = 0.2;


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

FaceOverlay::~FaceOverlay()
{
    Release();
    MMemFree(m_pFontPath);
    MMemFree(m_pTextFont);
}

void FaceOverlay::Release()
{
    m_pRects.reset();
    m_bRectsTried = false;
}

bool FaceOverlay::SetConfig(MDWord dwID, const void *pValue)
{
    switch (dwID) {
    case ZT5_CFG_DISPLAY_FONT_PATH: {
        char *copy = MStrDup(static_cast<const char *>(pValue), 4095);
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
    case ZT5_CFG_DISPLAY_FACE_OPTION: {
        if (!pValue) return true;
        std::lock_guard<std::mutex> lock(m_Lock);
        m_dwFaceOption.store(*static_cast<const MDWord *>(pValue));
        m_nList++;
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
        m_nList++;
        return true;
    }
    default:
        return false;
    }
}

bool FaceOverlay::SameFace(const ZT5FaceRect &a, const ZT5FaceRect &b, MDWord dwTolerance)
{
    // How far a face may move and grow between two frames and still be the
    // same; its height in the picture plays no part.
    const int64_t moveTol = (dwTolerance >> 5) > 32 ? int64_t(dwTolerance >> 5) : 32;
    const int64_t sizeTol = (dwTolerance >> 4) > 18 ? int64_t(dwTolerance >> 4) : 18;
    const int64_t dWidth = Distance(a.width, b.width);
    return Distance(a.left, b.left) <= moveTol && dWidth <= sizeTol && dWidth <= moveTol &&
           Distance(a.height, b.height) <= sizeTol;
}

// Fills in the names of this draw's faces: first from the host's list by
// image id, then, for a face still without a name, from the face of the
// last draw that lay at almost the same place (the last such face in that
// list wins). The list as it then stands is kept for the next draw. The
// host's list is read under its mutex.
void FaceOverlay::NameFaces(ZT5FaceRect *faces, MDWord count)
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
    for (MDWord i = 0; i < count; i++) {
        if (faces[i].name[0]) continue;
        for (MDWord k = 0; k < m_dwLastCount; k++)
            if (m_LastFaces[k].name[0] && SameFace(faces[i], m_LastFaces[k], m_dwTolerance))
                SetName(faces[i], m_LastFaces[k].name, kFaceNameMax);
    }
    MMemCpy(m_LastFaces, faces, sizeof(ZT5FaceRect) * count);
    m_dwLastCount = count;
    if (pMutex) pMutex->Unlock();
}

void FaceOverlay::TakeSettings()
{
    if (m_bFontChanged) {
        MMemFree(m_pTextFont);
        m_pTextFont = MStrDup(m_pFontPath, 4095);
        m_bTextFontChanged = true;
        m_bFontChanged = false;
    }
    if (m_bListChanged) {
        MMemCpy(m_List, m_Installed, sizeof(ZT5FaceRect) * m_dwInstalledCount);
        m_dwCount = m_dwInstalledCount;
        m_dwTolerance = m_dwInstalledTolerance;
        m_bListChanged = false;
    }
}

// The rectangle drawer and the labels' glyphs, made at the first draw; a
// font given later renders the glyphs anew. Then this draw's faces, named.
bool FaceOverlay::PrepareFaces()
{
    {
        std::lock_guard<std::mutex> lock(m_Lock);
        TakeSettings();
    }
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
    if (!m_pRects || !m_dwCount) return false;
    MMemCpy(m_Work, m_List, sizeof(ZT5FaceRect) * m_dwCount);
    NameFaces(m_Work, m_dwCount);
    return true;
}

void FaceOverlay::DrawOverPicture(const float *mvp, const float *texCoords, MLong videoWidth, MLong videoHeight,
                                  float pictureRatio)
{
    if (!PrepareFaces()) return;
    m_pRects->SetFaceList(m_Work, MLong(m_dwCount), videoWidth, videoHeight, m_dwFaceOption.load());
    m_pRects->Render(mvp, texCoords, pictureRatio);
}

const FaceMarks *FaceOverlay::Marks(const FrameBox &box)
{
    std::lock_guard<std::mutex> lock(m_Lock);
    TakeSettings();
    if (m_nList == m_nMarksList && box.x == m_MarksBox.x && box.y == m_MarksBox.y && box.w == m_MarksBox.w &&
        box.h == m_MarksBox.h)
        return &m_Marks;
    m_nMarksList = m_nList;
    m_MarksBox = box;
    FaceMarks &m = m_Marks;
    if (++m.generation == 0) m.generation = 1; // 0 is no list
    m.count = 0;
    if (!(m_dwFaceOption.load() & FACE_OPTION_RECTS) || box.Empty()) return &m;
    for (MDWord i = 0; i < m_dwCount; i++) {
        const ZT5FaceRect &f = m_List[i];
        const double x0 = (double(f.left) - kMargin * f.width - box.x) / box.w;
        const double y0 = (double(f.top) - kMargin * f.height - box.y) / box.h;
        const double x1 = x0 + (1.0 + 2.0 * kMargin) * f.width / box.w;
        const double y1 = y0 + (1.0 + 2.0 * kMargin) * f.height / box.h;
        float *r = &m.rect[4 * m.count++];
        r[0] = float(f.dwGender ? x1 : x0), r[1] = float(y0), r[2] = float(f.dwGender ? x0 : x1), r[3] = float(y1);
    }
    return &m;
}

void FaceOverlay::DrawLabels(const ViewMap &map)
{
    const MDWord option = m_dwFaceOption.load();
    if (option < FACE_OPTION_GENDER || map.windowWidth <= 0 || map.windowHeight <= 0) return;
    if (!PrepareFaces() || !m_pRects->TextReady()) return;
    // Window pixels, y up from the bottom, to clip space.
    const float W = float(map.windowWidth), H = float(map.windowHeight);
    const float mvp[16] = {2.0f / W, 0, 0, 0, 0, 2.0f / H, 0, 0, 0, 0, 1, 0, -1, -1, 0, 1};
    // Lines a 24th of the window high, at least 12 pixels.
    const float line = H / 24.0f > 12.0f ? H / 24.0f : 12.0f;
    m_pRects->SetFaceList(m_Work, MLong(m_dwCount), 1, 1, option);
    for (MDWord i = 0; i < m_dwCount; i++) {
        // The grown rectangle's corners and side middles as the view shows
        // them, in the lowest pane that shows any: the block stands right
        // of the rightmost, centred on their middle height.
        const ZT5FaceRect &f = m_Work[i];
        const double x0 = f.left - kMargin * f.width, x1 = f.left + (1.0 + kMargin) * f.width;
        const double y0 = f.top - kMargin * f.height, y1 = f.top + (1.0 + kMargin) * f.height;
        const double xs[3] = {x0, 0.5 * (x0 + x1), x1}, ys[3] = {y0, 0.5 * (y0 + y1), y1};
        int pane = -1, n = 0;
        double right = 0.0, ySum = 0.0;
        for (double fy : ys) {
            for (double fx : xs) {
                double x, y;
                const int p = map.FrameToWindow(fx, fy, &x, &y);
                if (p < 0 || (pane >= 0 && p != pane)) continue;
                pane = p;
                right = n++ ? std::fmax(right, x) : x;
                ySum += y;
            }
        }
        if (!n) continue;
        const float colour[3] = {f.dwGender ? 0.0f : 1.0f, f.dwGender ? 1.0f : 0.0f, 0.0f};
        m_pRects->DrawLabels(f, colour, float(right) + 4.0f, H - float(ySum / n), line, 1.0f, mvp);
    }
}

#include "PlainOverlay.h"

#include <cstring>
#include <new>

#include "BuiltinMark.h"
#include "MLog.h"

PlainOverlay::~PlainOverlay()
{
    Release();
    MMemFree(m_pLogoName);
    MMemFree(m_pLogoLoad);
}

void PlainOverlay::Release()
{
    m_Faces.Release();
    m_pLogo.reset();
    m_pMark.reset();
    m_bMarkTried = false;
}

bool PlainOverlay::SetConfig(MDWord dwID, const void *pValue)
{
    if (m_Faces.SetConfig(dwID, pValue)) return true;
    switch (dwID) {
    case ZT5_CFG_DISPLAY_LOGO_DATA: {
        // The file is read on the render thread, at the next draw.
        if (!pValue) return true;
        ZT5VideoLogo logo;
        MMemCpy(&logo, pValue, sizeof(logo));
        if (!logo.pData || !logo.dwDataSize) return true;
        char *name = MStrDup(static_cast<const char *>(logo.pData), logo.dwDataSize);
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
    default:
        return false;
    }
}

void PlainOverlay::TakeSettings()
{
    if (m_pLogoName) {
        MMemFree(m_pLogoLoad);
        m_pLogoLoad = m_pLogoName;
        m_pLogoName = nullptr;
        MMemCpy(m_fLogoLoadPlacement, m_fLogoPlacement, sizeof(m_fLogoPlacement));
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

    m_Faces.DrawOverPicture(f.mvp, f.texCoords, f.videoWidth, f.videoHeight, f.pictureRatio);
}

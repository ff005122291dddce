// A view that only clears the window: stands in for views not built yet.
#ifndef PANOVIEW_PLACEHOLDEREFFECT_H
#define PANOVIEW_PLACEHOLDEREFFECT_H

#include "GlesRenderEffect.h"

class PlaceholderEffect : public GlesRenderEffect {
public:
    void Render(const MLong *, MLong nDisplayWidth, MLong nDisplayHeight, MLong, MLong, const GLuint *, MDWord,
                MDWord) override
    {
        glViewport(0, 0, nDisplayWidth, nDisplayHeight);
        clearBackground();
    }
    MRESULT Initialize(MDWord, MDWord) override { return 0; }
    void Uninitialize() override {}
    void OnTouchDown(float, float) override {}
    void OnTouchUp(float, float) override {}
    void OnTouchPinch(float, float, float) override {}
    void OnDoubleClick(float, float) override {}
    void OnTouchMove(float, float, float, float) override {}
    void StartAcceleratedVelocity(float, float) override {}
    void SetFishEyeCruiseState(MLong, float) override {}
    void SetDisBackGroundSts(MDWord, MDWord) override {}
    void SetInitAnimalSts(MDWord) override {}
    MRESULT GetConfig(MDWord dwID, void *pValue) override
    {
        if (dwID == ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS) {
            if (!pValue) return 2;
            MMemCpy(pValue, &m_FECurrentStatusData, sizeof(m_FECurrentStatusData));
        }
        return 0;
    }
    MRESULT setConfig(MDWord dwID, void *pValue) override
    {
        if (dwID == ZT5_CFG_DISPLAY_FE_CURRENTSTATUS && pValue)
            MMemCpy(&m_FECurrentStatusData, pValue, sizeof(m_FECurrentStatusData));
        return GlesRenderEffect::setConfig(dwID, pValue);
    }
    void SetEnableGLDepth(unsigned char enable) override
    {
        if (enable)
            glEnable(GL_DEPTH_TEST);
        else
            glDisable(GL_DEPTH_TEST);
    }

private:
    FECurrentStatusData m_FECurrentStatusData = {};
};

#endif

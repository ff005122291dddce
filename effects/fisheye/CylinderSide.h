// FishEyeMode 2: the lens ring unrolled into one flat panorama strip. The
// whole 360 degrees run along the strip, the rim at the top, the centre
// towards the bottom. Four vertices; the dewarp is a polar lookup in the
// fragment shader. Sideways scroll without limit, a wide and a close
// position, inertia and cruise.
#ifndef PANOVIEW_CYLINDERSIDE_H
#define PANOVIEW_CYLINDERSIDE_H

#include "FisheyeCommon.h"

class CylinderSide : public FisheyeEffect {
public:
    CylinderSide();
    ~CylinderSide() override;

    void Render(const MLong *prtRender, MLong nDisplayWidth, MLong nDisplayHeight, MLong nVideoWidth,
                MLong nVideoHeight, const GLuint *pTextures, MDWord bIsNewScaleMode, MDWord dwRotation) override;
    MRESULT Initialize(MDWord dwWidth, MDWord dwHeight) override;
    void Uninitialize() override;
    void OnTouchDown(float x, float y) override;
    void OnTouchUp(float x, float y) override {}
    void OnTouchPinch(float fZoomRate, float fDX, float fDY) override;
    void OnDoubleClick(float x, float y) override;
    void OnTouchMove(float x0, float y0, float x1, float y1) override;
    void StartAcceleratedVelocity(float fVelX, float fVelY) override;
    MRESULT setConfig(MDWord dwID, void *pValue) override;
    MRESULT GetConfig(MDWord dwID, void *pValue) override;

    // Strip half extents in world units.
    static constexpr float kHalfWidth = 6.0f;
    static constexpr float kHalfHeight = 1.15f;
    // Scroll per window pixel of a drag, in radians: 0.1125 * 0.02.
    static constexpr float kMoveFactor = 0.02f;
    static constexpr double kVelocityFactor = 0.00012375;
    static constexpr float kCruiseStep = 0.0021375f;
    static constexpr float kPinchStep = 0.03375f;
    static constexpr double kZoomStep = 0.02;
    static constexpr float kStartMove = 2.035f;

private:
    void Update_camposrot();
    void saveCurrentStatus();

    ViewProgram m_Program;
    GLint mnZoom = 0, mnLeft = 0, mnRight = 0, mnTop = 0, mnBottom = 0;
    ViewMesh m_Strip; // four vertices, a triangle strip
    RotTranMatrix *mpRotTranMatrix = nullptr;

    Relaxed<float> mfZoom{1.035f}; // read by saves on the host thread
    const float mfLeft = 0.0f, mfRight = 1.0f, mfTop = 0.0f, mfBottom = 1.0f;
    const float mNear = 1.0f, mFar = 20.0f;
    Relaxed<float> xMove{kStartMove};
    Relaxed<float> fTz{0.0f};
    TwoPositionZoom mZoom;
    const float zMin = -0.85f, zMax = 0.0f;
};

#endif

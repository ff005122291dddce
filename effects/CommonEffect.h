// FishEyeMode 0, the plain view: the frame as a flat rectangle letterboxed
// in the window, zoomable and pannable, with an optional lens distortion
// correction in the fragment shader.
#ifndef PANOVIEW_COMMONEFFECT_H
#define PANOVIEW_COMMONEFFECT_H

#include <atomic>

#include "GlesRenderEffect.h"
#include "PlainOverlay.h"

class CommonEffect : public GlesRenderEffect {
public:
    CommonEffect();
    ~CommonEffect() override;

    void Render(const MLong *prtRender, MLong nDisplayWidth, MLong nDisplayHeight, MLong nVideoWidth,
                MLong nVideoHeight, const GLuint *pTextures, MDWord bIsNewScaleMode, MDWord dwRotation) override;
    MRESULT Initialize(MDWord dwWidth, MDWord dwHeight) override;
    void Uninitialize() override;
    // Gestures run on the host's thread while the render thread draws: they
    // only store into the atomic camera members below and make no GL call.
    void OnTouchDown(float x, float y) override {}
    void OnTouchUp(float x, float y) override {}
    void OnTouchPinch(float fZoomRate, float fDX, float fDY) override;
    void OnDoubleClick(float x, float y) override;
    void OnTouchMove(float x0, float y0, float x1, float y1) override;
    void StartAcceleratedVelocity(float fVelX, float fVelY) override {}
    void SetFishEyeCruiseState(MLong state, float fVelocity) override {}
    void SetDisBackGroundSts(MDWord bCloud, MDWord bStar) override {}
    void SetInitAnimalSts(MDWord bAnimal) override {}
    MRESULT setConfig(MDWord dwID, void *pValue) override;
    MRESULT GetConfig(MDWord dwID, void *pValue) override;
    float GetScaleRatio() override;
    void SetEnableGLDepth(unsigned char enable) override;

private:
    void MakeProjection(MLong nDisplayWidth, MLong nDisplayHeight, MLong nPictureHeight, MDWord dwRotation);
    void ApplyDistortionChange();
    void DrawFrame(const GLuint *pTextures, MDWord dwRotation);
    // The camera as one draw uses it, after the animation step and limits.
    struct Camera {
        float fTransX, fTransY, fScale;
    };
    void Update_camposrot();
    Camera ApplyLimits();
    // One entry per field of the saved-state record that this view keeps.
    struct SavedField {
        std::atomic<float> CommonEffect::*member;
        float FECurrentStatusData::*field;
        float fallback;
    };
    static const SavedField *SavedFields(size_t *pCount);
    void saveCurrentStatus();
    void restoreCurrentStatus();
    void ReportEdge(MDWord dwCode);
    void ResetTexCoords();

    static float LoadF(const std::atomic<float> &a) { return a.load(std::memory_order_relaxed); }
    static void StoreF(std::atomic<float> &a, float v) { a.store(v, std::memory_order_relaxed); }
    // a += delta without losing a concurrent writer's change; returns the
    // value stored. The result is kept finite and within a sane bound.
    static float AddF(std::atomic<float> &a, double delta);
    // Replaces `seen` by `v` only if nobody stored another value since it
    // was read: a gesture landing meanwhile wins and is limited next draw.
    static void ReplaceF(std::atomic<float> &a, float seen, float v);

    GLuint mProgram = 0;
    MLong m_width = 0;
    MLong m_height = 0;
    RotTranMatrix *mpRotTranMatrix = nullptr;
    float mProjectNear = 1.0f;
    float mProjectFar = 30.0f;
    // Pan, zoom and the zoom animation: written by gestures and settings on
    // the host's thread, read and stepped by the draw; relaxed atomics, no
    // lock. Additions go through AddF so that two writers don't lose each
    // other's step; each value stands alone and the draw's limits bring it
    // back in range.
    std::atomic<float> mTransY{0.0f};       // pan in y, model units
    std::atomic<float> mTransX{0.0f};       // pan in x
    std::atomic<float> mScaleRatio{1.0f};   // zoom factor
    std::atomic<MDWord> startAnimal{0};     // a zoom animation runs
    std::atomic<float> mMinScale{1.0f};     // lower zoom limit
    std::atomic<float> mMaxScale{4.0f};     // upper zoom limit
    std::atomic<MLong> mAnimalComSts{0};    // animation direction: 0 not begun, 1 in, -1 out
    std::atomic<float> mMaxTransX{2.0f};    // pan limits, set at each draw
    std::atomic<float> mMaxTransY{2.0f};
    std::atomic<float> mAnimalStepX{0.0f};  // pan change per animation step
    std::atomic<float> mAnimalStepY{0.0f};
    const float mZoomStep = 0.06f;          // zoom change per animation step
    std::atomic<MDWord> m_nInit{0};
    std::atomic<MLong> m_dwDisplayWidth{0};
    std::atomic<MLong> m_dwDisplayHeight{0};
    GLint muMVPMatrixHandle = 0;
    float mVertices[12];
    float fWndRatio = 1.0f;
    FECurrentStatusData m_FECurrentStatusData = {};
    std::atomic<ZT5UICallbackRecord *> m_pUICallback{nullptr};
    std::atomic<ZT5DistortionParam *> m_pDistortionParam{nullptr};
    GLuint mDistortProgram = 0;
    GLint m_lDistortLoc[15] = {}; // k1 k2 k3 p1 p2 fx fy ox oy a_position a_texCoord u_mapMatrix y u v
    GLint m_lDistortTexScaleLoc = -1;
    VideoLogo *mDefaultLogo = nullptr; // built-in mark, drawn while a correction is active
    float mTexCoord[4][8];
    float mLogoTexCoord[4][8];
    const double *mCurDistortTable = nullptr;
    float m_fFrustumX = 1.0f;
    float m_fFrustumY = 1.0f;
    float m_fPictureRatio = 1.0f;
    MLong nVideoWidth = 0;
    MLong nVideoHeight = 0;
    // Picture size (after rotation and the correction's height rule) the
    // projection was made for; another one needs a new letterbox.
    MLong m_lProjPictureWidth = 0;
    MLong m_lProjPictureHeight = 0;
    PlainOverlay m_Overlay{m_sTextureInfo}; // logo, built-in mark, faces
};

#endif

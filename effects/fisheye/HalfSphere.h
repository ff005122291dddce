// FishEyeMode 1: the lens picture on the inside of a bowl (a half sphere of
// radius 6, depth squeezed to 97 %), seen by a camera that travels between
// an overview high above the rim and a pose down inside the bowl. Behind the
// bowl a slowly turning cloud picture and a field of twinkling stars.
//
// Camera: an opening flight out of the bowl, a double-click journey between
// the overview side and the inside (roam pose), look around and look down by
// drag and pinch, spring-back of a deep tilt on release, cruise. All of it is
// counted in rendered frames.
#ifndef PANOVIEW_HALFSPHERE_H
#define PANOVIEW_HALFSPHERE_H

#include "FisheyeCommon.h"

class HalfSphere : public FisheyeEffect {
public:
    explicit HalfSphere(MDWord dwFEPlatform);
    ~HalfSphere() override;

    void Render(const MLong *prtRender, MLong nDisplayWidth, MLong nDisplayHeight, MLong nVideoWidth,
                MLong nVideoHeight, const GLuint *pTextures, MDWord bIsNewScaleMode, MDWord dwRotation) override;
    MRESULT Initialize(MDWord dwWidth, MDWord dwHeight) override;
    void Uninitialize() override;
    void OnTouchDown(float x, float y) override;
    void OnTouchUp(float x, float y) override;
    void OnTouchPinch(float fZoomRate, float fDX, float fDY) override;
    void OnDoubleClick(float x, float y) override;
    void OnTouchMove(float px, float py, float x, float y) override;
    void StartAcceleratedVelocity(float fVelX, float fVelY) override;
    void SetDisBackGroundSts(MDWord bCloud, MDWord bStar) override;
    void SetInitAnimalSts(MDWord bAnimal) override;
    MRESULT setConfig(MDWord dwID, void *pValue) override;
    MRESULT GetConfig(MDWord dwID, void *pValue) override;
    void SetEnableGLDepth(unsigned char enable) override;

    // Poses: overview (fCamZMax, 0, 0, 0), roam, tilt limit.
    static constexpr float fCamZMin = 2.0f;
    static constexpr float fRoamRotZ = -45.5605965f;
    static constexpr float fRoamTranZ = 1.39894652f;
    static constexpr float fRoamTranY = 1.87908530f;
    static constexpr float fTiltRotZ = -92.2879715f;
    static constexpr float fTiltTranZ = -0.239668399f;
    static constexpr float fTiltTranY = 3.57705951f;
    static constexpr int kStarCount = 680;

private:
    MLong Init_shader();
    void initVertexData();
    void initStars();
    void seedStars();
    void twinkleStars(int count);
    int nextRand();

    void Render_frame(const GLuint *pTextures);
    void drawCloud();
    void drawStars(int count, float size, int slot);
    void drawSphere(const GLuint *pTextures);
    // The view matrix of the camera with eye distance `eyeZ`, all but the
    // last rotation, which the caller adds.
    void setCameraView(RotTranMatrix &m, float eyeZ);
    float backgroundEyeZ() const;

    // Camera.
    void Update_camposrot();
    int springBack();
    bool runAnimation(bool toRoam); // true while it goes on
    void spinStep();
    void lookAroundMove();
    void lookDownMove();
    void saveCurrentStatus();

    const MDWord m_dwFEPlatform;
    const float fProjectNear = 1.0f, fProjectFar = 25.0f;
    RotTranMatrix *mpRotTranMatrix = nullptr;
    RotTranMatrix *mpBackRotTranMatrix = nullptr;
    RotTranMatrix *mpStarRotTranMatrix = nullptr;

    ViewProgram m_Sphere;
    GLint mRadHandle = -1, maRatioHandle = -1, mFEPlatformHandle = -1;
    ViewProgram m_Back;
    ViewProgram m_Points;
    GLint mPointSizeHandle = -1, mPointLightHandle = -1;

    ViewMesh m_Dome;
    ViewMesh m_BackQuad;
    ViewMesh m_Stars; // the positions drawn, uploaded again when they change
    const float fRad = kFisheyeLensRadius;
    float fRatio = 0.5f;
    const float fRatioMax;
    GlTexture m_BackTextures[3];
    GLuint mBackTextures[3] = {0, 0, 0}; // their names, as the draw binds them
    uint8_t *pBackPicture = nullptr;

    // Stars.
    int nStarCount = 0;
    float *pStarBase = nullptr;
    float *pStarNow = nullptr;
    const float *pStarDraw = nullptr;
    float fStarLight[10] = {};
    int nStarLightUp[10] = {};
    float fStarLightStep = 0.005f;
    int nStarRadiusMax = 24, nStarRadiusMin = 9;
    int nStarFrame = 0;
    unsigned char bStarsSeeded = 0;
    uint32_t m_randState = 1;
    float fCloudAngle = 0.0f;
    float fBackCamZ = 0.0f, fStarCamZ = 0.0f;
    Relaxed<unsigned char> mbISDisplayBack{1};
    Relaxed<unsigned char> mbStarState{1};

    // Camera values, read by saves on the host thread.
    Relaxed<float> fCamZ{0.0f};
    Relaxed<float> fCamRotZ{0.0f};
    Relaxed<float> fCamTranZ{0.0f};
    Relaxed<float> fCamTranY{0.0f};
    Relaxed<float> fCamAngleZ{0.0f};
    Relaxed<float> fCamZMax{7.1f};
    // Input accumulators, written by gestures.
    Relaxed<float> zAngle{0.0f};
    Relaxed<float> fTz{0.0f};
    // Roam state.
    Relaxed<MLong> nRoamState{0};
    Relaxed<MLong> nRoamInit{1};
    Relaxed<MLong> nRDHitS{0};
    Relaxed<unsigned char> belasticstate{0};
    Relaxed<unsigned char> bTouchUp{1};
    unsigned char bTouchUpPrev = 0;
    Relaxed<unsigned char> bIsInitAnimal{0};
    // Animation (render thread only, apart from fHitAngle).
    float fAnimRemain = 0.0f;
    float fAnimTotal = 0.0f;
    const float fAnimStep = 0.12f;
    const float fAnimRotStep = 2.4f;
    float fAnimAngleRate = 0.0f;
    float fDeltaZ = 0.0f, fDeltaRot = 0.0f, fDeltaTranZ = 0.0f, fDeltaTranY = 0.0f, fDeltaMax = 0.0f;
    int nDirZ = 0, nDirRot = 0, nDirTranZ = 0, nDirTranY = 0;
    MLong bAnimStarted = 0;
    MLong nAnimToRoam = 0;
    Relaxed<float> fHitAngle{0.0f};
};

#endif

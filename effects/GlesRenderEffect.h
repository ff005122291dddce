// Base of all views, the matrix set and the GL helpers every view uses.
#ifndef PANOVIEW_GLESRENDEREFFECT_H
#define PANOVIEW_GLESRENDEREFFECT_H

#include <GLES2/gl2.h>

#include <atomic>
#include <cstring>

#include "MRuntime.h"
#include "ZT5Config.h"
#include "ZT5Records.h"
#include "FrameSampler.h"
#include "ViewMap.h"

class VideoLogo;

class GlesRenderEffect {
public:
    GlesRenderEffect() = default;
    virtual ~GlesRenderEffect() {}

    // One draw. prtRender: x, y, width, height (not read by most views).
    virtual void Render(const MLong *prtRender, MLong nDisplayWidth, MLong nDisplayHeight, MLong nVideoWidth,
                        MLong nVideoHeight, const GLuint *pTextures, MDWord bIsNewScaleMode, MDWord dwRotation) = 0;
    virtual MRESULT Initialize(MDWord dwWidth, MDWord dwHeight) = 0;
    virtual void Uninitialize() = 0;
    virtual void OnTouchDown(float x, float y) = 0;
    virtual void OnTouchUp(float x, float y) = 0;
    virtual void OnTouchPinch(float fZoomRate, float fDX, float fDY) = 0;
    virtual void OnDoubleClick(float x, float y) = 0;
    virtual void OnTouchMove(float x0, float y0, float x1, float y1) = 0;
    virtual void StartAcceleratedVelocity(float fVelX, float fVelY) = 0;
    virtual void SetFishEyeCruiseState(MLong state, float fVelocity) = 0;
    virtual void clearBackground();
    virtual void SetDisBackGroundSts(MDWord bCloud, MDWord bStar) = 0;
    virtual void SetInitAnimalSts(MDWord bAnimal) = 0;
    virtual MRESULT setConfig(MDWord dwID, void *pValue);
    virtual MRESULT GetConfig(MDWord dwID, void *pValue) { return 0; }
    virtual float GetScaleRatio() { return 1.0f; }
    virtual MLong GetFishEyeCruiseState() { return -1; }
    virtual void SetEnableGLDepth(unsigned char enable) = 0;
    // Asked on the render thread right after each Render: true when the
    // next draw would differ from the one just made, decided from the
    // view's own state (an animation, journey or zoom move under way,
    // cruise, spring-back, layers that change every frame). False lets the
    // display go quiet until a frame, a gesture or a setting comes.
    virtual bool NeedsAnotherFrame() { return false; }
    // The mapping of points of the picture last drawn (ViewMap); any
    // thread. None for a view that doesn't keep one.
    virtual ViewMap ShownMap() { return ViewMap(); }

    // How the view samples the frame of its next draw: layout, textures,
    // lens box, colours (render thread, before Render).
    void SetFrameSampling(const FrameSampling &s) { m_Sampling = s; }
    // The lens's projection (render thread, before a draw; a valid record,
    // the renderer's copy). A change counts up m_nLensGeneration, which
    // tells the views' programs to send the new uniforms.
    void SetLensModel(const ZT5LensModel &m)
    {
        if (std::memcmp(&m, &m_LensModel, sizeof m) == 0) return;
        m_LensModel = m;
        m_nLensGeneration++;
    }
    // The edge a gesture met (ZT5_CFG_DISPLAY_EDGE_EVENT codes), 0 for none;
    // taking it clears it. The view never calls the host itself: the
    // renderer hands the event on once it no longer holds the lock that
    // keeps the view alive, since the host may rebuild the renderer (a new
    // window) from inside its callback.
    MDWord TakeEdgeEvent() { return m_dwEdgeEvent.exchange(0); }

protected:
    std::atomic<MDWord> m_dwBackColor{0}; // 0xRRGGBB; set by the host's thread
    VideoLogo *m_pVideoLogo = nullptr;
    FrameSampling m_Sampling;
    ZT5LensModel m_LensModel = {0, 0.0f, {0.0f, 0.0f, 0.0f, 0.0f}}; // equidistant, 180 degrees
    unsigned m_nLensGeneration = 1; // render thread
    void PostEdgeEvent(MDWord dwCode) { m_dwEdgeEvent.store(dwCode); }

private:
    std::atomic<MDWord> m_dwEdgeEvent{0};
};

// A view's matrices, column-major. rotate() turns the opposite way from
// glRotate; every camera sign in the views assumes it. A view holds one per
// pass or pane, zero-filled (RotTranMatrix m = {};).
struct RotTranMatrix {
    float mCurrMatrix[16];
    float mProjMatrix[16];
    float mVMatrix[16];
    float mMVPMatrix[16];
    float mStack[10][16];
    MLong mStackTop;

    void pushMatrix();
    void popMatrix();
    void setProjectFrustum(float left, float right, float bottom, float top, float nearZ, float farZ);
    void setLookAt(float eyeX, float eyeY, float eyeZ, float centerX, float centerY, float centerZ, float upX,
                   float upY, float upZ);
    void setIdentity() { identity(mCurrMatrix); }
    void translate(float x, float y, float z) { translate(mCurrMatrix, x, y, z); }
    void rotate(float angle, float x, float y, float z) { rotate(mCurrMatrix, angle, x, y, z); }
    void scale(float sx, float sy, float sz);
    void getFinalMatrix();

    static void identity(float *m);
    static void translate(float *m, float x, float y, float z);
    static void rotate(float *m, float angle, float x, float y, float z);
    static void multiply(float *result, const float *lhs, const float *rhs);
};

GLuint buildShader(const char *source, GLenum type);
GLuint buildProgram(const char *vertexSource, const char *fragmentSource);
void checkGlError(const char *op);
GLuint bindTexture(GLuint texture, const unsigned char *pixels, GLsizei width, GLsizei height);

#endif

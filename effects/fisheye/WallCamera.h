// What the wall-camera views (modes 7 to 10) have in common. A wall camera's
// lens axis is horizontal: the lens picture lies on the dome of
// FisheyeCommon.h facing the viewer, the left wall on the picture's left,
// the ceiling at its top.
//
//   WallPaneCamera    the eye of the one-pane views (modes 9 and 10): a wide
//                     and a close position (TwoPositionZoom's state words)
//                     with animated moves between them,
//                     pan and tilt limits that open along a quarter cosine as
//                     the eye comes closer, the stretch of the dome with the
//                     eye distance, and the cruise (zoom in, then swing).
//   WallPaneView      the shared part of those two views around it.
//   WallDepthShift    how far a steered dome pane moves forward for a pan
//                     and tilt inside the diamond (modes 7 and 8).
//   WallDomeCamera    the camera of those dome panes.
//   WallPane          a pane's rectangle in a view of panes.
//
// Threads: gestures store into the Relaxed members on the host's thread
// (inertia steps come from the render thread); Step and Cruise run on the
// render thread, clamp every value (a NaN included) and leave the pose the
// draw uses in Drawn(), which no gesture touches.
#ifndef PANOVIEW_WALLCAMERA_H
#define PANOVIEW_WALLCAMERA_H

#include "GlesRenderEffect.h"
#include "Relaxed.h"
#include "FisheyeCommon.h"
#include "ViewEffect.h"

// A value brought into lo..hi; a NaN becomes `fallback`.
float WallClamp(float v, float lo, float hi, float fallback = 0.0f);

struct WallStretch {
    float x, y, z;
};

// The numbers of one one-pane view.
struct WallPaneConfig {
    float tzMin, tzMax;      // closest and widest eye distance
    float maxAngle, maxRotX; // pan and tilt limits with the eye at tzMin
    float closeMargin;       // settled, the eye counts as close below tzMax - closeMargin
    WallStretch wide, close; // the dome's stretch at tzMax and at tzMin
};

class WallPaneCamera {
public:
    explicit WallPaneCamera(const WallPaneConfig &c);

    // ---- gestures
    // Flips the wanted position (wide or close) unless a move runs.
    void DoubleTap();
    // A drag of (dx, dy) window pixels: pan and tilt, 0.075 degrees a pixel.
    void Drag(float dx, float dy);
    // An inertia step of release velocity vx (render thread).
    void Fling(float vx);

    // ---- render thread
    // One frame of cruise: the eye goes in, then pans from limit to limit.
    void Cruise();
    // One frame of the zoom (an animated move, or following the pinch) and
    // the stretch for the new eye distance; clamps everything.
    void Step();
    // Pan and tilt limits for the eye distance; fTz, pan and tilt clamped.
    void LimitCamera();
    // A move between the positions is pending or running.
    bool Moving() const;
    // After a restore: words out of range brought back, the zoom's last
    // eye distance re-based on the restored one.
    void Restored();
    // The camera of the pose: eye on the z axis looking at the dome, turned
    // upright, tilt and pan, the host's picture scale.
    void Apply(RotTranMatrix &m, float scale) const;

    struct Pose {
        float camZ, rotX, angle;
        WallStretch stretch;
    };
    const Pose &Drawn() const { return m_Pose; }

    // Saved fields and gesture targets.
    Relaxed<float> zAngle{0.0f};
    Relaxed<float> fCamRotX{0.0f};
    Relaxed<float> fCamZ;
    Relaxed<float> fTz; // eye distance the pinch aims at
    // The wide/close state words and the double tap of the toolkit's
    // two-position zoom; the moves between the positions are this camera's.
    TwoPositionZoom zoom;
    Relaxed<MLong> nCruiseDir{-1};

    const WallPaneConfig cfg;

private:
    int GoToClose();
    int GoToWide();
    void FollowZoom();
    void ZMove();

    MLong computeAnimal = 0; // the move to wide has captured its start
    float fLastCamZ;
    float fAnimalRange = 0.0f, fAnimalRotX = 0.0f, fAnimalAngle = 0.0f;
    float fLimitAngle = 0.0f, fLimitRotX = 0.0f;
    Pose m_Pose;
};

// Forward shift of a steered dome pane: nothing at the centre, the gain at
// the rim of the diamond |rotX| + |angle| <= limit on its axes, less towards
// its diagonals (k = 1 - q for the ratio q <= 1 of the smaller angle to the
// larger; k = 1 when either angle is under half a degree).
float WallDepthShift(float rotX, float angle, float limit, float gain);

// The camera of a dome pane: eye (0, 0, camZ) looking at the dome, moved
// forward by tranZ, then tilted and panned (in the view matrix).
void WallDomeCamera(RotTranMatrix &m, float camZ, float tranZ, float rotX, float angle);

// The shared part of the one-pane views (modes 9 and 10): the camera, its
// saved fields, the picture scale the host sets, the gestures (a drag counts
// only while the finger is inside the window; a double tap ends the cruise
// and flips the position), the cruise before each step.
class WallPaneView : public ViewEffect {
public:
    MRESULT setConfig(MDWord dwID, void *pValue) override;

protected:
    WallPaneView(const char *viewName, const ViewTraits &traits, const WallPaneConfig &config, float pinchStep);

    void Project(MLong, MLong) override;
    void StepCamera() override;
    bool Moving() const override { return m_Cam.Moving(); }
    // A wide view goes close before it is aimed.
    bool AimReady() override;
    void Drag(float x0, float y0, float x1, float y1) override;
    void Fling(float fVelX, float) override { m_Cam.Fling(fVelX); }
    void DoubleTap(float, float) override;
    void Restored(const FECurrentStatusData &) override { m_Cam.Restored(); }
    // What a view does before the zoom's step when no cruise runs.
    virtual void BeforeStep() {}

    // The pane's program, drawn per pixel: FISHEYE_GLSL_RAY_VERTEX with the
    // view's fragment stage, which meets the dome (FISHEYE_GLSL_DOME_HIT)
    // stretched by domeScale; false when that uniform is missing.
    bool BuildStretched(const char *fragment);
    // One pass over the window with the camera and stretch of this frame.
    // ... and records it for the mapping of points: lensPoint reads the
    // dome's stretch in k[0..2], then `k`.
    void DrawStretched(const Frame &f, LensPointFn lensPoint, float k);

    RotTranMatrix m_Camera = {};
    ViewProgram m_Program;
    ViewMesh m_Quad;
    GLint muDomeScale = -1;
    LensUniforms m_Lens; // found by a view whose fragment stage maps by the lens model
    WallPaneCamera m_Cam;
    Relaxed<float> mScaleRatio{1.0f};
    Relaxed<float> mMaxScale{4.0f};
};

// A pane: glViewport's rectangle, origin at the lower left.
struct WallPane {
    MLong x, y, w, h;
    void Viewport() const { glViewport(x, y, w, h); }
};

#endif

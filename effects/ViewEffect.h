// The shared part of every view. A view derives from ViewEffect and holds
// only its variant: geometry and programs (Build), projection (Project), its
// camera step (StepCamera), its draws (Draw, through DrawPass), its gesture
// factors (Drag, Fling, DoubleTap, Touch and the pinch step), the table of
// its saved fields, whether it is still moving (Moving), and its traits.
// Everything else is here, once: the slots of GlesRenderEffect, the window
// bookkeeping, the draw sequence (clear, viewport, backdrop, camera step,
// draws), the colour conversion, cruise and "a touch ends the cruise", the
// pinch step, save and restore by the field table, the depth switch and the
// answer to NeedsAnotherFrame. effects/README.md tells how a view is added.
//
// Threads: Render, Initialize, StartAcceleratedVelocity and the view's hooks
// they call run on the render thread. Gestures, the cruise switch and saves
// come from the host's thread during draws: they only store into Relaxed
// members, and the next draw's clamps bring every value back in range. A
// restore comes from the host's thread too, but never during a draw (the
// renderer holds its lock), so Restored may reset render-side members.
#ifndef PANOVIEW_VIEWEFFECT_H
#define PANOVIEW_VIEWEFFECT_H

#include <initializer_list>
#include <mutex>
#include <vector>

#include "GlesRenderEffect.h"
#include "Relaxed.h"
#include "ViewGl.h"
#include "ViewMap.h"
#include "ViewTraits.h"

// A window of this size or less in either direction draws nothing.
static const MLong kViewMinWindow = 10;

// One field of the saved-state record and the live member it mirrors. Save
// writes the member into the field, restore the field into the member.
class SavedField {
public:
    // A float, copied both ways as it is.
    SavedField(Relaxed<float> &live, float &field) : m_pLive(&live), m_pField(&field), m_Kind(kFloat) {}
    // A 32-bit word, copied both ways as it is.
    SavedField(Relaxed<MLong> &live, int32_t &field) : m_pLive(&live), m_pField(&field), m_Kind(kWord) {}
    // A flag: saved widened to 32 bits, restored as 1 for any non-zero word.
    SavedField(Relaxed<unsigned char> &live, int32_t &field) : m_pLive(&live), m_pField(&field), m_Kind(kFlag) {}

    // A float that a restore takes only when it is a finite number of sane
    // size; otherwise `fallback`.
    static SavedField Checked(Relaxed<float> &live, float &field, float fallback);
    // Saved, but not restored by the table: the view's Restored decides.
    template <typename T, typename F> static SavedField SaveOnly(Relaxed<T> &live, F &field)
    {
        SavedField f(live, field);
        f.m_bRestore = false;
        return f;
    }

    void Save() const;
    void Restore() const;

private:
    enum Kind : unsigned char { kFloat, kCheckedFloat, kWord, kFlag };
    void *m_pLive;
    void *m_pField;
    Kind m_Kind;
    bool m_bRestore = true;
    float m_fFallback = 0.0f;
};

class ViewEffect : public GlesRenderEffect {
public:
    ~ViewEffect() override = default;

    void Render(const MLong *prtRender, MLong nDisplayWidth, MLong nDisplayHeight, MLong nVideoWidth,
                MLong nVideoHeight, const GLuint *pTextures, MDWord bIsNewScaleMode, MDWord dwRotation) final;
    // Builds once; the result is Build's (0: the view draws).
    MRESULT Initialize(MDWord dwWidth, MDWord dwHeight) final;
    // The view draws nothing more; its GL objects go with it (RAII members).
    void Uninitialize() final;
    void OnTouchDown(float x, float y) override;
    void OnTouchUp(float x, float y) override;
    void OnTouchPinch(float fZoomRate, float fDX, float fDY) override;
    void OnDoubleClick(float x, float y) override;
    void OnTouchMove(float x0, float y0, float x1, float y1) override;
    void StartAcceleratedVelocity(float fVelX, float fVelY) override;
    void SetFishEyeCruiseState(MLong state, float fVelocity) override;
    void SetDisBackGroundSts(MDWord, MDWord) override {}
    void SetInitAnimalSts(MDWord) override {}
    MRESULT setConfig(MDWord dwID, void *pValue) override;
    MRESULT GetConfig(MDWord dwID, void *pValue) override;
    MLong GetFishEyeCruiseState() override;
    void SetEnableGLDepth(unsigned char enable) final;
    bool NeedsAnotherFrame() final;

    ViewMap ShownMap() final;
    const ViewTraits &Traits() const { return m_Traits; }
    const char *ViewName() const { return m_szViewName; }

protected:
    ViewEffect(const char *viewName, const ViewTraits &traits);

    // What one Render call hands the view.
    struct Frame {
        MLong width, height;           // the window
        MLong videoWidth, videoHeight; // the frame (the lens box in a fisheye mode)
        const FrameSampling *sampling; // the frame: textures, layout, lens box, colours
        MDWord dwRotation;             // 0, 90, 180, 270
        MLong viewportWidth, viewportHeight; // set by Ready
    };

    // ------------------------------------------------- the view's variant

    // Programs and meshes, once, context current. 0 when the view can draw;
    // any other result and the view never draws.
    virtual MRESULT Build() = 0;
    // A new usable window (both sides above kViewMinWindow), mWndRatio set:
    // make the projection. Multi-pane views lay out their panes here.
    virtual void Project(MLong w, MLong h) = 0;
    // Whether this frame can be drawn, and its viewport. The default is the
    // fisheye rule: a new size with no zero side unsets the projection, one
    // above kViewMinWindow both ways makes it (Project); a zero side keeps
    // the last one. A view whose projection depends on more overrides it.
    virtual bool Ready(Frame &f);
    // Drawn before this frame's camera step, with the camera of the last
    // frame: a backdrop.
    virtual void DrawBehind(const Frame &) {}
    // The camera's move by one frame (animations, cruise, clamps).
    virtual void StepCamera() = 0;
    // The lens model the view draws with: the host's (a valid record). The
    // view's programs are built for its law (ViewProgram::SetBuildLens).
    virtual ZT5LensModel DrawnLens() const { return m_LensModel; }
    // After the camera's step: whether this draw may shrink the picture
    // more than 7 times (FISHEYE_GLSL_FOOTPRINT) over enough of a pane to
    // be seen. While it answers false the view's programs are built
    // without the footprint sampler. The default measures the last draw's
    // mapping (ShrinkShare): before any, true.
    virtual bool MayShrink(const Frame &) const;
    // The frame's draws, each one a DrawPass.
    virtual void Draw(const Frame &f) = 0;
    // Asked after a draw: would the next one differ from it without any
    // input? An animation, journey or zoom move under way (also when its
    // next step moves nothing), a spring-back, layers that change every
    // frame. The cruise is counted here already.
    virtual bool Moving() const { return false; }
    // Whether the cruise moves anything on the next draw. A view whose
    // cruise runs per pane says false when every pane has been stopped.
    virtual bool CruiseMoving() const { return Cruising(); }

    // Gestures, their factors in the view. The shared part has already
    // ended the cruise where m_CruiseEnd says so; the pinch is m_Pinch.
    // Touch down or up at (x, y), window pixels.
    virtual void Touch(bool bDown, float x, float y) {}
    virtual void Drag(float x0, float y0, float x1, float y1) {}
    virtual void Fling(float fVelX, float fVelY) {}
    virtual void DoubleTap(float x, float y) {}
    // Aiming at a frame point (ZT5_CFG_DISPLAY_AIM_AT): the slot, in the
    // last draw's map, of the pane whose camera turns so that the point
    // comes to its centre; -1 for a view without a steerable camera. The
    // camera is turned through the view's own Drag, so it moves within the
    // view's limits. Default: the one pane of a one-pane view.
    virtual int AimPane(const ViewMap &map, double fx, double fy) const { return map.paneCount == 1 ? 0 : -1; }
    // Called at each step of an aim before the camera turns: false while
    // the view still gets ready to be steered (a wide view going close).
    virtual bool AimReady() { return true; }

    // After a restore has copied the record and applied the field table:
    // the view's own rules (what comes back settled, what is dropped).
    virtual void Restored(const FECurrentStatusData &) {}

    // --------------------------------------------------- shared helpers

    // One draw of a mesh: identity model matrix pushed, camera(m) sets the
    // view matrix (and may change the model), the program with the frame's
    // textures and colours, the matrices, uniforms(), the mesh, pop.
    template <typename Camera, typename Uniforms>
    void DrawPass(RotTranMatrix &m, Camera camera, const ViewProgram &program, const ViewMesh &mesh,
                  const FrameSampling *sampling, Uniforms uniforms)
    {
        m.setIdentity();
        m.pushMatrix();
        camera(m);
        program.Use(sampling ? *sampling : m_Sampling);
        m.getFinalMatrix();
        program.SetMatrix(m.mMVPMatrix);
        uniforms();
        mesh.Draw(program);
        glDisable(GL_SCISSOR_TEST); // a pass's scissor (ScissorToBox) ends with it
        m.popMatrix();
    }

    // For the mapping of points (ViewMap), after each pass a draw makes:
    // pane `index` in the view's numbering, its viewport (GL terms), the
    // pass's matrix as DrawPass left it in m, the view's lens point
    // function and the numbers it reads. The last draw's panes are what
    // the host's questions get.
    void MapPane(int index, GLint x, GLint y, GLint w, GLint h, const RotTranMatrix &m, LensPointFn lensPoint,
                 std::initializer_list<float> k = {});

    // The saved-state table: one line a field, given in the constructor
    // (the lines of several calls add up: a view with panes gives a call
    // a pane).
    void SaveFields(std::initializer_list<SavedField> fields)
    {
        m_SavedFields.insert(m_SavedFields.end(), fields.begin(), fields.end());
    }

    bool Cruising() const { return mCruiseState.load() == 1; }

    // Who ends a cruise by touching: most views on contact (down, move,
    // pinch, fling), some on a double tap too, some never.
    enum CruiseEnd { kCruiseEndsOnTouch, kCruiseEndsOnTouchAndDoubleTap, kCruiseEndsNever };
    CruiseEnd m_CruiseEnd = kCruiseEndsOnTouch;
    // A pinch moves `target` by a fixed step: less on spreading fingers
    // (a rate above 1.0), more otherwise. No target: a pinch does nothing.
    struct PinchStep {
        Relaxed<float> *target;
        float step;
    };
    PinchStep m_Pinch = {nullptr, 0.0f};
    // Drags, pinches, flings and double taps move the view only once it has
    // a usable window (the cruise they end ends before that too). Views
    // whose camera limits follow the window's first projection set it.
    bool m_bGesturesWaitForWindow = false;

    const char *const m_szViewName;
    const ViewTraits m_Traits;
    // The window as last taken; written on the render thread, read by
    // gestures on the host's.
    Relaxed<MLong> m_nWidth{0};
    Relaxed<MLong> m_nHeight{0};
    Relaxed<MLong> m_nInit{0}; // a projection exists for the current size
    float mWndRatio = 1.0f;
    Relaxed<unsigned char> mCruiseState{0};
    Relaxed<float> mCruiseVelocity{1.0f};
    FECurrentStatusData m_FECurrentStatusData; // the view's own copy, zero at first

private:
    void EndCruise();
    bool Waiting() const { return m_bGesturesWaitForWindow && !m_nInit.load(); }
    void Restore(const void *pRecord);
    void PublishMap(const Frame &f);
    void StepAim();

    // The aim: the host's request (target and a count of requests) under
    // m_MapLock; the steps on the render thread. The camera's answer to a
    // drag is measured, not assumed: two small probing drags give how the
    // pane centre's frame point moves per window pixel of drag (J), then
    // each frame drags a share of the way the error asks for, and J is
    // corrected by what the frame showed (Broyden's update).
    double m_AimTarget[2] = {0.0, 0.0};
    unsigned m_nAimRequest = 0;
    unsigned m_nAimEnded = 0; // the request a touch ended
    enum { kAimStart, kAimAcross, kAimAcrossBack, kAimDown, kAimDownBack, kAimSteer };
    struct Aim {
        unsigned request = 0; // the request being served
        bool active = false;
        int phase = 0;        // the drag last made: kAimStart (none), a probe, or kAimSteer
        int frames = 0, stall = 0;
        double J[4] = {1.0, 0.0, 0.0, 1.0}; // frame pixels per window pixel of drag
        double last[2] = {0.0, 0.0};        // the centre's frame point before the drag
        double drag[2] = {0.0, 0.0};        // the drag made
    } m_Aim; // render thread

    std::vector<SavedField> m_SavedFields;
    // The mapping: m_Drawing filled by the draw under way (render thread),
    // then copied whole into m_Shown under m_MapLock, which the host's
    // questions copy out under the same lock.
    ViewMap m_Drawing;
    // MayShrink's last measure and the mapping it measured (render thread):
    // a picture that stands still while the video plays is measured once.
    mutable ViewMap m_Measured;
    mutable bool m_bMeasuredShrinks = true;
    std::mutex m_MapLock;
    ViewMap m_Shown;
    MRESULT m_lBuildResult = -1; // not built yet
    // What Build last compiled for: the frame's layout, the lens law, the
    // footprint sampler, the face stage (while faces are shown); a draw
    // that wants other programs builds again.
    struct BuildKey {
        FrameLayout layout;
        unsigned law;
        bool footprint;
        bool faces;
        bool operator!=(const BuildKey &o) const
        {
            return layout != o.layout || law != o.law || footprint != o.footprint || faces != o.faces;
        }
    };
    BuildKey m_Built = {FrameLayout::I420, 0, true, false};
    // The programs this frame wants, but for the footprint: as last built.
    BuildKey WantedKey() const;
    MRESULT BuildFor(const BuildKey &key);
    bool m_bDrawn = false;       // the last Render drew
};

#endif

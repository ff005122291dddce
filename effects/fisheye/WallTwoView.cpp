// FishEyeMode 8: a wall camera's picture in two square panes side by side:
// on the left a fixed overview of the whole dome, on the right a close view
// that the user steers. The part of the dome the close view shows is lit in
// the overview. A tap in the overview sends the close view there; a drag in
// either half steers it, with opposite senses. Pan and tilt of the close
// view stay inside a diamond, |tilt| + |pan| <= 50.4 degrees. No pinch, no
// double tap, no cruise.
#include <cmath>
#include <new>

#include "FisheyeCommon.h"
#include "MLog.h"
#include "ViewEffect.h"
#include "WallCamera.h"

namespace {

const float kNear = 1.5f, kFar = 25.0f;
const float kViewLimit = 50.4f;   // 0x4249999A
const float kDepthGain = 1.0486f; // 0x3F863886
// Eye of the close pane and of the overview: 9.2 = 6 * 3 / 2 + 1.1 - 0.9.
const float kCloseZ = 2.0f, kOverviewZ = 9.2f;
// A move is made in steps of at most this many degrees.
const float kMoveStep = 1.44f;
// A move is bounded to this many degrees before it is stepped: more than
// twice across the diamond, so any move that means something is whole.
const float kMoveBound = 360.0f;
const float kDragFactor = 0.15f * 0.2f;
const double kFlingFactor = 3.0 * 0.1125 / 1000.0;

} // namespace

extern const ViewTraits kWallTwoViewTraits = {LensBox::Square, false, false, false, false};

class WallTwoView final : public ViewEffect {
public:
    WallTwoView() : ViewEffect("WallTwoView", kWallTwoViewTraits)
    {
        m_CruiseEnd = kCruiseEndsNever;
        FECurrentStatusData &d = m_FECurrentStatusData;
        SaveFields({SavedField::Checked(fCamZ[0], d.fCamZ[0], kCloseZ),
                    SavedField::Checked(fCamZ[1], d.fCamZ[1], kOverviewZ),
                    SavedField::Checked(fCamTranZ[0], d.fCamTranZ[0], 0.0f),
                    SavedField::Checked(fCamTranZ[1], d.fCamTranZ[1], 0.0f),
                    SavedField::Checked(zAngle[0], d.zAngle[0], 0.0f),
                    SavedField::Checked(zAngle[1], d.zAngle[1], 0.0f),
                    SavedField::Checked(fCamRotX[0], d.fCamRotX[0], 0.0f),
                    SavedField::Checked(fCamRotX[1], d.fCamRotX[1], 0.0f)});
    }

    void OnTouchDown(float x, float y) override
    {
        ViewEffect::OnTouchDown(x, y);
        // Where in the overview's square, from its lower left; the window's
        // y runs down from the top.
        const float side = float(m_nOverSide.load());
        if (!m_nInit.load() || side <= 0.0f) return;
        const float u = (x - float(m_nOverX.load())) / side;
        const float v = (float(m_nHeight.load()) - y - float(m_nOverY.load())) / side;
        if (u > 0.0f && u < 1.0f && v > 0.0f && v < 1.0f) JumpTo(u, v);
    }

private:
    MRESULT Build() override
    {
        if (UploadRayQuad(m_Quad) != 0) MLogInfo("[%s] WallTwoView::Initialize no quad", MLOG_TAG);
        m_Program.Build("WallTwoView", FISHEYE_GLSL_RAY_VERTEX, FISHEYE_GLSL_LIT_MAP_FRAGMENT);
        const char *where = "WallTwoView";
        const GLint rad = m_Program.Uniform(where, "frad", "mRadHandle");
        muRect = m_Program.Uniform(where, "uMVPMatrixRect", "muMVPMatrixRectHandle");
        const bool lens = m_Lens.Find(m_Program, where) && SetDomeScale(m_Program, where, 1.0f, 1.0f, 1.0f);
        muMode = m_Program.Uniform(where, "mode", "mModeHandle");
        m_Program.Use();
        glUniform1f(rad, kFisheyeLensRadius);
        return (rad < 0 || m_Program.uMVPMatrix < 0 || !lens || !m_Quad) ? 1 : 0;
    }

    // The overview on the left of the two squares, the close pane on the
    // right.
    void Project(MLong w, MLong h) override
    {
        const TwoSquares sq = TwoSquares::In(w, h);
        const MLong x = sq.left, y = sq.bottom, side = sq.side;
        m_Pane[1] = {x, y, side, side};
        m_Pane[0] = {x + side, y, side, side};
        m_nOverX = x;
        m_nOverY = y;
        m_nOverSide = side;
        for (RotTranMatrix &m : m_Camera) m.setProjectFrustum(-1.0f, 1.0f, -1.0f, 1.0f, kNear, kFar);
    }

    void StepCamera() override
    {
        for (int i = 0; i < 2; i++) {
            m_Pose[i].rotX = WallClamp(fCamRotX[i].load(), -kViewLimit, kViewLimit);
            m_Pose[i].angle = WallClamp(zAngle[i].load(), -kViewLimit, kViewLimit);
            fCamRotX[i] = m_Pose[i].rotX;
            zAngle[i] = m_Pose[i].angle;
            m_Pose[i].camZ = fCamZ[i].load();
        }
        fCamTranZ[0] = WallDepthShift(m_Pose[0].rotX, m_Pose[0].angle, kViewLimit, kDepthGain);
        m_Pose[0].tranZ = fCamTranZ[0].load();
        m_Pose[1].tranZ = fCamTranZ[1].load();
    }

    // The close pane first: its matrix lights the overview drawn after it.
    void Draw(const Frame &f) override
    {
        float rect[16];
        for (int i = 0; i < 2; i++) {
            const Pose &p = m_Pose[i];
            auto camera = [&](RotTranMatrix &m) { WallDomeCamera(m, p.camZ, p.tranZ, p.rotX, p.angle); };
            auto uniforms = [&] {
                SendRayMatrix(m_Program, m_Camera[i]);
                glUniformMatrix4fv(muRect, 1, GL_FALSE, i == 0 ? m_Camera[0].mMVPMatrix : rect);
                glUniform1f(muMode, float(i));
                m_Lens.Send(m_LensModel, m_nLensGeneration, f.videoWidth, f.videoHeight);
            };
            m_Pane[i].Viewport();
            DrawPass(m_Camera[i], camera, m_Program, m_Quad, f.sampling, uniforms);
            MapPane(i, GLint(m_Pane[i].x), GLint(m_Pane[i].y), GLint(m_Pane[i].w), GLint(m_Pane[i].h), m_Camera[i], DomeLensPoint, {1.0f, 1.0f, 1.0f, kFisheyeLensRadius, -1.0f, 1.0f});
            if (i == 0)
                for (int k = 0; k < 16; k++) rect[k] = m_Camera[0].mMVPMatrix[k];
        }
    }

    // The close pane, drawn first.
    int AimPane(const ViewMap &map, double, double) const override { return map.paneCount > 0 ? 0 : -1; }

    // A finger in the overview drags the lit area with it; one in the close
    // view drags the picture.
    void Drag(float x0, float y0, float x1, float y1) override
    {
        const float fx = (x1 - x0) * kDragFactor, fy = (y1 - y0) * kDragFactor;
        if (x1 >= 0.0f && x1 < float(m_nWidth.load() / 2) && y1 >= 0.0f && y1 < float(m_nHeight.load())) {
            nDragSign = -1;
            MoveView(fy, fx);
        } else {
            nDragSign = 1;
            MoveView(-fy, -fx);
        }
    }
    // Inertia goes the way of the last drag; before any drag it moves nothing.
    void Fling(float fVelX, float fVelY) override
    {
        const double sign = nDragSign.load();
        MoveView(0.0f, float(sign * kFlingFactor * double(fVelX) * 1.2));
        MoveView(float(sign * kFlingFactor * double(fVelY)), 0.0f);
    }

    // A move in steps of at most 1.44 degrees, each kept inside the diamond.
    // A large move takes ceil(n / 1.44) steps for n = its size / 1.44, so it
    // goes about 1 / 1.44 of the way. Bounded first, so that any input ends
    // in at most a few hundred steps.
    void MoveView(float dRotX, float dAngle)
    {
        if (!std::isfinite(dRotX) || !std::isfinite(dAngle)) return;
        dRotX = WallClamp(dRotX, -kMoveBound, kMoveBound);
        dAngle = WallClamp(dAngle, -kMoveBound, kMoveBound);
        float n = 1.0f;
        if (std::fabs(dRotX) > kMoveStep || std::fabs(dAngle) > kMoveStep)
            n = std::fmax(std::fabs(dRotX), std::fabs(dAngle)) / kMoveStep;
        const float a = dRotX / n, b = dAngle / n;
        for (float c = 0.0f; n > c; c += kMoveStep) {
            MoveAxis(fCamRotX[0], zAngle[0], a);
            MoveAxis(zAngle[0], fCamRotX[0], b);
        }
    }

    // Moves `axis` by d unless it is already past the limit that way, then
    // pulls `other` in so that |axis| + |other| stays within the limit. The
    // axis itself may end one step past the limit; the draw's clamp takes
    // it back.
    static void MoveAxis(Relaxed<float> &axis, Relaxed<float> &other, float d)
    {
        const float L = kViewLimit;
        float A = axis.load();
        if ((A > L && d > 0.0f) || (A < -L && d < 0.0f)) return;
        A += d;
        axis = A;
        const float B = other.load();
        if (A > 0.0f) {
            if (B >= 0.0f && A + B > L) other = L - A;
            if (B < 0.0f && A - B > L) other = A - L;
        } else {
            if (B >= 0.0f && A - B < -L) other = L + A;
            if (B < 0.0f && A + B < -L) other = -L - A;
        }
    }

    // A tap at (u, v) of the overview's square (0..1 from its lower left):
    // the rim points snap, a margin along the edges is dead, the rest maps
    // linearly onto pan and tilt, pulled into the diamond.
    void JumpTo(float u, float v)
    {
        // In the overview's own terms: W is twice its side (the two panes),
        // px from its right edge, py from its bottom.
        const float H = float(m_nOverSide.load()), W = 2.0f * H;
        const float px = (1.0f - u) * H, py = v * H;
        const float L = kViewLimit;
        const bool band = py > H / 2 - H / 100 && py < H / 2 + H / 100;
        const bool column = px > W / 4 - W / 200 && px < W / 4 + W / 200;
        if (band && px < W / 200) return Snap(L, 0.0f);
        if (band && px > W * 0.495f) return Snap(-L, 0.0f);
        if (column && py < H / 100) return Snap(0.0f, L);
        if (column && py > H - H / 100) return Snap(0.0f, -L);

        const float e = 2.0f * W / 15.0f, m = W / (W - 4.0f * e);
        float qx = px;
        if (px < e) qx = 0.0f;
        else if (px < W / 4) qx = m * (px - e);
        else if (px < W / 2 - e) qx = (W - W * m) * 0.25f + m * px;
        else if (px <= W / 2) qx = W / 2;
        const float f = H / 15.0f * 0.75f, g = H / (H - 2.0f * f);
        float qy = py;
        if (py < f) qy = 0.0f;
        else if (py < H / 2) qy = g * (py - f);
        else if (py < H - f) qy = (H - H * g) * 0.5f + g * py;
        else if (py <= H) qy = H;
        LimitToDiamond(L * (W / 4 - qx) / (W / 4), L * (H / 2 - qy) / (H / 2));
    }
    void Snap(float angle, float rotX)
    {
        zAngle[0] = angle;
        fCamRotX[0] = rotX;
    }

    // The target pulled in towards the diamond |tx| + |ty| <= L + 5: by
    // steps of 0.91 in the first quadrant, once in the others; then moved
    // to.
    void LimitToDiamond(float tx, float ty)
    {
        const float M = kViewLimit + 5.0f;
        if (tx > 0.0f && ty >= 0.0f) {
            for (int i = 0; i < 64 && tx + ty > M && ty >= 0.0f; i++) tx *= 0.91f, ty *= 0.91f;
        } else if ((tx > 0.0f && ty < 0.0f && ty - tx < -M) || (tx <= 0.0f && ty >= 0.0f && ty - tx > M) ||
                   (tx <= 0.0f && ty < 0.0f && tx + ty < -M)) {
            tx *= 0.91f, ty *= 0.91f;
        }
        MoveView(ty - fCamRotX[0].load(), tx - zAngle[0].load());
    }

    struct Pose {
        float camZ, tranZ, rotX, angle;
    };

    ViewProgram m_Program;
    GLint muRect = -1, muMode = -1;
    LensUniforms m_Lens;
    ViewMesh m_Quad;
    RotTranMatrix m_Camera[2] = {};
    WallPane m_Pane[2] = {};
    Pose m_Pose[2] = {};
    // The overview's square as taps read it on the host's thread.
    Relaxed<MLong> m_nOverX{0}, m_nOverY{0}, m_nOverSide{0};

    // Pane 0 the close view (right), pane 1 the overview (left).
    Relaxed<float> fCamRotX[2] = {0.0f, 0.0f};
    Relaxed<float> zAngle[2] = {0.0f, 0.0f};
    Relaxed<float> fCamZ[2] = {kCloseZ, kOverviewZ};
    Relaxed<float> fCamTranZ[2] = {0.0f, 0.0f};
    Relaxed<MLong> nDragSign{0}; // -1 after a drag in the overview, 1 after one elsewhere
};

GlesRenderEffect *MakeWallTwoView(MDWord)
{
    return new (std::nothrow) WallTwoView();
}

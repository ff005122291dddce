// What the fisheye views have in common.
//
// Every fisheye view receives the three planes of the lens square (the crop
// done in the display manager): the lens circle is inscribed in the unit
// texture square, centre (0.5, 0.5), radius 0.5. A view only adds its own
// geometry variant, camera and constants on top of this toolkit:
//
//   FISHEYE_GLSL_*    shader stages: the lens model (one for every view,
//                     LensUniforms sends it), the ray of a pane drawn per
//                     pixel and the dome it meets, the lit map (the colour
//                     conversion is GLSL_FRAME_COLOUR, shared with every view).
//   UploadRayQuad,    the quad and the inverse matrix of a pane drawn per
//   SendRayMatrix     pixel: its cost follows its pixels.
//   TwoPositionZoom   the wide/close double-tap state machine.
//   FisheyeBowlView   the camera of the views that look into the bowl.
//   ViewPane          one pane of a multi-pane view: its viewport and camera.
//
// All motion is counted in rendered frames; nothing here reads a clock.
#ifndef PANOVIEW_FISHEYECOMMON_H
#define PANOVIEW_FISHEYECOMMON_H

#include "GlesRenderEffect.h"
#include "Relaxed.h"
#include "ViewGl.h"
#include "ViewMap.h"

// ------------------------------------------------------------ constants

// Lens circle radius as a fraction of half the texture (float bits 0x3F7F7CEE).
static const float kFisheyeLensRadius = 0.998f;
// Window pixels to gesture units.
static const float TOUCH_SCALE_FACTOR = 0.1125f;
// The dome's radius in world units (the shaders' 6.0).
static const float kDomeRadius = 6.0f;
// Degrees to radians as the cameras convert them.
static const float kFisheyeDegToRad = 3.14159f / 180.0f;

// ------------------------------------------------------- shader pieces

// The vertex shader of the flat meshes the views still draw (the wall
// panorama's rectangle, the half sphere's cloud): positions through
// uMVPMatrix, texture coordinates passed on.
#define FISHEYE_GLSL_MESH_VERTEX                                  \
    "uniform mat4 uMVPMatrix;\n"                                  \
    "attribute vec3 aPosition;\n"                                 \
    "attribute vec2 aTexCoor;\n"                                  \
    "varying vec2 vTextureCoord;\n"                               \
    "void main() {\n"                                             \
    "    gl_Position = uMVPMatrix * vec4(aPosition, 1.0);\n"     \
    "    vTextureCoord = aTexCoor;\n"                             \
    "}\n"

// The head of a fisheye fragment shader: the derivatives extension where
// the driver has it (the footprint sampler below needs it), then highp.
#define FISHEYE_GLSL_FRAGMENT_HEAD                                  \
    "#ifdef GL_OES_standard_derivatives\n"                         \
    "#extension GL_OES_standard_derivatives : enable\n"            \
    "#endif\n"                                                     \
    "precision highp float;\n"

// The face rectangles (FaceMarks, sent by ViewProgram::Use) as the view
// bends them: a pixel whose lens point p lies within about a window pixel
// of a rectangle's side, within its length, is on that face's line. A
// window pixel moves p by dx across and dy down; a side x = x0 is
// |p.x - x0| / |(dx.x, dy.x)| window pixels away (y alike), so the lines are
// about two window pixels wide whatever the magnification, in every pane,
// cut where the picture ends. x0 above x1 marks a face drawn green. The
// loop stops at faceCount. A program built with LENS_FACES 0 (no faces
// shown) has no stage: onFace is false, and the compiler drops the rest.
#define FISHEYE_GLSL_FACES                                                                   \
    "#if LENS_FACES\n"                                                                      \
    "uniform vec4 faceRect[" FISHEYE_FACE_MAX "];\n"                                       \
    "uniform float faceCount;\n"                                                           \
    "bool onFace(vec2 p, vec2 dx, vec2 dy, out vec4 colour) {\n"                           \
    "    vec2 px = vec2(max(length(vec2(dx.x, dy.x)), 1e-7), max(length(vec2(dx.y, dy.y)), 1e-7));\n" \
    "    for (int i = 0; i < " FISHEYE_FACE_MAX "; i++) {\n"                              \
    "        if (float(i) >= faceCount) break;\n"                                         \
    "        vec4 r = faceRect[i];\n"                                                     \
    "        vec2 lo = vec2(min(r.x, r.z), r.y), hi = vec2(max(r.x, r.z), r.w);\n"        \
    "        vec2 near = min(abs(p - lo), abs(p - hi)) / px;\n"                           \
    "        bvec2 along = bvec2(p.x >= lo.x - px.x && p.x <= hi.x + px.x,\n"            \
    "                            p.y >= lo.y - px.y && p.y <= hi.y + px.y);\n"           \
    "        if ((near.x <= 1.0 && along.y) || (near.y <= 1.0 && along.x)) {\n"         \
    "            colour = r.x > r.z ? vec4(0.0, 1.0, 0.0, 1.0) : vec4(1.0, 0.0, 0.0, 1.0);\n" \
    "            return true;\n"                                                        \
    "        }\n"                                                                       \
    "    }\n"                                                                           \
    "    return false;\n"                                                               \
    "}\n"                                                                                  \
    "#else\n"                                                                              \
    "bool onFace(vec2 p, vec2 dx, vec2 dy, out vec4 colour) { return false; }\n"          \
    "#endif\n"
#define FISHEYE_FACE_MAX "50"

// Sampling by the pixel's footprint (after GLSL_FRAME_COLOUR): lensColour(p)
// is frameColour(p) where a pixel covers up to 7 texels of the lens box (a
// close view, or one that shrinks the picture a few times: one bilinear
// tap), and where the view shrinks the picture more (a tile of a wall of
// displays fed a large frame) the mean of 4 x 4 taps at the centres of the
// sixteenths of the pixel's footprint, the parallelogram spanned by p's
// derivatives across the pixel (dFdx, dFdy),
// so that fine detail doesn't flicker while the view turns. A footprint
// of more than 24 texels is no footprint but an edge of the view's surface
// (a neighbour in the 2 x 2 block of pixels the derivatives come from
// missed it: its point is the zenith, which domeHit leaves for a miss):
// one tap. The sizes are compared squared (49 and 576 texels squared), so
// that no square root is taken. lensTexel is the size of a texel of the
// luma plane in texture units (FootprintUniform). Without the derivatives
// extension, one tap.
// The taps are a loop whose first turn is the one tap every pixel takes
// (at p itself where the footprint is small) and which breaks after it
// where no footprint asks for more. Not a branch: a software rasteriser
// runs both sides of a branch for a block of pixels, and a loop's body at
// least once, leaving it as soon as no pixel of the block goes on; so a
// block of close pixels pays for one tap, not for a turn of taps it then
// throws away and one more.
// A program built with LENS_FOOTPRINT 0 (the view knows that no pixel of
// the draw shrinks the picture that much) takes one tap everywhere.
#define FISHEYE_GLSL_FOOTPRINT                                                          \
    FISHEYE_GLSL_FACES                                                                  \
    "#if LENS_FOOTPRINT && defined(GL_OES_standard_derivatives)\n"                     \
    "uniform vec2 lensTexel;\n"                                                        \
    "vec4 lensColour(vec2 p) {\n"                                                      \
    "    vec2 dx = dFdx(p), dy = dFdy(p);\n"                                           \
    "    vec4 face;\n"                                                                 \
    "    if (onFace(p, dx, dy, face)) return face;\n"                                  \
    "    vec2 tx = dx / lensTexel, ty = dy / lensTexel;\n"                              \
    "    float texels2 = max(dot(tx, tx), dot(ty, ty));\n"                              \
    "    bool wide = texels2 > 49.0 && texels2 < 576.0;\n"                               \
    "    vec4 sum = vec4(0.0);\n"                                                         \
    "    float taps = 0.0;\n"                                                             \
    "    for (int i = 0; i < 16; i++) {\n"                                                \
    "        vec2 g = wide ? (vec2(float(i - (i / 4) * 4), float(i / 4)) - 1.5) / 4.0 : vec2(0.0);\n" \
    "        sum += frameColour(p + g.x * dx + g.y * dy);\n"                              \
    "        taps += 1.0;\n"                                                              \
    "        if (!wide) break;\n"                                                         \
    "    }\n"                                                                             \
    "    return sum / taps;\n"                                                            \
    "}\n"                                                                              \
    "#else\n"                                                                          \
    "vec4 lensColour(vec2 p) {\n"                                                      \
    "#ifdef GL_OES_standard_derivatives\n"                                             \
    "    vec4 face;\n"                                                                 \
    "    if (onFace(p, dFdx(p), dFdy(p), face)) return face;\n"                       \
    "#endif\n"                                                                         \
    "    return frameColour(p);\n"                                                     \
    "}\n"                                                                              \
    "#endif\n"

// The lens model (LensLaw.h, the same arithmetic on the processor):
// lensRadius(theta) is the fraction of the lens circle's radius at which a
// direction theta (radians off the lens axis) lands, f(theta) * lensScale
// with f by the law: 0 theta (equidistant), 1 sin(theta / 2) (equisolid),
// 2 tan(theta / 2) (stereographic), 3 sin(theta) (orthographic), 4 the
// polynomial theta (1 + k1 theta^2 + k2 theta^4 + k3 theta^6 + k4 theta^8),
// and lensScale = 1 / f(fov / 2). Every f is odd, so a theta below 0 (the
// dome mesh's last row runs past the zenith) lands on the other side of the
// centre, as a negative radius does in the lookup. lensSees(theta): the
// lens sees the direction (up to half its field of view); where it doesn't,
// a view shows its background.
// lensRadiusDir(s, c) is the same radius for the direction whose sine and
// cosine off the axis are s (0 or more) and c, which is what a point of the
// dome gives: the half-angle laws follow from them without the angle,
// sin(theta / 2) = sqrt((1 - c) / 2) and tan(theta / 2) = s / (1 + c), the
// orthographic law is s itself; only the equidistant and polynomial laws
// take the angle, atan(s, c). lensSeesDir(c): c at or above the cosine of
// half the field of view.
// The law is compiled in (LENS_LAW, which ViewProgram defines for the
// model the view draws with): one law's arithmetic per pixel, not a choice
// among five. The uniforms are LensUniforms'; the stage brings the
// footprint sampler with it.
#define FISHEYE_GLSL_LENS_MODEL                                                          \
    FISHEYE_GLSL_FOOTPRINT                                                               \
    "uniform float lensScale;\n"                                                        \
    "uniform float lensHalfFov;\n"                                                      \
    "uniform float lensCosHalfFov;\n"                                                   \
    "#if LENS_LAW == 4\n"                                                               \
    "uniform vec4 lensK;\n"                                                             \
    "#endif\n"                                                                          \
    "float lensF(float theta) {\n"                                                      \
    "#if LENS_LAW == 1\n"                                                               \
    "    return sin(0.5 * theta);\n"                                                    \
    "#elif LENS_LAW == 2\n"                                                             \
    "    return tan(0.5 * theta);\n"                                                    \
    "#elif LENS_LAW == 3\n"                                                             \
    "    return sin(theta);\n"                                                          \
    "#elif LENS_LAW == 4\n"                                                             \
    "    float t2 = theta * theta;\n"                                                   \
    "    return theta * (1.0 + t2 * (lensK.x + t2 * (lensK.y + t2 * (lensK.z + t2 * lensK.w))));\n" \
    "#else\n"                                                                           \
    "    return theta;\n"                                                               \
    "#endif\n"                                                                          \
    "}\n"                                                                               \
    "float lensRadius(float theta) { return lensF(theta) * lensScale; }\n"              \
    "float lensRadiusDir(float s, float c) {\n"                                         \
    "#if LENS_LAW == 1\n"                                                               \
    "    return sqrt(max(0.5 - 0.5 * c, 0.0)) * lensScale;\n"                           \
    "#elif LENS_LAW == 2\n"                                                             \
    "    return s / (1.0 + c) * lensScale;\n"                                           \
    "#elif LENS_LAW == 3\n"                                                             \
    "    return s * lensScale;\n"                                                       \
    "#else\n"                                                                           \
    "    return lensF(atan(s, c)) * lensScale;\n"                                       \
    "#endif\n"                                                                          \
    "}\n"                                                                               \
    "bool lensSees(float theta) { return theta <= lensHalfFov; }\n"                     \
    "bool lensSeesDir(float c) { return c >= lensCosHalfFov; }\n"

// The dome's radial lookup. fisheyeLatitudeRadius: radius (fraction of half
// the texture) of latitude t (0 at the rim, pi/2 at the zenith, so the
// direction is pi/2 - t off the axis) on a lens circle of radius rad.
#define FISHEYE_GLSL_LENS_LAW                                                   \
    FISHEYE_GLSL_LENS_MODEL                                                     \
    "float fisheyeLatitudeRadius(float t, float rad) {\n"                       \
    "    return rad * lensRadius(1.570795 - t);\n"                              \
    "}\n"

// ------------------------------------------------- views drawn per pixel
//
// A pane drawn per pixel covers its viewport with one quad (RayQuad) and
// finds in the fragment stage what the pane's camera sees through each
// pixel: the quad's corners carry clip-space points, uMVPMatrix holds the
// inverse of the pane's whole matrix (SendRayMatrix), and the points of a
// pixel on the near and far planes, taken back into the mesh's own space,
// bound the ray that pixel sees. The inverse is a projective map, linear in
// homogeneous coordinates, so interpolating the two points across the
// quad without perspective and dividing per fragment is exact. The surface
// is met exactly, between the near and far planes as a mesh would be
// clipped; nothing drawn depends on how finely a mesh was cut.

#define FISHEYE_GLSL_RAY_VERTEX                                  \
    "uniform mat4 uMVPMatrix;\n"                                 \
    "attribute vec3 aPosition;\n"                                \
    "attribute vec2 aTexCoor;\n"                                 \
    "varying vec4 vNear;\n"                                      \
    "varying vec4 vFar;\n"                                       \
    "void main() {\n"                                            \
    "    gl_Position = vec4(aPosition.xy, 0.0, 1.0);\n"          \
    "    vNear = uMVPMatrix * vec4(aTexCoor, -1.0, 1.0);\n"      \
    "    vFar = uMVPMatrix * vec4(aTexCoor, 1.0, 1.0);\n"        \
    "}\n"

// The dome as a surface: the sphere of radius 6 about the origin, scaled by
// domeScale along x, y and z (a view's depth squeeze or stretch), the half
// at or below the rim plane z = 0. The ray is solved against the ellipsoid
// with its coordinates multiplied by domeScale.z / domeScale, the sphere of
// radius 6 domeScale.z: the terms stay of the size of the scene also for a
// dome stretched nearly flat. domeHit(p): the nearest point of it on
// this fragment's ray between the near and far planes, in the unscaled
// sphere (|p| = 6); false when the ray meets none (the fragment is then the
// background). A depth scale of 0 flattens the dome to the rim's disc: the
// ray meets the plane z = 0, and p is the dome's point above (below) that
// point of the disc. In the sphere's terms p = -6 (sin s cos t, cos s cos t,
// sin t) with s the longitude and t the latitude the mesh was built on:
// domeLatitude(p) is t (0 at the rim, pi/2 at the zenith, pi/2 - t off the
// lens axis) and domeAbout(p) is (sin s, cos s), the direction about the
// axis. fisheyeAboutLookup: the texture point at radius fir in direction
// (sin s, cos s), with the view's sign pair, which sets the handedness of
// the picture. domeLens(p, rad, sign, at): those steps at once for a view
// that maps by the lens model alone (no law of its own): the point `at` of
// the lens circle of radius rad at which p's direction lands, found from
// its sine |p.xy| / 6 and cosine -p.z / 6 off the axis (lensRadiusDir, no
// angle for most laws) and from p.xy / |p.xy| about it; false where the
// lens doesn't see the direction.
// The ray meets the ellipsoid first; a flat dome (depth scale below 1e-4)
// meets the disc instead, in a loop of one turn that no pixel enters
// unless the dome is flat (a branch would be run by every pixel). The
// stage comes after the lens stage.
#define FISHEYE_GLSL_DOME_HIT                                                        \
    "varying vec4 vNear;\n"                                                          \
    "varying vec4 vFar;\n"                                                           \
    "uniform vec3 domeScale;\n"                                                      \
    "bool domeHit(out vec3 p) {\n"                                                   \
    "    vec3 o = vNear.xyz / vNear.w, d = vFar.xyz / vFar.w - o;\n"                 \
    "    vec3 k = domeScale.z / domeScale;\n"                                        \
    "    vec3 ok = o * k, dk = d * k;\n"                                             \
    "    float R = 6.0 * domeScale.z;\n"                                             \
    "    float a = dot(dk, dk), b = dot(ok, dk), c = dot(ok, ok) - R * R;\n"         \
    "    float q = b * b - a * c;\n"                                                 \
    "    float w = sqrt(max(q, 0.0));\n"                                             \
    "    float u = (-b - w) / a;\n"                                                  \
    "    if (u < 0.0 || o.z + u * d.z > 0.0) u = (-b + w) / a;\n"                   \
    "    p = (o + u * d) / domeScale;\n"                                             \
    "    bool hit = q >= 0.0 && u >= 0.0 && u <= 1.0 && p.z <= 0.0;\n"              \
    "    if (q < 0.0) p = vec3(0.0, 0.0, -6.0);\n"                                   \
    "    for (int i = 0; i < 1; i++) {\n"                                            \
    "        if (domeScale.z >= 1e-4) break;\n"                                      \
    "        float v = -o.z / d.z;\n"                                              \
    "        vec2 f = (o.xy + v * d.xy) / domeScale.xy;\n"                           \
    "        p = vec3(f, -sqrt(max(36.0 - dot(f, f), 0.0)));\n"                      \
    "        hit = d.z != 0.0 && v >= 0.0 && v <= 1.0 && dot(f, f) <= 36.0;\n"       \
    "        if (d.z == 0.0) p = vec3(0.0, 0.0, -6.0);\n"                            \
    "    }\n"                                                                        \
    "    return hit;\n"                                                              \
    "}\n"                                                                            \
    "float domeLatitude(vec3 p) { return atan(-p.z, length(p.xy)); }\n"              \
    "vec2 domeAbout(vec3 p) {\n"                                                     \
    "    float r = length(p.xy);\n"                                                  \
    "    return r > 0.0 ? -p.xy / r : vec2(0.0, 1.0);\n"                             \
    "}\n"                                                                            \
    "vec2 fisheyeAboutLookup(vec2 about, float fir, float signS, float signT) {\n"  \
    "    return vec2(0.5 + signS * fir * about.x / 2.0, 0.5 + signT * fir * about.y / 2.0);\n" \
    "}\n"                                                                            \
    "bool domeLens(vec3 p, float rad, vec2 sign, out vec2 at) {\n"                   \
    "    float r = length(p.xy), c = -p.z / 6.0;\n"                                  \
    "    float k = r > 0.0 ? rad * lensRadiusDir(r / 6.0, c) / r : 0.0;\n"          \
    "    at = 0.5 - 0.5 * k * sign * p.xy;\n"                                        \
    "    return lensSeesDir(c);\n"                                                   \
    "}\n"

// The quad of a pane drawn per pixel: the whole viewport, corners in clip
// space as positions and as texture coordinates. Returns ViewMesh's result.
MRESULT UploadRayQuad(ViewMesh &mesh);
// In a DrawPass's uniforms: uMVPMatrix gets the inverse of the pass's
// whole matrix (computed in double precision).
void SendRayMatrix(const ViewProgram &program, const RotTranMatrix &m);
// Also in a pass's uniforms, for a pane whose eye may see the whole surface
// from outside: the scissor box around the window rectangle the box lo..hi
// (the surface's bounds, in the mesh's space) covers through the pass's
// matrix, within the viewport, so that the pixels around the surface,
// which would only find that they miss it, are not shaded at all. A box
// reaching behind the eye leaves the whole viewport. DrawPass ends the
// scissor with the pass.
void ScissorToBox(const RotTranMatrix &m, const float lo[3], const float hi[3]);

// A map of the whole lens that lights what a pane sees, per pixel (with
// FISHEYE_GLSL_RAY_VERTEX). uMVPMatrixRect is the pane's whole matrix of
// this frame; a dome point the map shows is lit (with `mode` 1) when it lies
// inside the pane's view volume, bounds included: inside its viewport and
// between its near and far planes (x, y and z within -1..1 after the
// division by |w|; a point behind the eye has |z| beyond |w| and fails).
// The lens model, the views' sign pair (-, +).
#define FISHEYE_GLSL_LIT_MAP_FRAGMENT                                              \
    FISHEYE_GLSL_FRAGMENT_HEAD                                                     \
    "uniform mat4 uMVPMatrixRect;\n"                                              \
    "uniform float frad;\n"                                                       \
    "uniform float mode;\n" GLSL_FRAME_COLOUR FISHEYE_GLSL_LENS_LAW FISHEYE_GLSL_DOME_HIT \
    "void main() {\n"                                                             \
    "    vec3 p;\n"                                                               \
    "    if (!domeHit(p)) discard;\n"                                            \
    "    vec2 at;\n"                                                              \
    "    if (!domeLens(p, frad, vec2(-1.0, 1.0), at)) discard;\n"                \
    "    vec4 c = lensColour(at);\n"                                              \
    "    vec4 r = uMVPMatrixRect * vec4(p * domeScale, 1.0);\n"                  \
    "    vec3 q = r.xyz / abs(r.w);\n"                                            \
    "    if (mode == 1.0 && all(lessThanEqual(abs(q), vec3(1.0))))\n"            \
    "        c += vec4(0.3, 0.3, 0.3, 1.0);\n"                                   \
    "    gl_FragColor = c;\n"                                                     \
    "}\n"

// The dome scale of a program drawn per pixel (its domeScale uniform),
// looked up and set once: the views whose dome never changes its shape.
bool SetDomeScale(const ViewProgram &program, const char *viewName, float x, float y, float z);

// ------------------------------------------ the same on the processor
//
// The stages above, term by term in double precision, for the lens points a
// view gives ViewMap (where a pixel's ray lands in the lens box).

// The lens model as LensUniforms sends it: lensRadius and lensSees.
struct LensAsDrawn {
    explicit LensAsDrawn(const ZT5LensModel &model);
    double Radius(double theta) const;
    bool Sees(double theta) const { return theta <= halfFov; }
    // fisheyeLatitudeRadius.
    double LatitudeRadius(double t, double rad) const { return rad * Radius(1.570795 - t); }
    ZT5LensModel model;
    double scale, halfFov;
};
// domeHit on the ray, for a dome scaled by `scale`; p in the unscaled sphere.
bool DomeHitOf(const PaneRay &ray, const float scale[3], double p[3]);
// domeLatitude, domeAbout, fisheyeAboutLookup.
double DomeLatitudeOf(const double p[3]);
void DomeAboutOf(const double p[3], double about[2]);
void AboutLookupOf(const double about[2], double fir, double signS, double signT, double out[2]);
// The dome views' common start: the point p of the dome (scaled by `scale`)
// a ray meets, its latitude t and direction about the axis; Hit is false
// where the ray meets none or the lens doesn't see the point.
struct DomePoint {
    explicit DomePoint(const ZT5LensModel &model) : lens(model) {}
    bool Hit(const PaneRay &ray, const float scale[3]);
    LensAsDrawn lens;
    double p[3] = {0.0, 0.0, 0.0};
    double t = 0.0;
    double about[2] = {0.0, 1.0};
};
// The lens point of a dome drawn through the lens model without a bend of
// its own (the map, the wall panes): k = dome scale x, y, z, the lens
// radius, the sign pair.
bool DomeLensPoint(const PaneMap &pane, const ZT5LensModel &model, const PaneRay &ray, double p[2]);

// The footprint sampler's texel size in one program: Find once after the
// build (false for a program built without the sampler, whose Send does
// nothing), Send with the program in use before each draw (the lens box's
// size in pixels, the frame's); sent when it changes.
class FootprintUniform {
public:
    bool Find(const ViewProgram &program);
    void Send(MLong width, MLong height);

private:
    GLint m_Texel = -1;
    MLong m_Width = 0, m_Height = 0;
};

// The lens model's uniforms in one program, the footprint's among them.
// Find once after the build; Send with the program in use before each draw:
// it sends the model only when it has changed since (the generation of
// GlesRenderEffect), the texel size when the lens box's size has. The law
// itself is compiled into the program (ViewEffect builds the view again
// for a model of another law).
class LensUniforms {
public:
    // Looks the uniforms up (a missing scale is logged). False without it.
    bool Find(const ViewProgram &program, const char *viewName);
    void Send(const ZT5LensModel &model, unsigned generation, MLong boxWidth, MLong boxHeight);

private:
    GLint m_K = -1, m_Scale = -1, m_HalfFov = -1, m_CosHalfFov = -1;
    unsigned m_Sent = 0; // no generation is 0
    FootprintUniform m_Footprint;
};

// -------------------------------------------------------------- camera

// Two-position zoom of the strip and the wall panes: maxState is the wanted
// position (0 wide, 1 close); a move is pending while maxMinInit equals
// maxState; animalState is 1 while the move runs.
struct TwoPositionZoom {
    Relaxed<MLong> maxState{0};
    Relaxed<MLong> maxMinInit{0};
    Relaxed<MLong> animalState{0};

    // Double tap: flips the wanted position unless a move runs.
    void OnDoubleClick();
    // One frame: steps fTz by `step` towards the wanted end (double
    // precision on the float value) or, when settled, makes the position
    // that fTz has reached the settled one: closer than zMax - 0.2 counts as
    // close.
    void Step(Relaxed<float> &fTz, float zMin, float zMax, double step);
    // A restored view comes back settled on its maxState.
    void Settle();
    // A move is pending or running: the next Step changes fTz or the state.
    bool Moving() const
    {
        const MLong state = maxState.load();
        return (state == 0 || state == 1) && maxMinInit.load() == state;
    }
};

// The eye of every dome view: at eyeZ on the axis, looking towards
// (0, 0, -4) with up (0, 4, -4). The views' rotations go on top.
void FisheyeEye(RotTranMatrix &m, float eyeZ);

// The camera that looks into the bowl from its axis: FisheyeEye, turned
// half a turn about the axis, tilted by rotX degrees about x and moved by
// (0, tranY, tranZ). The view's turn about the axis is the caller's last
// rotation.
void FisheyeBowlView(RotTranMatrix &m, float eyeZ, float rotX, float tranY, float tranZ);

// The turn of one inertia step of release velocity vx: |vx| * up / 1000
// added for vx at or above 0 (above 0 when zeroTurnsDown), |vx| * down /
// 1000 taken off otherwise. The views' factors differ by direction.
float FisheyeFlingTurn(float vx, float up, float down, bool zeroTurnsDown = false);

// The layout of the views of two squares side by side (modes 4 and 8),
// centred: in a window more than twice as wide as high their side is the
// height less a margin of 1/75 of it above and below; otherwise the half
// width less a margin of 1/150 of the width at each side. Whole pixels,
// glViewport's terms (y from the bottom).
struct TwoSquares {
    MLong left, bottom, side; // the left square; the right one is at left + side
    static TwoSquares In(MLong w, MLong h);
};

// The spring-back of a tilt below a rest pose (the half sphere inside the
// bowl, the map view's pane): released, the tilt rises one degree a frame
// to the rest pose, and the eye's shifts move along, linearly in the tilt,
// between the deepest tilt's and the rest pose's.
struct TiltSpring {
    float restRot, restTranY, restTranZ; // the rest pose
    float tiltRot, tiltTranY, tiltTranZ; // the deepest tilt

    // The shifts at tilt rot (nothing for a tilt beyond the two poses by
    // more than a hundredth of a degree: a restored one, which the view's
    // clamps bring back).
    void Between(float rot, Relaxed<float> &tranY, Relaxed<float> &tranZ) const;
    // One frame of the spring when rot lies below the rest pose: the tilt
    // a degree up (not past the rest pose) and the shifts with it. False,
    // changing nothing, when it is at or above the rest pose; *arrived
    // tells whether this frame reached it.
    bool Step(Relaxed<float> &rot, Relaxed<float> &tranY, Relaxed<float> &tranZ, bool *arrived) const;
};

// One pane of a multi-pane view: its place in the window (GL viewport,
// origin bottom left) and its own camera.
struct ViewPane {
    GLint x = 0, y = 0, width = 0, height = 0;
    RotTranMatrix camera = {};
    void SetViewport(GLint px, GLint py, GLint w, GLint h)
    {
        x = px, y = py, width = w, height = h;
    }
    void Apply() const { glViewport(x, y, width, height); }
};

// Keeps an angle in degrees within (-360, 360) by whole turns.
float FisheyeWrapDegrees(float angle);
// Keeps an angle in degrees within [0, 360): a value at or below 0 gains a
// turn, one at or above 360 loses one (and values further out are reduced
// in one step).
float FisheyeWrapTurn(float angle);

#endif

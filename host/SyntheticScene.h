// The built-in input of the demo host and of the tests: an animated scene
// seen through a circular equidistant fisheye lens, in planar I420.
//
// Geometry (all tests rely on it):
// - The lens circle has centre (cx, cy) and radius R in pixels of the frame.
// - Equidistant law: a ray at angle theta from the optical axis (0..90
//   degrees) lands at distance r = R * theta / 90 from the centre; the circle
//   edge is theta = 90 (the horizon).
// - Azimuth phi of a pixel (x, y): atan2(-(y - cy), x - cx) in degrees,
//   0..360, counter-clockwise as the frame is seen, 0 pointing right.
// - Compass sectors: eight of 45 degrees; sector k covers phi in
//   [45k, 45k + 45) and is painted with kSectorRgb[k].
// - Rings: dark grey (kRingRgb) where theta is within 1 degree of 30 or 60.
// - Horizon ring: white (kHorizonRgb) for theta in [75, 85).
// - Labels: the digit k, black, about 9 degrees tall, centred at theta 50 in
//   the middle of sector k (phi = 45k + 22.5), its top pointing away from the
//   centre (as a sign on a wall looks to a camera on the ceiling).
// - Animation: a black dot of 3 degrees radius at theta 20, phi = 2 * frame.
// - Outside the circle: black.
//
// The wall variant (LensFrame::wall) is the picture of a camera on a wall of
// a room, lens axis horizontal, through a 180-degree lens. Looking along +z
// from the origin, the picture's right is +x and its up +y. The room is the
// box x in [-1.2, 1.2], y in [-0.9, 0.9], z in [0, 2]; each direction shows
// the surface it meets first, painted with kWallRgb[surface]:
// - left wall x = -1.2, centre wall z = 2, right wall x = 1.2, floor
//   y = -0.9, ceiling y = 0.9 (the centre wall spans about +-31 degrees
//   across and +-24 up and down; the middle of a side wall lies 50.2
//   degrees off the axis);
// - each surface carries its name in black capitals at its middle (LEFT,
//   CENTRE, RIGHT, FLOOR, CEILING), upright and readable to someone in the
//   room facing it with the ceiling above;
// - lens law: equidistant as above, or orthographic (LensFrame::
//   orthographic): r = R * sin(theta). A lens as wide as the picture (R =
//   width / 2) shows the whole width; the top and bottom of its circle fall
//   outside the frame.
#ifndef PANOVIEW_SYNTHETICSCENE_H
#define PANOVIEW_SYNTHETICSCENE_H

#include <cstdint>
#include <vector>

namespace synthetic {

struct Rgb {
    uint8_t r, g, b;
};

extern const Rgb kSectorRgb[8];
extern const Rgb kRingRgb;
extern const Rgb kHorizonRgb;

struct LensFrame {
    int width = 1920;
    int height = 1080;
    int cx = 960;
    int cy = 540;
    int radius = 540;
    bool wall = false;         // the room seen from a wall instead of the compass
    bool orthographic = false; // r = R sin(theta) instead of R theta / 90
    // The lens's law otherwise (a ZT5_LENS_* value; 0 equidistant), its
    // field of view across the circle (degrees; 0: 180) and the
    // polynomial's k1..k4: r / R = f(theta) / f(fov / 2).
    uint32_t law = 0;
    double fovDeg = 0;
    double k[4] = {0, 0, 0, 0};
};

// The wall camera's picture: the room through the 180-degree lens, its
// circle inscribed in the frame's height (equidistant) or as wide as the
// frame (orthographic).
LensFrame WallLens(bool wideCircle);

enum WallSurface { kLeftWall, kCentreWall, kRightWall, kFloor, kCeiling, kWallSurfaces };
extern const Rgb kWallRgb[kWallSurfaces];
// The surface a direction meets: theta from the axis, phi the azimuth in
// the picture (degrees), as for SceneColour.
WallSurface WallSurfaceAt(double thetaDeg, double phiDeg);

// How RGB becomes Y'CbCr: the luma weights of red (kr) and blue (kb), and
// whether the samples use the full 0..255 range or the video range (luma
// 16..235, chroma 16..240).
struct YuvEncoding {
    double kr, kb;
    bool fullRange;
};
extern const YuvEncoding kBt601; // video range; the scene's default
extern const YuvEncoding kBt709;
extern const YuvEncoding kBt2020;

// RGB to Y'CbCr, rounded; BT.601 video range unless told otherwise.
void RgbToYuv(Rgb c, uint8_t *y, uint8_t *u, uint8_t *v, const YuvEncoding &enc = kBt601);
// The inverse the plain view's shader computes for BT.601 video range.
Rgb YuvToRgb(uint8_t y, uint8_t u, uint8_t v);
// The exact inverse of an encoding.
Rgb YuvToRgb(uint8_t y, uint8_t u, uint8_t v, const YuvEncoding &enc);

// Scene colour at a direction: theta from the axis, phi azimuth (degrees),
// without labels and animation dot.
Rgb SceneColour(double thetaDeg, double phiDeg);

// Paints frame number `frame` into `i420` (width*height*3/2 bytes; width and
// height even), with the given encoding.
void RenderFisheyeFrame(const LensFrame &lens, int frame, uint8_t *i420, const YuvEncoding &enc = kBt601);
std::vector<uint8_t> MakeFisheyeFrame(const LensFrame &lens, int frame);

} // namespace synthetic

#endif

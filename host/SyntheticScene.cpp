#include "SyntheticScene.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <mutex>

namespace synthetic {

const Rgb kSectorRgb[8] = {
    {220, 30, 30},   // 0 red
    {235, 140, 20},  // 1 orange
    {230, 220, 30},  // 2 yellow
    {40, 190, 50},   // 3 green
    {30, 200, 210},  // 4 cyan
    {40, 70, 220},   // 5 blue
    {130, 50, 200},  // 6 purple
    {220, 60, 170},  // 7 magenta
};
const Rgb kRingRgb = {60, 60, 60};
const Rgb kHorizonRgb = {255, 255, 255};

static const double kPi = 3.14159265358979323846;

static uint8_t Clamp8(double v)
{
    return static_cast<uint8_t>(std::min(255.0, std::max(0.0, std::floor(v + 0.5))));
}

const YuvEncoding kBt601 = {0.299, 0.114, false};
const YuvEncoding kBt709 = {0.2126, 0.0722, false};
const YuvEncoding kBt2020 = {0.2627, 0.0593, false};

// With E'y = kr R + (1 - kr - kb) G + kb B (R, G, B in 0..1), the colour
// differences are E'u = (B - E'y) / (2 (1 - kb)) and E'v = (R - E'y) /
// (2 (1 - kr)), both in -0.5..0.5. Video range stores 16 + 219 E'y and
// 128 + 224 E'u/v, full range 255 E'y and 128 + 255 E'u/v.
void RgbToYuv(Rgb c, uint8_t *y, uint8_t *u, uint8_t *v, const YuvEncoding &enc)
{
    const double r = c.r / 255.0, g = c.g / 255.0, b = c.b / 255.0;
    const double ey = enc.kr * r + (1.0 - enc.kr - enc.kb) * g + enc.kb * b;
    const double eu = (b - ey) / (2.0 * (1.0 - enc.kb));
    const double ev = (r - ey) / (2.0 * (1.0 - enc.kr));
    const double ys = enc.fullRange ? 255.0 : 219.0, yo = enc.fullRange ? 0.0 : 16.0;
    const double cs = enc.fullRange ? 255.0 : 224.0;
    *y = Clamp8(yo + ys * ey);
    *u = Clamp8(128.0 + cs * eu);
    *v = Clamp8(128.0 + cs * ev);
}

Rgb YuvToRgb(uint8_t y, uint8_t u, uint8_t v, const YuvEncoding &enc)
{
    const double ys = enc.fullRange ? 255.0 : 219.0, yo = enc.fullRange ? 0.0 : 16.0;
    const double cs = enc.fullRange ? 255.0 : 224.0;
    const double ey = (y - yo) / ys, eu = (u - 128.0) / cs, ev = (v - 128.0) / cs;
    const double kg = 1.0 - enc.kr - enc.kb;
    const double r = ey + 2.0 * (1.0 - enc.kr) * ev;
    const double b = ey + 2.0 * (1.0 - enc.kb) * eu;
    const double g = (ey - enc.kr * r - enc.kb * b) / kg;
    return {Clamp8(r * 255.0), Clamp8(g * 255.0), Clamp8(b * 255.0)};
}

Rgb YuvToRgb(uint8_t y, uint8_t u, uint8_t v)
{
    double yy = 1.1643 * (y / 255.0 - 0.0625);
    double uu = u / 255.0 - 0.5, vv = v / 255.0 - 0.5;
    double r = yy + 1.5958 * vv;
    double g = yy - 0.39173 * uu - 0.81290 * vv;
    double b = yy + 2.017 * uu;
    return {Clamp8(r * 255.0), Clamp8(g * 255.0), Clamp8(b * 255.0)};
}

Rgb SceneColour(double thetaDeg, double phiDeg)
{
    if (thetaDeg >= 75.0 && thetaDeg < 85.0) return kHorizonRgb;
    if (std::fabs(thetaDeg - 30.0) <= 1.0 || std::fabs(thetaDeg - 60.0) <= 1.0) return kRingRgb;
    double p = std::fmod(phiDeg, 360.0);
    if (p < 0) p += 360.0;
    int k = std::min(7, static_cast<int>(p / 45.0));
    return kSectorRgb[k];
}

const Rgb kWallRgb[kWallSurfaces] = {
    {220, 30, 30},  // left wall: red
    {40, 190, 50},  // centre wall: green
    {40, 70, 220},  // right wall: blue
    {230, 220, 30}, // floor: yellow
    {30, 200, 210}, // ceiling: cyan
};

LensFrame WallLens(bool wideCircle)
{
    LensFrame l;
    l.wall = true;
    l.orthographic = wideCircle;
    if (wideCircle) l.radius = l.width / 2;
    return l;
}

namespace {

const double kRoomX = 1.2, kRoomY = 0.9, kRoomZ = 2.0;

// The direction of (theta, phi), picture right +x, up +y, axis +z.
void Direction(double thetaDeg, double phiDeg, double d[3])
{
    const double t = thetaDeg * kPi / 180.0, p = phiDeg * kPi / 180.0;
    d[0] = std::sin(t) * std::cos(p);
    d[1] = std::sin(t) * std::sin(p);
    d[2] = std::cos(t);
}

// The surface a ray meets and the point where it does.
WallSurface Hit(const double d[3], double at[3])
{
    double best = 1e30;
    WallSurface s = kCentreWall;
    auto tryPlane = [&](int axis, double plane, WallSurface surface) {
        if (d[axis] == 0.0) return;
        const double t = plane / d[axis];
        if (t > 0.0 && t < best) best = t, s = surface;
    };
    tryPlane(0, -kRoomX, kLeftWall);
    tryPlane(0, kRoomX, kRightWall);
    tryPlane(1, -kRoomY, kFloor);
    tryPlane(1, kRoomY, kCeiling);
    tryPlane(2, kRoomZ, kCentreWall);
    for (int i = 0; i < 3; i++) at[i] = d[i] * best;
    return s;
}

// 5x7 capitals of the surface names.
struct Glyph {
    char c;
    uint8_t rows[7];
};
const Glyph kLetters[] = {
    {'C', {0x0E, 0x11, 0x10, 0x10, 0x10, 0x11, 0x0E}}, {'E', {0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x1F}},
    {'F', {0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x10}}, {'G', {0x0E, 0x11, 0x10, 0x17, 0x11, 0x11, 0x0F}},
    {'H', {0x11, 0x11, 0x11, 0x1F, 0x11, 0x11, 0x11}}, {'I', {0x0E, 0x04, 0x04, 0x04, 0x04, 0x04, 0x0E}},
    {'L', {0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x1F}}, {'N', {0x11, 0x19, 0x15, 0x13, 0x11, 0x11, 0x11}},
    {'O', {0x0E, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0E}}, {'R', {0x1E, 0x11, 0x11, 0x1E, 0x14, 0x12, 0x11}},
    {'T', {0x1F, 0x04, 0x04, 0x04, 0x04, 0x04, 0x04}},
};

// Each surface's name, where its middle is, and its right and up as someone
// in the room facing it sees them.
struct Sign {
    const char *text;
    double centre[3], right[3], up[3];
};
const Sign kSigns[kWallSurfaces] = {
    {"LEFT", {-kRoomX, 0, kRoomZ / 2}, {0, 0, 1}, {0, 1, 0}},
    {"CENTRE", {0, 0, kRoomZ}, {1, 0, 0}, {0, 1, 0}},
    {"RIGHT", {kRoomX, 0, kRoomZ / 2}, {0, 0, -1}, {0, 1, 0}},
    {"FLOOR", {0, -kRoomY, kRoomZ / 2}, {1, 0, 0}, {0, 0, 1}},
    {"CEILING", {0, kRoomY, kRoomZ / 2}, {1, 0, 0}, {0, 0, -1}},
};
const double kLetterCell = 0.035; // world units a cell of the 5x7 grid

bool OnSign(WallSurface s, const double at[3])
{
    const Sign &g = kSigns[s];
    double rel[3], u = 0, v = 0;
    for (int i = 0; i < 3; i++) rel[i] = at[i] - g.centre[i];
    for (int i = 0; i < 3; i++) u += rel[i] * g.right[i], v += rel[i] * g.up[i];
    const int n = int(std::strlen(g.text));
    // Letters of 5 cells with a gap of 1, centred; rows from the top.
    const double gx = u / kLetterCell + (6.0 * n - 1.0) / 2.0, gy = 3.5 - v / kLetterCell;
    if (gx < 0 || gy < 0 || gy >= 7) return false;
    const int letter = int(gx) / 6, col = int(gx) % 6;
    if (letter >= n || col >= 5) return false;
    for (const Glyph &l : kLetters)
        if (l.c == g.text[letter]) return (l.rows[int(gy)] & (0x10 >> col)) != 0;
    return false;
}

Rgb WallColour(double thetaDeg, double phiDeg)
{
    double d[3], at[3];
    Direction(thetaDeg, phiDeg, d);
    const WallSurface s = Hit(d, at);
    return OnSign(s, at) ? Rgb{0, 0, 0} : kWallRgb[s];
}

} // namespace

WallSurface WallSurfaceAt(double thetaDeg, double phiDeg)
{
    double d[3], at[3];
    Direction(thetaDeg, phiDeg, d);
    return Hit(d, at);
}

// 5x7 digits, one row a byte, bit 4 the leftmost column.
static const uint8_t kDigits[10][7] = {
    {0x0E, 0x11, 0x13, 0x15, 0x19, 0x11, 0x0E}, {0x04, 0x0C, 0x04, 0x04, 0x04, 0x04, 0x0E},
    {0x0E, 0x11, 0x01, 0x02, 0x04, 0x08, 0x1F}, {0x1F, 0x02, 0x04, 0x02, 0x01, 0x11, 0x0E},
    {0x02, 0x06, 0x0A, 0x12, 0x1F, 0x02, 0x02}, {0x1F, 0x10, 0x1E, 0x01, 0x01, 0x11, 0x0E},
    {0x06, 0x08, 0x10, 0x1E, 0x11, 0x11, 0x0E}, {0x1F, 0x01, 0x02, 0x04, 0x08, 0x08, 0x08},
    {0x0E, 0x11, 0x11, 0x0E, 0x11, 0x11, 0x0E}, {0x0E, 0x11, 0x11, 0x0F, 0x01, 0x02, 0x0C},
};

namespace {

// The angle off the axis (degrees) that the lens puts at the share s of the
// circle's radius: the law's f inverted by bisection (every law grows over
// 0..fov / 2).
double LensTheta(const LensFrame &lens, double s)
{
    if (lens.law == 0 && lens.fovDeg == 0) return s * 90.0;
    auto f = [&](double t) {
        switch (lens.law) {
        case 1: return std::sin(t / 2);
        case 2: return std::tan(t / 2);
        case 3: return std::sin(t);
        case 4: {
            const double t2 = t * t;
            return t * (1 + t2 * (lens.k[0] + t2 * (lens.k[1] + t2 * (lens.k[2] + t2 * lens.k[3]))));
        }
        default: return t;
        }
    };
    const double half = (lens.fovDeg > 0 ? lens.fovDeg : 180.0) / 2 * kPi / 180.0;
    const double want = s * f(half);
    double lo = 0, hi = half;
    for (int i = 0; i < 40; i++) {
        const double mid = (lo + hi) / 2;
        (f(mid) < want ? lo : hi) = mid;
    }
    return lo * 180.0 / kPi;
}

// Paints the 2x2 blocks of [x0, x1) x [y0, y1) (even bounds) of frame
// `frame`; `withDot` false leaves the animated dot out.
void PaintBlocks(const LensFrame &lens, int frame, bool withDot, int x0, int y0, int x1, int y1, uint8_t *i420,
                 const YuvEncoding &enc)
{
    const int w = lens.width, h = lens.height;
    uint8_t *Y = i420;
    uint8_t *U = i420 + size_t(w) * h;
    uint8_t *V = U + size_t(w / 2) * (h / 2);
    const double R = lens.radius > 0 ? lens.radius : 1;
    const double degPerPx = 90.0 / R;

    // Label boxes in pixels: centre and size of each digit.
    struct Label {
        double x, y, cell;
        double rx, ry; // the digit's "right" in frame pixels; its "down" is (-ry, rx)
    } labels[8];
    for (int k = 0; k < 8; k++) {
        double phi = (45.0 * k + 22.5) * kPi / 180.0;
        double r = R * 50.0 / 90.0;
        // The top of each digit points away from the centre, as a sign on a
        // wall looks to a camera on the ceiling: a dewarped panorama shows
        // them upright.
        labels[k] = {lens.cx + r * std::cos(phi), lens.cy - r * std::sin(phi), (9.0 / degPerPx) / 7.0,
                     std::sin(phi), std::cos(phi)};
    }
    const double dotPhi = 2.0 * frame * kPi / 180.0;
    const double dotX = lens.cx + R * (20.0 / 90.0) * std::cos(dotPhi);
    const double dotY = lens.cy - R * (20.0 / 90.0) * std::sin(dotPhi);
    const double dotR = 3.0 / degPerPx;

    auto colourAt = [&](int x, int y) -> Rgb {
        double dx = x + 0.5 - lens.cx, dy = y + 0.5 - lens.cy;
        double r = std::sqrt(dx * dx + dy * dy);
        if (r >= R) return {0, 0, 0};
        if (withDot && (x + 0.5 - dotX) * (x + 0.5 - dotX) + (y + 0.5 - dotY) * (y + 0.5 - dotY) <= dotR * dotR)
            return {0, 0, 0};
        for (int k = 0; k < 8 && !lens.wall; k++) {
            const Label &L = labels[k];
            const double lx = x + 0.5 - L.x, ly = y + 0.5 - L.y;
            double gx = (lx * L.rx + ly * L.ry) / L.cell + 2.5;
            double gy = (-lx * L.ry + ly * L.rx) / L.cell + 3.5;
            if (gx >= 0 && gx < 5 && gy >= 0 && gy < 7) {
                if (kDigits[k][int(gy)] & (0x10 >> int(gx))) return {0, 0, 0};
            }
        }
        double theta = lens.orthographic ? std::asin(r / R) * 180.0 / kPi : LensTheta(lens, r / R);
        double phi = std::atan2(-dy, dx) * 180.0 / kPi;
        if (phi < 0) phi += 360.0;
        return lens.wall ? WallColour(theta, phi) : SceneColour(theta, phi);
    };

    for (int y = y0; y < y1; y += 2) {
        for (int x = x0; x < x1; x += 2) {
            int su = 0, sv = 0;
            for (int j = 0; j < 2; j++) {
                for (int i = 0; i < 2; i++) {
                    uint8_t yy, uu, vv;
                    RgbToYuv(colourAt(x + i, y + j), &yy, &uu, &vv, enc);
                    Y[size_t(y + j) * w + x + i] = yy;
                    su += uu;
                    sv += vv;
                }
            }
            U[size_t(y / 2) * (w / 2) + x / 2] = uint8_t((su + 2) / 4);
            V[size_t(y / 2) * (w / 2) + x / 2] = uint8_t((sv + 2) / 4);
        }
    }
}

// The still part of the scene (all but the dot) of the last lens asked for:
// a frame is this picture plus the dot painted over it, which costs a copy
// and a few hundred blocks instead of two million trigonometric pixels.
struct StillCache {
    std::mutex mutex;
    LensFrame lens;
    YuvEncoding enc = {};
    bool valid = false;
    std::vector<uint8_t> still;
};

bool SameLens(const LensFrame &a, const LensFrame &b)
{
    return a.width == b.width && a.height == b.height && a.cx == b.cx && a.cy == b.cy && a.radius == b.radius &&
           a.wall == b.wall && a.orthographic == b.orthographic && a.law == b.law && a.fovDeg == b.fovDeg &&
           a.k[0] == b.k[0] && a.k[1] == b.k[1] && a.k[2] == b.k[2] && a.k[3] == b.k[3];
}

bool SameEncoding(const YuvEncoding &a, const YuvEncoding &b)
{
    return a.kr == b.kr && a.kb == b.kb && a.fullRange == b.fullRange;
}

} // namespace

void RenderFisheyeFrame(const LensFrame &lens, int frame, uint8_t *i420, const YuvEncoding &enc)
{
    const int w = lens.width, h = lens.height;
    const size_t bytes = size_t(w) * h + 2 * size_t(w / 2) * (h / 2);
    static StillCache cache;
    {
        std::lock_guard<std::mutex> lock(cache.mutex);
        if (!cache.valid || !SameLens(cache.lens, lens) || !SameEncoding(cache.enc, enc)) {
            cache.still.assign(bytes, 0);
            PaintBlocks(lens, frame, false, 0, 0, w & ~1, h & ~1, cache.still.data(), enc);
            cache.lens = lens;
            cache.enc = enc;
            cache.valid = true;
        }
        std::memcpy(i420, cache.still.data(), bytes);
    }
    // Repaint the blocks the dot may touch, with the dot.
    const double R = lens.radius > 0 ? lens.radius : 1;
    const double dotPhi = 2.0 * frame * kPi / 180.0;
    const double dotX = lens.cx + R * (20.0 / 90.0) * std::cos(dotPhi);
    const double dotY = lens.cy - R * (20.0 / 90.0) * std::sin(dotPhi);
    const double reach = 3.0 * R / 90.0 + 2.0;
    auto evenFloor = [](double v) { return int(std::floor(v / 2.0)) * 2; };
    int x0 = std::max(0, evenFloor(dotX - reach)), y0 = std::max(0, evenFloor(dotY - reach));
    int x1 = std::min(w & ~1, evenFloor(dotX + reach) + 2), y1 = std::min(h & ~1, evenFloor(dotY + reach) + 2);
    if (x0 < x1 && y0 < y1) PaintBlocks(lens, frame, true, x0, y0, x1, y1, i420, enc);
}

std::vector<uint8_t> MakeFisheyeFrame(const LensFrame &lens, int frame)
{
    std::vector<uint8_t> buf(size_t(lens.width) * lens.height * 3 / 2);
    RenderFisheyeFrame(lens, frame, buf.data());
    return buf;
}

} // namespace synthetic

#include "ViewMap.h"

#include <cmath>

namespace {

// The inverse of a column-major 4 x 4 matrix by cofactors, in double
// precision; false for a singular one.
bool Invert(const float *m, double *inv)
{
    double a[16];
    for (int i = 0; i < 16; i++) a[i] = m[i];
    inv[0] = a[5] * a[10] * a[15] - a[5] * a[11] * a[14] - a[9] * a[6] * a[15] + a[9] * a[7] * a[14] + a[13] * a[6] * a[11] - a[13] * a[7] * a[10];
    inv[4] = -a[4] * a[10] * a[15] + a[4] * a[11] * a[14] + a[8] * a[6] * a[15] - a[8] * a[7] * a[14] - a[12] * a[6] * a[11] + a[12] * a[7] * a[10];
    inv[8] = a[4] * a[9] * a[15] - a[4] * a[11] * a[13] - a[8] * a[5] * a[15] + a[8] * a[7] * a[13] + a[12] * a[5] * a[11] - a[12] * a[7] * a[9];
    inv[12] = -a[4] * a[9] * a[14] + a[4] * a[10] * a[13] + a[8] * a[5] * a[14] - a[8] * a[6] * a[13] - a[12] * a[5] * a[10] + a[12] * a[6] * a[9];
    inv[1] = -a[1] * a[10] * a[15] + a[1] * a[11] * a[14] + a[9] * a[2] * a[15] - a[9] * a[3] * a[14] - a[13] * a[2] * a[11] + a[13] * a[3] * a[10];
    inv[5] = a[0] * a[10] * a[15] - a[0] * a[11] * a[14] - a[8] * a[2] * a[15] + a[8] * a[3] * a[14] + a[12] * a[2] * a[11] - a[12] * a[3] * a[10];
    inv[9] = -a[0] * a[9] * a[15] + a[0] * a[11] * a[13] + a[8] * a[1] * a[15] - a[8] * a[3] * a[13] - a[12] * a[1] * a[11] + a[12] * a[3] * a[9];
    inv[13] = a[0] * a[9] * a[14] - a[0] * a[10] * a[13] - a[8] * a[1] * a[14] + a[8] * a[2] * a[13] + a[12] * a[1] * a[10] - a[12] * a[2] * a[9];
    inv[2] = a[1] * a[6] * a[15] - a[1] * a[7] * a[14] - a[5] * a[2] * a[15] + a[5] * a[3] * a[14] + a[13] * a[2] * a[7] - a[13] * a[3] * a[6];
    inv[6] = -a[0] * a[6] * a[15] + a[0] * a[7] * a[14] + a[4] * a[2] * a[15] - a[4] * a[3] * a[14] - a[12] * a[2] * a[7] + a[12] * a[3] * a[6];
    inv[10] = a[0] * a[5] * a[15] - a[0] * a[7] * a[13] - a[4] * a[1] * a[15] + a[4] * a[3] * a[13] + a[12] * a[1] * a[7] - a[12] * a[3] * a[5];
    inv[14] = -a[0] * a[5] * a[14] + a[0] * a[6] * a[13] + a[4] * a[1] * a[14] - a[4] * a[2] * a[13] - a[12] * a[1] * a[6] + a[12] * a[2] * a[5];
    inv[3] = -a[1] * a[6] * a[11] + a[1] * a[7] * a[10] + a[5] * a[2] * a[11] - a[5] * a[3] * a[10] - a[9] * a[2] * a[7] + a[9] * a[3] * a[6];
    inv[7] = a[0] * a[6] * a[11] - a[0] * a[7] * a[10] - a[4] * a[2] * a[11] + a[4] * a[3] * a[10] + a[8] * a[2] * a[7] - a[8] * a[3] * a[6];
    inv[11] = -a[0] * a[5] * a[11] + a[0] * a[7] * a[9] + a[4] * a[1] * a[11] - a[4] * a[3] * a[9] - a[8] * a[1] * a[7] + a[8] * a[3] * a[5];
    inv[15] = a[0] * a[5] * a[10] - a[0] * a[6] * a[9] - a[4] * a[1] * a[10] + a[4] * a[2] * a[9] + a[8] * a[1] * a[6] - a[8] * a[2] * a[5];
    const double det = a[0] * inv[0] + a[1] * inv[4] + a[2] * inv[8] + a[3] * inv[12];
    if (det == 0.0 || !std::isfinite(det)) return false;
    for (int i = 0; i < 16; i++) inv[i] /= det;
    return true;
}

// Column-major inverse times (x, y, z, 1), divided through.
bool Unproject(const double *inv, double x, double y, double z, double out[3])
{
    double v[4];
    for (int r = 0; r < 4; r++) v[r] = inv[r] * x + inv[4 + r] * y + inv[8 + r] * z + inv[12 + r];
    if (v[3] == 0.0) return false;
    for (int r = 0; r < 3; r++) out[r] = v[r] / v[3];
    return true;
}

// Grid points a pane side when searching a frame point, and how close a
// found window point must map to it (frame pixels).
const int kGrid = 32;
const double kFound = 0.02;

} // namespace

bool InvertMatrix4(const float *m, float *out)
{
    double inv[16];
    if (!Invert(m, inv)) return false;
    for (int i = 0; i < 16; i++) out[i] = static_cast<float>(inv[i]);
    return true;
}

void PaneMap::SetMatrix(const float *m)
{
    for (int i = 0; i < 16; i++) mvp[i] = m[i];
    invertible = Invert(mvp, inverse);
}

bool ViewMap::LensAt(const PaneMap &p, double wx, double wy, double point[2]) const
{
    if (!p.lensPoint || p.w <= 0 || p.h <= 0 || !p.invertible) return false;
    const double *inv = p.inverse;
    const double nx = 2.0 * (wx - p.x) / p.w - 1.0;
    const double ny = 2.0 * ((windowHeight - wy) - p.y) / p.h - 1.0;
    PaneRay ray;
    double farPoint[3];
    if (!Unproject(inv, nx, ny, -1.0, ray.o) || !Unproject(inv, nx, ny, 1.0, farPoint)) return false;
    for (int i = 0; i < 3; i++) ray.d[i] = farPoint[i] - ray.o[i];
    return p.lensPoint(p, lens, ray, point) && std::isfinite(point[0]) && std::isfinite(point[1]);
}

int ViewMap::WindowToFrame(double wx, double wy, double *fx, double *fy) const
{
    if (!std::isfinite(wx) || !std::isfinite(wy)) return -1;
    const double gy = windowHeight - wy; // GL terms
    // The last pane drawn over the point is the one on screen.
    for (int s = paneCount - 1; s >= 0; s--) {
        const PaneMap &p = pane[s];
        if (wx < p.x || wx > p.x + p.w || gy < p.y || gy > p.y + p.h) continue;
        double l[2];
        if (!LensAt(p, wx, wy, l)) return -1;
        *fx = boxX + l[0] * boxW;
        *fy = boxY + l[1] * boxH;
        return p.index;
    }
    return -1;
}

bool ViewMap::PaneCentre(int slot, double *fx, double *fy) const
{
    if (slot < 0 || slot >= paneCount) return false;
    const PaneMap &p = pane[slot];
    // Where the very centre shows nothing (a seam, a sliver of background),
    // the nearest point around it that shows the frame, within 16 pixels.
    const double cx = p.x + 0.5 * p.w, cy = windowHeight - (p.y + 0.5 * p.h);
    for (int r = 0; r <= 16; r += 2) {
        for (int k = 0; k < (r ? 8 : 1); k++) {
            double l[2];
            const double a = k * 0.785398163397448;
            if (!LensAt(p, cx + r * std::cos(a), cy + r * std::sin(a), l)) continue;
            *fx = boxX + l[0] * boxW;
            *fy = boxY + l[1] * boxH;
            return true;
        }
    }
    return false;
}

bool ViewMap::FrameToPane(int slot, double fx, double fy, double reach, double *wx, double *wy) const
{
    if (slot < 0 || slot >= paneCount || boxW <= 0 || boxH <= 0) return false;
    const PaneMap &p = pane[slot];
    if (!p.lensPoint || p.w <= 0 || p.h <= 0) return false;
    // The window rectangle searched (y down), the pane grown by `reach`.
    const double top = windowHeight - (p.y + p.h);
    const double cx = p.x + 0.5 * p.w, cy = top + 0.5 * p.h;
    const double hw = 0.5 * p.w * reach, hh = 0.5 * p.h * reach;
    // Frame pixels between the lens point l and the target.
    auto miss = [&](const double l[2], double *ex, double *ey) {
        *ex = boxX + l[0] * boxW - fx;
        *ey = boxY + l[1] * boxH - fy;
        return std::hypot(*ex, *ey);
    };

    // The grid's nearest points, five of them, as starts.
    const int n = kGrid * (reach > 1.0 ? int(std::ceil(reach)) : 1);
    struct Start {
        double d, x, y;
    } best[5] = {{HUGE_VAL, 0, 0}, {HUGE_VAL, 0, 0}, {HUGE_VAL, 0, 0}, {HUGE_VAL, 0, 0}, {HUGE_VAL, 0, 0}};
    for (int j = 0; j <= n; j++) {
        for (int i = 0; i <= n; i++) {
            const double x = cx - hw + 2.0 * hw * i / n, y = cy - hh + 2.0 * hh * j / n;
            double l[2], ex, ey;
            if (!LensAt(p, x, y, l)) continue;
            const double d = miss(l, &ex, &ey);
            for (int b = 0; b < 5; b++) {
                if (d >= best[b].d) continue;
                for (int m = 4; m > b; m--) best[m] = best[m - 1];
                best[b] = {d, x, y};
                break;
            }
        }
    }

    // Newton's steps on the window point, the Jacobian by differences of a
    // quarter pixel (taken backwards where the forward point shows nothing);
    // a step that leaves what the pane shows or lands further off is halved
    // until it doesn't.
    const double step = 0.25, span = 2.0 * (hw > hh ? hw : hh);
    for (const Start &s : best) {
        if (s.d == HUGE_VAL) break;
        double x = s.x, y = s.y, l[2], ex, ey;
        if (!LensAt(p, x, y, l)) continue;
        double err = miss(l, &ex, &ey);
        for (int it = 0; it < 40; it++) {
            if (err < kFound) {
                if (x < cx - hw - 1e-6 || x > cx + hw + 1e-6 || y < cy - hh - 1e-6 || y > cy + hh + 1e-6) break;
                *wx = x, *wy = y;
                return true;
            }
            double lx[2], ly[2], hx = step, hy = step;
            if (!LensAt(p, x + hx, y, lx)) {
                hx = -step;
                if (!LensAt(p, x + hx, y, lx)) break;
            }
            if (!LensAt(p, x, y + hy, ly)) {
                hy = -step;
                if (!LensAt(p, x, y + hy, ly)) break;
            }
            // Frame pixels per window pixel, across and down.
            const double a = (lx[0] - l[0]) * boxW / hx, b = (ly[0] - l[0]) * boxW / hy;
            const double c = (lx[1] - l[1]) * boxH / hx, d = (ly[1] - l[1]) * boxH / hy;
            const double det = a * d - b * c;
            if (det == 0.0 || !std::isfinite(det)) break;
            double dx = -(d * ex - b * ey) / det, dy = -(-c * ex + a * ey) / det;
            // Never longer than a tenth of the region: the mapping bends.
            const double len = std::hypot(dx, dy), most = 0.1 * span;
            if (len > most) dx *= most / len, dy *= most / len;
            bool moved = false;
            for (int half = 0; half < 12 && !moved; half++, dx *= 0.5, dy *= 0.5) {
                double m[2], mx, my;
                if (!LensAt(p, x + dx, y + dy, m)) continue;
                const double e = miss(m, &mx, &my);
                if (e >= err) continue;
                x += dx, y += dy, err = e, ex = mx, ey = my, l[0] = m[0], l[1] = m[1];
                moved = true;
            }
            if (!moved) break;
        }
    }
    return false;
}

double ViewMap::ShrinkShare(double above, double edge) const
{
    const int kSteps = 16;
    double most = 0.0;
    for (int s = 0; s < paneCount; s++) {
        const PaneMap &p = pane[s];
        if (p.w <= 2 || p.h <= 2) continue;
        int shown = 0, shrunk = 0;
        for (int j = 0; j <= kSteps; j++)
            for (int i = 0; i <= kSteps; i++) {
                // A pixel's centre (window terms, y down) and its neighbours
                // across and down, all within the pane.
                const double x = p.x + 0.5 + (p.w - 2) * double(i) / kSteps;
                const double y = windowHeight - (p.y + p.h) + 0.5 + (p.h - 2) * double(j) / kSteps;
                double at[2], ax[2], ay[2];
                if (!LensAt(p, x, y, at) || !LensAt(p, x + 1, y, ax) || !LensAt(p, x, y + 1, ay)) continue;
                shown++;
                const double tx = std::hypot((ax[0] - at[0]) * boxW, (ax[1] - at[1]) * boxH);
                const double ty = std::hypot((ay[0] - at[0]) * boxW, (ay[1] - at[1]) * boxH);
                const double t = tx > ty ? tx : ty;
                if (t > above && t < edge) shrunk++;
            }
        if (shown > 0 && double(shrunk) / shown > most) most = double(shrunk) / shown;
    }
    return most;
}

bool ViewMap::SameAs(const ViewMap &o) const
{
    if (paneCount != o.paneCount || windowWidth != o.windowWidth || windowHeight != o.windowHeight ||
        boxX != o.boxX || boxY != o.boxY || boxW != o.boxW || boxH != o.boxH || lens.dwLaw != o.lens.dwLaw ||
        lens.fFieldOfView != o.lens.fFieldOfView)
        return false;
    for (int i = 0; i < 4; i++)
        if (lens.fK[i] != o.lens.fK[i]) return false;
    for (int s = 0; s < paneCount; s++) {
        const PaneMap &a = pane[s], &b = o.pane[s];
        if (a.index != b.index || a.x != b.x || a.y != b.y || a.w != b.w || a.h != b.h || a.lensPoint != b.lensPoint)
            return false;
        for (int i = 0; i < 16; i++)
            if (a.mvp[i] != b.mvp[i]) return false;
        for (int i = 0; i < 20; i++)
            if (a.k[i] != b.k[i]) return false;
    }
    return true;
}

int ViewMap::FrameToWindow(double fx, double fy, double *wx, double *wy) const
{
    if (!std::isfinite(fx) || !std::isfinite(fy)) return -1;
    // The lowest-numbered pane first.
    int order[kMaxPanes], count = 0;
    for (int s = 0; s < paneCount; s++) order[count++] = s;
    for (int a = 1; a < count; a++)
        for (int b = a; b > 0 && pane[order[b]].index < pane[order[b - 1]].index; b--) {
            const int t = order[b];
            order[b] = order[b - 1], order[b - 1] = t;
        }
    for (int k = 0; k < count; k++) {
        double x, y;
        if (!FrameToPane(order[k], fx, fy, 1.0, &x, &y)) continue;
        // Another pane drawn over this point (none of the views overlap
        // theirs, but the answer must be what the window shows).
        double gx, gy;
        if (WindowToFrame(x, y, &gx, &gy) != pane[order[k]].index) continue;
        *wx = x, *wy = y;
        return pane[order[k]].index;
    }
    return -1;
}

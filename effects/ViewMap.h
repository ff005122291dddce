// Where the points of the frame show in a view's picture, and back: the
// mapping of the picture last drawn, kept as a value the host's thread can
// ask while the render thread draws the next one.
//
// A draw records each pane it drew: its viewport, the pass's whole matrix
// and the view's own function that takes the ray of one of the pane's pixels
// to the point of the lens box that pixel shows (the processor's copy of the
// view's fragment stage: the same surface, the same bend, the same lens
// law). Everything else is shared here: window pixels to the ray, lens box
// to frame pixels, and the way back from a frame point to the window, which
// is solved against the forward mapping (a grid over each pane, then
// Newton's steps), so that both ways always agree with each other and with
// the pixels.
#ifndef PANOVIEW_VIEWMAP_H
#define PANOVIEW_VIEWMAP_H

#include "ZT5Records.h"

// The ray one pixel sees, in the space of the pass's mesh: from its point on
// the near plane o, o + d its point on the far plane.
struct PaneRay {
    double o[3], d[3];
};

struct PaneMap;
// What the pixel whose ray is `ray` shows: the point p of the lens box (the
// unit square, (0, 0) its top left as the frame is stored). False where the
// pixel shows no point of the frame (background, outside the lens circle,
// black edges).
using LensPointFn = bool (*)(const PaneMap &pane, const ZT5LensModel &lens, const PaneRay &ray, double p[2]);

// One pane of the last draw.
struct PaneMap {
    int index = 0;                  // the pane's number in its view
    int x = 0, y = 0, w = 0, h = 0; // viewport, window pixels, y from the bottom
    float mvp[16] = {};             // the pass's whole matrix
    double inverse[16] = {};        // its inverse (SetMatrix), when invertible
    bool invertible = false;
    LensPointFn lensPoint = nullptr;
    float k[20] = {};               // the view's numbers for lensPoint

    // Keeps the pass's whole matrix and its inverse, worked out once here
    // rather than for every point asked.
    void SetMatrix(const float *m);
};

// The whole mapping of one draw.
struct ViewMap {
    static const int kMaxPanes = 4;
    int paneCount = 0;
    PaneMap pane[kMaxPanes];
    int windowWidth = 0, windowHeight = 0;
    // The lens box in frame pixels (as pushed: before any cut), origin and size.
    double boxX = 0, boxY = 0, boxW = 0, boxH = 0;
    ZT5LensModel lens = {0, 0.0f, {0.0f, 0.0f, 0.0f, 0.0f}};

    // Window point (pixels from the window's top left) to frame point.
    // The pane's number, or -1 where the point shows nothing.
    int WindowToFrame(double wx, double wy, double *fx, double *fy) const;
    // Frame point to window point: the lowest-numbered pane that shows it,
    // or -1.
    int FrameToWindow(double fx, double fy, double *wx, double *wy) const;
    // The frame point the centre of pane slot `slot` shows (or, where the
    // centre shows nothing, the nearest point within 16 pixels that shows
    // one); false for none.
    bool PaneCentre(int slot, double *fx, double *fy) const;
    // Frame point to window point in one pane (slot), searched also up to
    // `reach` pane sizes beyond its viewport (1: within it). False where
    // the pane doesn't show it there.
    bool FrameToPane(int slot, double fx, double fy, double reach, double *wx, double *wy) const;

    // How much of the picture the draw shrank: over a grid of 17 x 17
    // pixels of each pane, the window pixels whose step to the next pixel
    // across or down spans more than `above` frame pixels (and less than
    // `edge`, beyond which the step jumps over an edge of the view's
    // surface rather than shrinking it), as a share of the grid's pixels
    // that show the frame; the largest share of any pane.
    double ShrinkShare(double above, double edge) const;
    // The same mapping: panes, window, lens box and lens model alike.
    bool SameAs(const ViewMap &o) const;

private:
    bool LensAt(const PaneMap &p, double wx, double wy, double point[2]) const;
};

// The inverse of a column-major 4 x 4 matrix, computed in double
// precision; false (out untouched) for a singular one.
bool InvertMatrix4(const float *m, float *out);

#endif

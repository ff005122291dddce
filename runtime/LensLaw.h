// The lens's projection as arithmetic: which records are lenses at all, and
// where a direction lands on the lens circle. One definition for every layer
// (the front end refuses bad records with it, the views draw with it; the
// fisheye views' GLSL stage mirrors LensLawRadius term by term).
#ifndef PANOVIEW_LENSLAW_H
#define PANOVIEW_LENSLAW_H

#include "ZT5Config.h"
#include "ZT5Records.h"

// The equidistant 180-degree lens every view assumed before the model could
// be set.
const ZT5LensModel kLensDefault = {0, 180.0f, {0.0f, 0.0f, 0.0f, 0.0f}};

// A record as the views take it: a field of view of 0 reads as 180.
ZT5LensModel LensLawNormalised(const ZT5LensModel &m);

// Whether a record describes a lens: a known law, a field of view within
// 60..360 degrees (orthographic up to 180, where sin stops growing;
// stereographic below 360, where tan(theta / 2) is infinite: the circle
// would stand for an infinite radius), finite coefficients, and a polynomial
// that grows over 0..fov / 2 (its derivative 1 + 3 k1 t^2 + 5 k2 t^4 +
// 7 k3 t^6 + 9 k4 t^8 stays above 0, checked finely).
bool LensLawValid(const ZT5LensModel &m);

// f(theta) of the law, theta in radians off the axis.
double LensLawF(const ZT5LensModel &m, double theta);
// 1 / f(fov / 2): f times this is the fraction of the circle's radius.
double LensLawScale(const ZT5LensModel &m);
// The fraction of the lens circle's radius at which the direction theta
// (radians off the axis) lands: 1 at half the field of view.
double LensLawRadius(const ZT5LensModel &m, double theta);

#endif

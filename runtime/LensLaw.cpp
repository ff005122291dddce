#include "LensLaw.h"

#include <cmath>

namespace {
const double kPi = 3.14159265358979323846;
const double kDegToRad = kPi / 180.0;
} // namespace

ZT5LensModel LensLawNormalised(const ZT5LensModel &m)
{
    ZT5LensModel n = m;
    if (n.fFieldOfView == 0.0f) n.fFieldOfView = 180.0f;
    return n;
}

bool LensLawValid(const ZT5LensModel &record)
{
    const ZT5LensModel m = LensLawNormalised(record);
    if (m.dwLaw > ZT5_LENS_POLYNOMIAL) return false;
    for (float k : m.fK)
        if (!std::isfinite(k)) return false;
    const float fov = m.fFieldOfView;
    if (!std::isfinite(fov) || fov < 60.0f || fov > 360.0f) return false;
    if (m.dwLaw == ZT5_LENS_ORTHOGRAPHIC && fov > 180.0f) return false;
    if (m.dwLaw == ZT5_LENS_STEREOGRAPHIC && fov >= 360.0f) return false;
    if (m.dwLaw == ZT5_LENS_POLYNOMIAL) {
        const double half = fov * 0.5 * kDegToRad;
        const int kSteps = 4096;
        for (int i = 0; i <= kSteps; i++) {
            const double t = half * i / kSteps, t2 = t * t;
            const double d = 1.0 + t2 * (3.0 * m.fK[0] + t2 * (5.0 * m.fK[1] + t2 * (7.0 * m.fK[2] + t2 * 9.0 * m.fK[3])));
            if (!(d > 0.0)) return false;
        }
    }
    return true;
}

double LensLawF(const ZT5LensModel &m, double theta)
{
    switch (m.dwLaw) {
    case ZT5_LENS_EQUISOLID: return std::sin(theta * 0.5);
    case ZT5_LENS_STEREOGRAPHIC: return std::tan(theta * 0.5);
    case ZT5_LENS_ORTHOGRAPHIC: return std::sin(theta);
    case ZT5_LENS_POLYNOMIAL: {
        const double t2 = theta * theta;
        return theta * (1.0 + t2 * (m.fK[0] + t2 * (m.fK[1] + t2 * (m.fK[2] + t2 * m.fK[3]))));
    }
    default: return theta;
    }
}

double LensLawScale(const ZT5LensModel &record)
{
    const ZT5LensModel m = LensLawNormalised(record);
    const double edge = LensLawF(m, m.fFieldOfView * 0.5 * kDegToRad);
    return edge > 0.0 ? 1.0 / edge : 0.0;
}

double LensLawRadius(const ZT5LensModel &m, double theta)
{
    return LensLawF(m, theta) * LensLawScale(m);
}

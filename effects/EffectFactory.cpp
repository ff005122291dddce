#include "EffectFactory.h"

#include <new>

#include "CommonEffect.h"
#include "PlaceholderEffect.h"
#include "fisheye/CylinderSide.h"
#include "fisheye/HalfSphere.h"

GlesRenderEffect *CreateRenderEffect(MDWord nFishEyeMode, MDWord dwFEPlatform)
{
    switch (nFishEyeMode) {
    // Each view replaces its placeholder here as it is built.
    case 0:
        return new (std::nothrow) CommonEffect();
    case 1:
        return new (std::nothrow) HalfSphere(dwFEPlatform);
    case 2:
        return new (std::nothrow) CylinderSide();
    default:
        if (nFishEyeMode > FISHEYE_MODE_MAX) return nullptr;
        return new (std::nothrow) PlaceholderEffect();
    }
}

bool RenderEffectUsesDepth(MDWord nFishEyeMode)
{
    return nFishEyeMode == 5 || nFishEyeMode == 6;
}

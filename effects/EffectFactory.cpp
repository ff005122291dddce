#include "EffectFactory.h"

#include <new>

#include "PlaceholderEffect.h"

GlesRenderEffect *CreateRenderEffect(MDWord nFishEyeMode, MDWord dwFEPlatform)
{
    (void)dwFEPlatform;
    switch (nFishEyeMode) {
    // Each view replaces its placeholder here as it is built.
    default:
        if (nFishEyeMode > FISHEYE_MODE_MAX) return nullptr;
        return new (std::nothrow) PlaceholderEffect();
    }
}

bool RenderEffectUsesDepth(MDWord nFishEyeMode)
{
    return nFishEyeMode == 5 || nFishEyeMode == 6;
}

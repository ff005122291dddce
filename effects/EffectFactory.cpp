#include "EffectFactory.h"

#include <new>

#include "PlaceholderEffect.h"

// The views, each in a file of its own.
extern const ViewTraits kCommonEffectTraits;
GlesRenderEffect *MakeCommonEffect(MDWord dwFEPlatform);
extern const ViewTraits kHalfSphereTraits;
GlesRenderEffect *MakeHalfSphere(MDWord dwFEPlatform);
extern const ViewTraits kCylinderSideTraits;
GlesRenderEffect *MakeCylinderSide(MDWord dwFEPlatform);

namespace {

GlesRenderEffect *MakePlaceholder(MDWord)
{
    return new (std::nothrow) PlaceholderEffect();
}

// Traits: lens box, depth test, background layers, opening animation, cruise.
// Views not built yet draw nothing but the background; their traits are
// what the layers above already rely on (the lens box, the depth test).
const ViewTraits kSquareTraits = {LensBox::Square, false, false, false, false};
const ViewTraits kDepthTraits = {LensBox::Square, true, false, false, false};
const ViewTraits kRectangleTraits = {LensBox::Rectangle, false, false, false, false};

struct ViewEntry {
    const ViewTraits *traits;
    GlesRenderEffect *(*make)(MDWord dwFEPlatform);
};

const ViewEntry kViews[FISHEYE_MODE_MAX + 1] = {
    {&kCommonEffectTraits, MakeCommonEffect},  // 0 plain view
    {&kHalfSphereTraits, MakeHalfSphere},      // 1 half sphere
    {&kCylinderSideTraits, MakeCylinderSide},  // 2 panorama strip
    {&kSquareTraits, MakePlaceholder},         // 3 four panes
    {&kSquareTraits, MakePlaceholder},         // 4 map and perspective pane
    {&kDepthTraits, MakePlaceholder},          // 5 cylinder from outside
    {&kDepthTraits, MakePlaceholder},          // 6 dome from outside
    {&kSquareTraits, MakePlaceholder},         // 7 wall: panorama under two side views
    {&kSquareTraits, MakePlaceholder},         // 8 wall: overview and close pane
    {&kSquareTraits, MakePlaceholder},         // 9 wall: one pane
    {&kRectangleTraits, MakePlaceholder},      // 10 wall: one pane, 180-degree lens
};

} // namespace

GlesRenderEffect *CreateRenderEffect(MDWord nFishEyeMode, MDWord dwFEPlatform)
{
    if (nFishEyeMode > FISHEYE_MODE_MAX) return nullptr;
    return kViews[nFishEyeMode].make(dwFEPlatform);
}

const ViewTraits &GetViewTraits(MLong lFishEyeMode)
{
    if (lFishEyeMode < 0 || lFishEyeMode > FISHEYE_MODE_MAX) return kSquareTraits;
    return *kViews[lFishEyeMode].traits;
}

bool RenderEffectUsesDepth(MDWord nFishEyeMode)
{
    return GetViewTraits(MLong(nFishEyeMode)).depthTest;
}

#include "EffectFactory.h"

#include <new>

#include "ViewEffect.h"

// The views, each in a file of its own.
extern const ViewTraits kCommonEffectTraits;
GlesRenderEffect *MakeCommonEffect(MDWord dwFEPlatform);
extern const ViewTraits kHalfSphereTraits;
GlesRenderEffect *MakeHalfSphere(MDWord dwFEPlatform);
extern const ViewTraits kCylinderSideTraits;
GlesRenderEffect *MakeCylinderSide(MDWord dwFEPlatform);
extern const ViewTraits kMultiViewTraits;
GlesRenderEffect *MakeMultiView(MDWord dwFEPlatform);
extern const ViewTraits kMultiViewMapTraits;
GlesRenderEffect *MakeMultiViewMap(MDWord dwFEPlatform);
extern const ViewTraits kCylinderSphereTraits;
GlesRenderEffect *MakeCylinderSphere(MDWord dwFEPlatform);
GlesRenderEffect *MakeCylinderDome(MDWord dwFEPlatform);

namespace {

// A view not built yet: it clears to the background colour, keeps a saved
// state record as it comes, and has the traits the layers above already
// rely on for its mode (the lens box, the depth test).
class PlaceholderView final : public ViewEffect {
public:
    explicit PlaceholderView(const ViewTraits &traits) : ViewEffect("PlaceholderView", traits) {}

private:
    MRESULT Build() override { return 0; }
    void Project(MLong, MLong) override {}
    void StepCamera() override {}
    void Draw(const Frame &) override {}
};

// Traits: lens box, depth test, background layers, opening animation, cruise.
const ViewTraits kSquareTraits = {LensBox::Square, false, false, false, false};
const ViewTraits kRectangleTraits = {LensBox::Rectangle, false, false, false, false};

struct ViewEntry {
    const ViewTraits *traits;
    GlesRenderEffect *(*make)(MDWord dwFEPlatform); // null: a placeholder
};

const ViewEntry kViews[FISHEYE_MODE_MAX + 1] = {
    {&kCommonEffectTraits, MakeCommonEffect},  // 0 plain view
    {&kHalfSphereTraits, MakeHalfSphere},      // 1 half sphere
    {&kCylinderSideTraits, MakeCylinderSide},  // 2 panorama strip
    {&kMultiViewTraits, MakeMultiView},        // 3 four panes
    {&kMultiViewMapTraits, MakeMultiViewMap},  // 4 map and perspective pane
    {&kCylinderSphereTraits, MakeCylinderSphere}, // 5 cylinder from outside
    {&kCylinderSphereTraits, MakeCylinderDome},   // 6 dome from outside
    {&kSquareTraits, nullptr},                 // 7 wall: panorama under two side views
    {&kSquareTraits, nullptr},                 // 8 wall: overview and close pane
    {&kSquareTraits, nullptr},                 // 9 wall: one pane
    {&kRectangleTraits, nullptr},              // 10 wall: one pane, 180-degree lens
};

} // namespace

GlesRenderEffect *CreateRenderEffect(MDWord nFishEyeMode, MDWord dwFEPlatform)
{
    if (nFishEyeMode > FISHEYE_MODE_MAX) return nullptr;
    const ViewEntry &e = kViews[nFishEyeMode];
    if (!e.make) return new (std::nothrow) PlaceholderView(*e.traits);
    return e.make(dwFEPlatform);
}

const ViewTraits &GetViewTraits(MLong lFishEyeMode)
{
    if (lFishEyeMode < 0 || lFishEyeMode > FISHEYE_MODE_MAX) return kSquareTraits;
    return *kViews[lFishEyeMode].traits;
}

// Makes the view object of a FishEyeMode (0 plain view, 1..10 fisheye) and
// tells what the other layers need to know of each view (ViewTraits.h).
#ifndef PANOVIEW_EFFECTFACTORY_H
#define PANOVIEW_EFFECTFACTORY_H

#include "GlesRenderEffect.h"
#include "ViewTraits.h"

#define FISHEYE_MODE_MAX 10

// nFishEyeMode 0..10; dwFEPlatform goes to the half sphere. Null on
// failure or for a mode out of range. Call with the GL context current.
GlesRenderEffect *CreateRenderEffect(MDWord nFishEyeMode, MDWord dwFEPlatform);

#endif

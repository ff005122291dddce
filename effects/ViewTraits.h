// What the layers above a view need to know of it, without GL and without
// testing mode numbers: the manager cuts the lens box by it, the renderer
// switches depth test, background and animation by it.
#ifndef PANOVIEW_VIEWTRAITS_H
#define PANOVIEW_VIEWTRAITS_H

#include "MRuntime.h"

// The part of the frame a view receives.
enum class LensBox : unsigned char {
    Whole,     // the whole frame (the plain view)
    Square,    // the square around the lens circle
    Rectangle, // a rectangle around it: the circle is wider than the picture is high
};

struct ViewTraits {
    LensBox lensBox;
    bool depthTest;        // drawn with GL_DEPTH_TEST on
    bool backgroundLayers; // takes the cloud and star switches
    bool openingAnimation; // takes the opening animation switch
    bool cruises;          // has an automatic cruise and reports its state (else -1)
    bool aims = true;      // has a camera that can be aimed at a frame point
};

// The traits of the view of a FishEyeMode (0..10). A mode without a view
// gets those of a view with a square lens box and nothing else.
const ViewTraits &GetViewTraits(MLong lFishEyeMode);

#endif

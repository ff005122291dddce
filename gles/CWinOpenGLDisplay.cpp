// Placeholder until the render object lands: no renderer can be made.
#include "MDisplayMgr.h"

IZT5VideoRenderer *CreateWinOpenGLDisplay()
{
    return nullptr;
}

/* The host's view of Panoview: two exported functions, a factory and the
 * display interface. Load the library, look up ZT_GetPlugin with dlsym (or
 * GetProcAddress), create a display with type and sub-type 'disp'. */
#ifndef ZT5_PLUGIN_H
#define ZT5_PLUGIN_H

#include <stdint.h>
#include "ZT5Config.h"
#include "ZT5Errors.h"
#include "ZT5Records.h"

#if defined(_WIN32)
#  define ZT5_EXPORT __declspec(dllexport)
#else
#  define ZT5_EXPORT __attribute__((visibility("default")))
#endif

/* Display object, created by IZT5Plugin::CreateObject. */
class IZT5Display {
public:
    virtual ~IZT5Display() {}
    virtual int32_t Init(const ZT5DisplayParam *pDisplayParam) = 0;
    virtual int32_t Uninit() = 0;
    virtual int32_t DrawFrame(void *pBuffer, const ZT5FrameInfo *pFrameInfo, uint32_t bSkipRender) = 0;
    virtual int32_t ShowDisplayOverlay(uint32_t bShow) = 0;
    virtual int32_t SetDisplayParam(uint32_t dwParamID, void *pValue) = 0;
    virtual int32_t GetDisplayParam(uint32_t dwParamID, void *pValue) = 0;
};

/* Plug-in factory. */
class IZT5Plugin {
public:
    virtual ~IZT5Plugin() {}
    virtual int32_t QueryType(uint32_t dwType) = 0;
    virtual int32_t ReleaseType(uint32_t dwType) = 0;
    virtual int32_t CreateObject(uint32_t dwType, uint32_t dwSubType, void **ppObject) = 0;
    virtual int32_t DestroyObject(uint32_t dwType, uint32_t dwSubType, void *pObject) = 0;
};

typedef int32_t (*PFN_ZT_GetPlugin)(IZT5Plugin **ppPlugin);
typedef int32_t (*PFN_ZT_ReleasePlugin)(IZT5Plugin *pPlugin);

extern "C" {
ZT5_EXPORT int32_t ZT_GetPlugin(IZT5Plugin **ppPlugin);
ZT5_EXPORT int32_t ZT_ReleasePlugin(IZT5Plugin *pPlugin);
}

#endif

// The plug-in boundary: the two exported functions and the factory.
#include "CZT5PluginPanoview.h"

#include <new>

#include "CZT5Panoview.h"

int32_t CZT5PluginPanoview::QueryType(uint32_t dwType)
{
    return dwType == ZT5_PLUGIN_TYPE_DISP ? 0 : ZT5_ERR_UNKNOWN_TYPE;
}

int32_t CZT5PluginPanoview::ReleaseType(uint32_t dwType)
{
    return dwType == ZT5_PLUGIN_TYPE_DISP ? 0 : ZT5_ERR_UNKNOWN_TYPE;
}

int32_t CZT5PluginPanoview::CreateObject(uint32_t dwType, uint32_t dwSubType, void **ppObject)
{
    if (!ppObject) return ZT5_ERR_INVALID_PARAM;
    *ppObject = nullptr;
    if (dwType != ZT5_PLUGIN_TYPE_DISP || dwSubType != ZT5_PLUGIN_TYPE_DISP) return ZT5_ERR_INVALID_PARAM;
    CZT5Panoview *pDisplay = new (std::nothrow) CZT5Panoview();
    if (!pDisplay) return ZT5_ERR_NO_MEMORY;
    *ppObject = static_cast<IZT5Display *>(pDisplay);
    return 0;
}

int32_t CZT5PluginPanoview::DestroyObject(uint32_t dwType, uint32_t dwSubType, void *pObject)
{
    if (!pObject || dwType != ZT5_PLUGIN_TYPE_DISP || dwSubType != ZT5_PLUGIN_TYPE_DISP)
        return ZT5_ERR_INVALID_PARAM;
    delete static_cast<IZT5Display *>(pObject);
    return 0;
}

extern "C" {

ZT5_EXPORT int32_t ZT_GetPlugin(IZT5Plugin **ppPlugin)
{
    if (!ppPlugin) return ZT5_ERR_INVALID_PARAM;
    IZT5Plugin *pPlugin = new (std::nothrow) CZT5PluginPanoview();
    if (!pPlugin) return ZT5_ERR_NO_MEMORY;
    *ppPlugin = pPlugin;
    return 0;
}

ZT5_EXPORT int32_t ZT_ReleasePlugin(IZT5Plugin *pPlugin)
{
    if (!pPlugin) return ZT5_ERR_INVALID_PARAM;
    delete pPlugin;
    return 0;
}

} // extern "C"

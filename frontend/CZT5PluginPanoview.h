// The plug-in factory: serves type and sub-type 'disp' and makes display
// objects. It has no state; displays outlive it if the host wishes.
#ifndef PANOVIEW_CZT5PLUGINPANOVIEW_H
#define PANOVIEW_CZT5PLUGINPANOVIEW_H

#include "ZT5Plugin.h"

class CZT5PluginPanoview : public IZT5Plugin {
public:
    CZT5PluginPanoview() = default;
    ~CZT5PluginPanoview() override = default;

    int32_t QueryType(uint32_t dwType) override;
    int32_t ReleaseType(uint32_t dwType) override;
    int32_t CreateObject(uint32_t dwType, uint32_t dwSubType, void **ppObject) override;
    int32_t DestroyObject(uint32_t dwType, uint32_t dwSubType, void *pObject) override;
};

#endif

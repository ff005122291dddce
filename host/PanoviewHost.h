// The demo's side of the plug-in boundary: load libPanoview.so with dlopen,
// get the factory, create and drive one display object. Public headers only.
#ifndef PANOVIEW_HOST_PANOVIEWHOST_H
#define PANOVIEW_HOST_PANOVIEWHOST_H

#include <string>

#include "ZT5Plugin.h"

class PanoviewLibrary {
public:
    PanoviewLibrary() = default;
    ~PanoviewLibrary(); // ZT_ReleasePlugin, then dlclose
    PanoviewLibrary(const PanoviewLibrary &) = delete;
    PanoviewLibrary &operator=(const PanoviewLibrary &) = delete;

    // dlopen + ZT_GetPlugin.
    bool Load(const std::string &path, std::string *error);
    IZT5Plugin *plugin() const { return m_plugin; }

private:
    void *m_handle = nullptr;
    PFN_ZT_ReleasePlugin m_release = nullptr;
    IZT5Plugin *m_plugin = nullptr;
};

// One display object: CreateObject ... DestroyObject.
class PanoviewDisplay {
public:
    PanoviewDisplay() = default;
    ~PanoviewDisplay(); // Uninit if needed, DestroyObject
    PanoviewDisplay(const PanoviewDisplay &) = delete;
    PanoviewDisplay &operator=(const PanoviewDisplay &) = delete;

    bool Create(IZT5Plugin *plugin, std::string *error);
    void SetVerbose(bool v) { m_verbose = v; }

    // SetDisplayParam; logs a refusal (and every call when verbose).
    int32_t Set(uint32_t id, void *value, const char *name);
    int32_t SetU32(uint32_t id, uint32_t value, const char *name);
    int32_t Get(uint32_t id, void *value) { return m_display->GetDisplayParam(id, value); }

    int32_t Init(uint32_t hWnd, int width, int height);
    // ZT5_CFG_DISPLAY_PARAM: the window record after a resize.
    int32_t SetWindow(uint32_t hWnd, int width, int height);
    int32_t Draw(void *frame, const ZT5FrameInfo &info) { return m_display->DrawFrame(frame, &info, 0); }
    void Uninit();

    static ZT5DisplayParam WindowRecord(uint32_t hWnd, int width, int height);

private:
    IZT5Plugin *m_plugin = nullptr;
    IZT5Display *m_display = nullptr;
    bool m_inited = false;
    bool m_verbose = false;
};

#endif

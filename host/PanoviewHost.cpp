#include "PanoviewHost.h"

#include <dlfcn.h>

#include <cstdio>

PanoviewLibrary::~PanoviewLibrary()
{
    if (m_plugin) m_release(m_plugin);
    if (m_handle) dlclose(m_handle);
}

bool PanoviewLibrary::Load(const std::string &path, std::string *error)
{
    m_handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!m_handle) {
        const char *e = dlerror();
        *error = std::string("cannot load ") + path + ": " + (e ? e : "unknown error");
        return false;
    }
    auto get = reinterpret_cast<PFN_ZT_GetPlugin>(dlsym(m_handle, "ZT_GetPlugin"));
    m_release = reinterpret_cast<PFN_ZT_ReleasePlugin>(dlsym(m_handle, "ZT_ReleasePlugin"));
    if (!get || !m_release) {
        *error = path + " doesn't export ZT_GetPlugin and ZT_ReleasePlugin";
        return false;
    }
    IZT5Plugin *plugin = nullptr;
    int32_t res = get(&plugin);
    if (res != ZT5_OK || !plugin) {
        *error = "ZT_GetPlugin failed with " + std::to_string(res);
        return false;
    }
    m_plugin = plugin;
    return true;
}

PanoviewDisplay::~PanoviewDisplay()
{
    if (!m_display) return;
    Uninit();
    m_plugin->DestroyObject(ZT5_PLUGIN_TYPE_DISP, ZT5_PLUGIN_TYPE_DISP, m_display);
}

bool PanoviewDisplay::Create(IZT5Plugin *plugin, std::string *error)
{
    void *obj = nullptr;
    int32_t res = plugin->CreateObject(ZT5_PLUGIN_TYPE_DISP, ZT5_PLUGIN_TYPE_DISP, &obj);
    if (res != ZT5_OK || !obj) {
        *error = "CreateObject failed with " + std::to_string(res);
        return false;
    }
    m_plugin = plugin;
    m_display = static_cast<IZT5Display *>(obj);
    return true;
}

int32_t PanoviewDisplay::Set(uint32_t id, void *value, const char *name)
{
    int32_t res = m_display->SetDisplayParam(id, value);
    if (res != ZT5_OK) std::fprintf(stderr, "SetDisplayParam(%s) refused: %d\n", name, res);
    else if (m_verbose) std::printf("SetDisplayParam(%s) ok\n", name);
    return res;
}

int32_t PanoviewDisplay::SetU32(uint32_t id, uint32_t value, const char *name)
{
    if (m_verbose) std::printf("%s = %u\n", name, value);
    return Set(id, &value, name);
}

ZT5DisplayParam PanoviewDisplay::WindowRecord(uint32_t hWnd, int width, int height)
{
    ZT5DisplayParam p = {};
    p.hWnd = hWnd;
    p.rtScreen = {0, 0, width, height};
    p.rtClip = p.rtScreen;
    return p;
}

int32_t PanoviewDisplay::Init(uint32_t hWnd, int width, int height)
{
    ZT5DisplayParam p = WindowRecord(hWnd, width, height);
    int32_t res = m_display->Init(&p);
    m_inited = res == ZT5_OK;
    return res;
}

int32_t PanoviewDisplay::SetWindow(uint32_t hWnd, int width, int height)
{
    ZT5DisplayParam p = WindowRecord(hWnd, width, height);
    return Set(ZT5_CFG_DISPLAY_PARAM, &p, "DISPLAY_PARAM");
}

void PanoviewDisplay::Uninit()
{
    if (m_inited) m_display->Uninit();
    m_inited = false;
}

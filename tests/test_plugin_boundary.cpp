// The plug-in boundary as a host sees it: the real library loaded with
// dlopen, its two exported functions, the factory, and the public headers.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <set>
#include <string>

#include "ZT5Plugin.h"

namespace {

struct Lib {
    void *h = nullptr;
    PFN_ZT_GetPlugin get = nullptr;
    PFN_ZT_ReleasePlugin rel = nullptr;
    Lib()
    {
        h = dlopen(PANOVIEW_LIB_PATH, RTLD_NOW | RTLD_LOCAL);
        if (!h) return;
        get = reinterpret_cast<PFN_ZT_GetPlugin>(dlsym(h, "ZT_GetPlugin"));
        rel = reinterpret_cast<PFN_ZT_ReleasePlugin>(dlsym(h, "ZT_ReleasePlugin"));
    }
    ~Lib()
    {
        if (h) dlclose(h);
    }
};

std::string RunCommand(const std::string &cmd)
{
    std::string out;
    FILE *p = popen(cmd.c_str(), "r");
    if (!p) return out;
    char buf[512];
    while (fgets(buf, sizeof(buf), p)) out += buf;
    pclose(p);
    return out;
}

} // namespace

TEST(PluginBoundary, ExportedFunctionsAndFactory)
{
    Lib lib;
    ASSERT_NE(lib.h, nullptr) << dlerror();
    ASSERT_NE(lib.get, nullptr);
    ASSERT_NE(lib.rel, nullptr);
    EXPECT_EQ(lib.get(nullptr), ZT5_ERR_INVALID_PARAM);
    EXPECT_EQ(lib.rel(nullptr), ZT5_ERR_INVALID_PARAM);

    IZT5Plugin *plugin = nullptr;
    ASSERT_EQ(lib.get(&plugin), 0);
    ASSERT_NE(plugin, nullptr);
    // The type is a number; its bytes read "psid" on a little-endian machine.
    const char bytes[4] = {'p', 's', 'i', 'd'};
    uint32_t disp;
    memcpy(&disp, bytes, 4);
    EXPECT_EQ(disp, ZT5_PLUGIN_TYPE_DISP);
    EXPECT_EQ(plugin->QueryType(disp), 0);
    EXPECT_EQ(plugin->ReleaseType(disp), 0);
    EXPECT_EQ(plugin->QueryType(0x64697371), ZT5_ERR_UNKNOWN_TYPE);
    EXPECT_EQ(plugin->ReleaseType(0), ZT5_ERR_UNKNOWN_TYPE);

    void *obj = reinterpret_cast<void *>(0x1);
    EXPECT_EQ(plugin->CreateObject(disp, disp, nullptr), ZT5_ERR_INVALID_PARAM);
    EXPECT_EQ(plugin->CreateObject(disp, 0x76696465, &obj), ZT5_ERR_INVALID_PARAM) << "not 6";
    EXPECT_EQ(obj, nullptr) << "the out pointer is cleared first";
    obj = reinterpret_cast<void *>(0x1);
    EXPECT_EQ(plugin->CreateObject(0, disp, &obj), ZT5_ERR_INVALID_PARAM);
    EXPECT_EQ(obj, nullptr);

    void *a = nullptr, *b = nullptr;
    ASSERT_EQ(plugin->CreateObject(disp, disp, &a), 0);
    ASSERT_EQ(plugin->CreateObject(disp, disp, &b), 0);
    ASSERT_NE(a, nullptr);
    ASSERT_NE(a, b);
    // A wrong type doesn't destroy the object: it still answers afterwards.
    EXPECT_EQ(plugin->DestroyObject(0, disp, a), ZT5_ERR_INVALID_PARAM);
    EXPECT_EQ(plugin->DestroyObject(disp, 1, a), ZT5_ERR_INVALID_PARAM);
    EXPECT_EQ(plugin->DestroyObject(disp, disp, nullptr), ZT5_ERR_INVALID_PARAM);
    uint32_t zoom = 0;
    EXPECT_EQ(static_cast<IZT5Display *>(a)->GetDisplayParam(ZT5_CFG_DISPLAY_ZOOM, &zoom), 0);
    EXPECT_EQ(zoom, 100u);
    EXPECT_EQ(plugin->DestroyObject(disp, disp, a), 0);

    // The factory may go before its displays.
    EXPECT_EQ(lib.rel(plugin), 0);
    IZT5Display *d = static_cast<IZT5Display *>(b);
    ZT5DisplayParam rec = {};
    rec.hWnd = 0x1234;
    rec.rtScreen = {0, 0, 320, 240};
    EXPECT_EQ(d->Init(&rec), 0);
    EXPECT_EQ(d->Uninit(), 0);
    delete d;
}

TEST(PluginBoundary, OnlyTheTwoFunctionsAreExported)
{
    std::string out = RunCommand(std::string("nm -D --defined-only '") + PANOVIEW_LIB_PATH + "' 2>/dev/null");
    if (out.empty()) GTEST_SKIP() << "nm not available";
    std::set<std::string> names;
    size_t pos = 0;
    while (pos < out.size()) {
        size_t eol = out.find('\n', pos);
        std::string line = out.substr(pos, eol == std::string::npos ? std::string::npos : eol - pos);
        pos = eol == std::string::npos ? out.size() : eol + 1;
        size_t sp = line.rfind(' ');
        if (sp == std::string::npos) continue;
        char type = sp >= 1 ? line[sp - 1] : ' ';
        if (type == 'T' || type == 'D' || type == 'B' || type == 'W' || type == 'V' || type == 'R' || type == 'i')
            names.insert(line.substr(sp + 1));
    }
    std::set<std::string> want = {"ZT_GetPlugin", "ZT_ReleasePlugin"};
    EXPECT_EQ(names, want) << out;
}

// A host compiles against include/ alone.
TEST(PluginBoundary, PublicHeadersStandAlone)
{
    const char *cxx = std::getenv("CXX");
    std::string compiler = cxx && *cxx ? cxx : "c++";
    if (std::system((compiler + " --version >/dev/null 2>&1").c_str()) != 0) GTEST_SKIP() << "no compiler";
    char dir[] = "/tmp/panoview-hdrXXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    std::string src = std::string(dir) + "/host.cpp";
    {
        std::ofstream f(src);
        f << "#include \"ZT5Plugin.h\"\n#include \"ZT5Mutex.h\"\n#include <dlfcn.h>\n"
             "int main() {\n"
             "  void *h = dlopen(\"libPanoview.so\", RTLD_NOW);\n"
             "  if (!h) return 1;\n"
             "  PFN_ZT_GetPlugin get = (PFN_ZT_GetPlugin)dlsym(h, \"ZT_GetPlugin\");\n"
             "  IZT5Plugin *p = 0; if (!get || get(&p)) return 2;\n"
             "  void *o = 0; p->CreateObject(ZT5_PLUGIN_TYPE_DISP, ZT5_PLUGIN_TYPE_DISP, &o);\n"
             "  IZT5Display *d = (IZT5Display *)o; ZT5DisplayParam r = {}; ZT5FrameInfo fi = {};\n"
             "  ZT5UICallbackRecord ui = {}; CZT5Mutex m; (void)ui; (void)m;\n"
             "  d->Init(&r); d->DrawFrame(0, &fi, 0); return 0;\n}\n";
    }
    std::string obj = std::string(dir) + "/host.o";
    std::string cmd = compiler + " -std=c++17 -Wall -Werror -c -I '" PANOVIEW_SOURCE_DIR "/include' '" + src +
                      "' -o '" + obj + "' 2>&1";
    std::string out = RunCommand(cmd);
    std::ifstream check(obj);
    EXPECT_TRUE(check.good()) << cmd << "\n" << out;
    std::system((std::string("rm -rf '") + dir + "'").c_str());
}

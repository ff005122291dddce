// A render object that is always up and ignores every frame: measures the
// frame road down to the copy without any drawing.
#ifndef PANOVIEW_BENCH_NULLRENDERER_H
#define PANOVIEW_BENCH_NULLRENDERER_H

#include <cstring>

#include "MDisplayMgr.h"

class BenchNullRenderer : public IZT5VideoRenderer {
public:
    MRESULT getConfig(MDWord dwID, void *pValue) override
    {
        if (dwID == ZT5_CFG_DISPLAY_RENDERER_INITED && pValue) {
            MDWord one = 1;
            std::memcpy(pValue, &one, sizeof(one));
            return 0;
        }
        return 0x7001;
    }
    MRESULT setConfig(MDWord, void *) override { return 0; }
    MRESULT render(unsigned char *, MLong, MLong, MLong, MLong) override { return 0; }
    MRESULT render(MLong) override { return 0; }
    MRESULT init(MDWord, char *, MDWord, MWindowHandle, MLong, MLong, MLong, MLong, MDWord, MDWord) override
    {
        return 0;
    }
    MRESULT setRender(void *) override { return 0; }
    MRESULT Reset() override { return 0; }
    void attachMailbox(FrameMailbox *) override {}
    void framePosted(bool) override {}
    void applySettings(const DisplaySettings &, MDWord) override {}
};

inline IZT5VideoRenderer *MakeBenchNullRenderer()
{
    return new BenchNullRenderer();
}

#endif

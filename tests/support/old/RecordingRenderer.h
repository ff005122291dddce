// A render object double for tests of the display manager and its users.
//
// It behaves like the real render object where the manager can tell:
//   - init with a null window does nothing and returns 0;
//   - init while its thread "runs" is refused with 0x7001;
//   - the inited query answers 1 only after a successful init, 0 after a
//     failed one (see RecordingRendererOptions::failInit), after Reset and
//     after setRender(0);
//   - Reset keeps the thread (a later init is refused), setRender(0) ends it
//     (a later init starts again).
// Every call of every instance goes to one process-wide journal that
// outlives the instances, so a test can see what happened to a render object
// the manager has already destroyed.
//
// Usage:
//   RecordingRenderer::Install();        // manager makes RecordingRenderers
//   ... drive the manager ...
//   auto ev = RecordingRenderer::Journal();
//   RecordingRenderer::Uninstall();      // back to the default factory
#ifndef PANOVIEW_TEST_RECORDINGRENDERER_H
#define PANOVIEW_TEST_RECORDINGRENDERER_H

#include <cstdint>
#include <string>
#include <vector>

#include "MDisplayMgr.h"

enum class RRCall {
    Construct,
    Destruct,
    SetConfig,
    GetConfig,
    RenderBuffer, // render(pBuffer, w, h, dstW, dstH)
    RenderPlanes, // render(planes, strides)
    RenderSize,   // render(lSize)
    Init,
    SetRender,
    Reset,
};

struct RREvent {
    int instance = 0; // 1, 2, ... in order of construction since the last Clear
    RRCall call = RRCall::Construct;
    MDWord id = 0;          // SetConfig / GetConfig id
    void *pValue = nullptr; // SetConfig / GetConfig pointer, render buffer, setRender pointer
    // SetConfig: the 32-bit word at pValue for ids whose payload is a word
    // (rotation, platform, flags, mode, cruise, velocity bits, full view,
    // scale); 0 otherwise.
    MDWord word = 0;
    MRESULT result = 0; // what the double returned
    // Init: dwReserved, dwCSType, hContext, lSrcWidth, lSrcHeight, lWidth,
    // lHeight, bContinueBuf, dwRotation. RenderBuffer: w, h, dstW, dstH.
    // RenderSize: lSize.
    int64_t args[9] = {0, 0, 0, 0, 0, 0, 0, 0, 0};
    // RenderBuffer with capture on: the w*h*3/2 bytes at the buffer.
    std::vector<unsigned char> frame;
};

struct RecordingRendererOptions {
    bool failInit = false;        // init starts the thread but the renderer fails (error 0x7002)
    bool factoryReturnsNull = false; // the factory can't make an object
    bool captureFrames = false;   // copy each posted frame into the journal
    MDWord scaleRatioAnswer = 250;  // getConfig(ZT5_CFG_DISPLAY_SCALE_RATIO)
    MDWord maxScaleAnswer = 800;    // getConfig(ZT5_CFG_DISPLAY_MAX_SCALE)
};

class RecordingRenderer : public IZT5VideoRenderer {
public:
    RecordingRenderer();
    ~RecordingRenderer() override;

    MRESULT setConfig(MDWord dwID, void *pValue) override;
    MRESULT getConfig(MDWord dwID, void *pValue) override;
    MRESULT render(unsigned char *pBuffer, MLong lWidth, MLong lHeight, MLong lDstWidth, MLong lDstHeight) override;
    MRESULT render(unsigned char **planes, MLong *strides) override;
    MRESULT render(MLong lSize) override;
    MRESULT init(MDWord dwReserved, char *pText, MDWord dwCSType, MWindowHandle hContext, MLong lSrcWidth,
                 MLong lSrcHeight, MLong lWidth, MLong lHeight, MDWord bContinueBuf, MDWord dwRotation) override;
    MRESULT setRender(void *pRender) override;
    MRESULT Reset() override;

    int Instance() const { return m_instance; }
    bool ThreadRunning() const { return m_bThread; }
    bool GLInited() const { return m_bGLInited; }

    // The factory the manager calls; honours options.factoryReturnsNull.
    static IZT5VideoRenderer *Create();
    // Clears journal and options, installs Create as the manager's factory.
    static void Install();
    // Restores the default factory; clears journal and options.
    static void Uninstall();

    // Set options from the test thread before driving the manager; the
    // double reads them under its lock.
    static RecordingRendererOptions &Options();
    static std::vector<RREvent> Journal();
    static void Clear();
    static int LiveInstances();
    // Calls of one kind, optionally of one instance (0: all).
    static std::vector<RREvent> Calls(RRCall call, int instance = 0);
    // Ids of the SetConfig calls, in order, optionally of one instance.
    static std::vector<MDWord> SetConfigIds(int instance = 0);

    // The saved state and snapshot record whose addresses the double hands out.
    FECurrentStatusData m_status = {};
    ZT5Snapshot m_snapshot = {};

private:
    void Record(RREvent ev);

    int m_instance = 0;
    bool m_bThread = false;
    bool m_bGLInited = false;
    MDWord m_dwLastError = 0;
};

const char *RRCallName(RRCall call);

#endif

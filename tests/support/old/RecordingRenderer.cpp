#include "RecordingRenderer.h"

#include <cstring>
#include <mutex>

namespace {

std::mutex g_mutex;
std::vector<RREvent> g_journal;
RecordingRendererOptions g_options;
int g_nextInstance = 1;
int g_live = 0;

bool IsWordPayload(MDWord id)
{
    switch (id) {
    case ZT5_CFG_DISPLAY_ROTATION_ANGLE:
    case ZT5_CFG_DISPLAY_FE_PLATFORM:
    case ZT5_CFG_DISPLAY_FE_BG_CLOUD:
    case ZT5_CFG_DISPLAY_FE_BG_STAR:
    case ZT5_CFG_DISPLAY_FE_BASE_ANIMATION:
    case ZT5_CFG_DISPLAY_FISHEYE_MODE:
    case ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE:
    case ZT5_CFG_DISPLAY_AUTOCURISE_VELOCITY:
    case ZT5_CFG_DISPLAY_OPENGL_FULLVIEW:
    case ZT5_CFG_DISPLAY_SCALE_RATIO:
    case ZT5_CFG_DISPLAY_MAX_SCALE:
    case ZT5_CFG_DISPLAY_STATUS:
        return true;
    default:
        return false;
    }
}

void WriteWord(void *p, MDWord v)
{
    std::memcpy(p, &v, sizeof(v));
}

} // namespace

const char *RRCallName(RRCall call)
{
    switch (call) {
    case RRCall::Construct: return "Construct";
    case RRCall::Destruct: return "Destruct";
    case RRCall::SetConfig: return "SetConfig";
    case RRCall::GetConfig: return "GetConfig";
    case RRCall::RenderBuffer: return "RenderBuffer";
    case RRCall::RenderPlanes: return "RenderPlanes";
    case RRCall::RenderSize: return "RenderSize";
    case RRCall::Init: return "Init";
    case RRCall::SetRender: return "SetRender";
    case RRCall::Reset: return "Reset";
    }
    return "?";
}

RecordingRenderer::RecordingRenderer()
{
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        m_instance = g_nextInstance++;
        g_live++;
    }
    RREvent ev;
    ev.call = RRCall::Construct;
    Record(ev);
}

RecordingRenderer::~RecordingRenderer()
{
    RREvent ev;
    ev.call = RRCall::Destruct;
    Record(ev);
    std::lock_guard<std::mutex> lock(g_mutex);
    g_live--;
}

void RecordingRenderer::Record(RREvent ev)
{
    ev.instance = m_instance;
    std::lock_guard<std::mutex> lock(g_mutex);
    g_journal.push_back(std::move(ev));
}

MRESULT RecordingRenderer::setConfig(MDWord dwID, void *pValue)
{
    RREvent ev;
    ev.call = RRCall::SetConfig;
    ev.id = dwID;
    ev.pValue = pValue;
    if (pValue && IsWordPayload(dwID)) std::memcpy(&ev.word, pValue, sizeof(MDWord));
    Record(std::move(ev));
    return 0;
}

MRESULT RecordingRenderer::getConfig(MDWord dwID, void *pValue)
{
    MRESULT res = 0x7001;
    RecordingRendererOptions options;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        options = g_options;
    }
    if (pValue) {
        switch (dwID) {
        case ZT5_CFG_DISPLAY_RENDERER_INITED:
            WriteWord(pValue, m_bGLInited ? 1 : 0);
            res = m_bGLInited ? 0 : 0x7001;
            break;
        case ZT5_CFG_DISPLAY_RENDERER_ERROR:
            WriteWord(pValue, m_dwLastError);
            res = 0;
            break;
        case ZT5_CFG_DISPLAY_SCALE_RATIO:
            WriteWord(pValue, options.scaleRatioAnswer);
            res = 0;
            break;
        case ZT5_CFG_DISPLAY_MAX_SCALE:
            WriteWord(pValue, options.maxScaleAnswer);
            res = 0;
            break;
        case ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS:
            *static_cast<FECurrentStatusData **>(pValue) = &m_status;
            res = 0;
            break;
        case ZT5_CFG_DISPLAY_GL_SNAPSHOT:
            *static_cast<ZT5Snapshot **>(pValue) = &m_snapshot;
            res = 0;
            break;
        default:
            break;
        }
    }
    RREvent ev;
    ev.call = RRCall::GetConfig;
    ev.id = dwID;
    ev.pValue = pValue;
    ev.result = res;
    Record(std::move(ev));
    return res;
}

MRESULT RecordingRenderer::render(unsigned char *pBuffer, MLong lWidth, MLong lHeight, MLong lDstWidth,
                                  MLong lDstHeight)
{
    RREvent ev;
    ev.call = RRCall::RenderBuffer;
    ev.pValue = pBuffer;
    ev.args[0] = lWidth;
    ev.args[1] = lHeight;
    ev.args[2] = lDstWidth;
    ev.args[3] = lDstHeight;
    bool capture;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        capture = g_options.captureFrames;
    }
    if (capture && pBuffer && lWidth > 0 && lHeight > 0) {
        size_t n = size_t(lWidth) * size_t(lHeight) * 3 / 2;
        ev.frame.assign(pBuffer, pBuffer + n); // reads exactly what a renderer uploads
    }
    Record(std::move(ev));
    return 0;
}

MRESULT RecordingRenderer::render(unsigned char **planes, MLong *strides)
{
    RREvent ev;
    ev.call = RRCall::RenderPlanes;
    ev.pValue = planes;
    Record(std::move(ev));
    return 0;
}

MRESULT RecordingRenderer::render(MLong lSize)
{
    RREvent ev;
    ev.call = RRCall::RenderSize;
    ev.args[0] = lSize;
    Record(std::move(ev));
    return 0;
}

MRESULT RecordingRenderer::init(MDWord dwReserved, char *pText, MDWord dwCSType, MWindowHandle hContext,
                                MLong lSrcWidth, MLong lSrcHeight, MLong lWidth, MLong lHeight, MDWord bContinueBuf,
                                MDWord dwRotation)
{
    MRESULT res = 0;
    if (!hContext) {
        res = 0; // nothing to draw on yet
    } else if (m_bThread) {
        res = 0x7001; // thread already runs
    } else {
        bool fail;
        {
            std::lock_guard<std::mutex> lock(g_mutex);
            fail = g_options.failInit;
        }
        m_bThread = true;
        m_bGLInited = !fail;
        if (fail) m_dwLastError = 0x7002;
    }
    RREvent ev;
    ev.call = RRCall::Init;
    ev.result = res;
    int64_t a[9] = {dwReserved, dwCSType, (int64_t)hContext, lSrcWidth, lSrcHeight, lWidth, lHeight, bContinueBuf,
                    dwRotation};
    std::memcpy(ev.args, a, sizeof(a));
    Record(std::move(ev));
    return res;
}

MRESULT RecordingRenderer::setRender(void *pRender)
{
    if (m_bGLInited && !pRender) {
        m_bThread = false;
        m_bGLInited = false;
    }
    RREvent ev;
    ev.call = RRCall::SetRender;
    ev.pValue = pRender;
    Record(std::move(ev));
    return 0;
}

MRESULT RecordingRenderer::Reset()
{
    if (m_bGLInited) m_bGLInited = false; // EGL objects go, the thread stays
    RREvent ev;
    ev.call = RRCall::Reset;
    Record(std::move(ev));
    return 0;
}

IZT5VideoRenderer *RecordingRenderer::Create()
{
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        if (g_options.factoryReturnsNull) return nullptr;
    }
    return new RecordingRenderer();
}

void RecordingRenderer::Install()
{
    Clear();
    MDisplayMgrSetRendererFactory(&RecordingRenderer::Create);
}

void RecordingRenderer::Uninstall()
{
    MDisplayMgrSetRendererFactory(nullptr);
    Clear();
}

RecordingRendererOptions &RecordingRenderer::Options()
{
    return g_options;
}

std::vector<RREvent> RecordingRenderer::Journal()
{
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_journal;
}

void RecordingRenderer::Clear()
{
    std::lock_guard<std::mutex> lock(g_mutex);
    g_journal.clear();
    g_options = RecordingRendererOptions();
    g_nextInstance = 1;
}

int RecordingRenderer::LiveInstances()
{
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_live;
}

std::vector<RREvent> RecordingRenderer::Calls(RRCall call, int instance)
{
    std::vector<RREvent> out;
    std::lock_guard<std::mutex> lock(g_mutex);
    for (const RREvent &ev : g_journal)
        if (ev.call == call && (instance == 0 || ev.instance == instance)) out.push_back(ev);
    return out;
}

std::vector<MDWord> RecordingRenderer::SetConfigIds(int instance)
{
    std::vector<MDWord> out;
    for (const RREvent &ev : Calls(RRCall::SetConfig, instance)) out.push_back(ev.id);
    return out;
}

// The frame copy against a render thread: a reader that, like the real render
// thread, takes the display's frame mutex and reads the newest posted frame
// must never see a torn frame or a buffer that has been moved away, while the
// poster keeps changing the size (and so reallocating the copy).
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "DisplayContext.h"
#include "MDisplayMgr.h"

namespace {

class PostingRenderer : public IZT5VideoRenderer {
public:
    MRESULT setConfig(MDWord dwID, void *pValue) override
    {
        if (dwID == ZT5_CFG_DISPLAY_RENDER_MUTEX) pFrameMutex = static_cast<CZT5Mutex *>(pValue);
        return 0;
    }
    MRESULT getConfig(MDWord dwID, void *pValue) override
    {
        if (dwID != ZT5_CFG_DISPLAY_RENDERER_INITED || !pValue) return 0x7001;
        MDWord one = 1;
        std::memcpy(pValue, &one, 4);
        return 0;
    }
    // Called by the manager with the frame mutex held.
    MRESULT render(unsigned char *pBuffer, MLong lWidth, MLong lHeight, MLong, MLong) override
    {
        pPosted = pBuffer;
        lPostedWidth = lWidth;
        lPostedHeight = lHeight;
        return 0;
    }
    MRESULT render(MLong) override { return 0; }
    MRESULT init(MDWord, char *, MDWord, MWindowHandle, MLong, MLong, MLong, MLong, MDWord, MDWord) override
    {
        return 0;
    }
    MRESULT setRender(void *) override { return 0; }
    MRESULT Reset() override { return 0; }

    // What a draw does: under the frame mutex, read every byte of the
    // newest frame. Returns false for a torn frame.
    bool Draw(int *framesSeen)
    {
        if (!pFrameMutex) return true;
        pFrameMutex->Lock();
        bool ok = true;
        if (pPosted) {
            size_t luma = size_t(lPostedWidth) * lPostedHeight;
            size_t total = luma * 3 / 2;
            unsigned char first = pPosted[0];
            for (size_t i = 0; i < luma; i++) ok = ok && pPosted[i] == first;
            for (size_t i = luma; i < total; i++) ok = ok && pPosted[i] == (unsigned char)(first ^ 0xFF);
            ++*framesSeen;
        }
        pFrameMutex->Unlock();
        return ok;
    }

    CZT5Mutex *pFrameMutex = nullptr;
    unsigned char *pPosted = nullptr;
    MLong lPostedWidth = 0, lPostedHeight = 0;
};

PostingRenderer *g_renderer = nullptr;

IZT5VideoRenderer *MakePostingRenderer()
{
    g_renderer = new PostingRenderer();
    return g_renderer;
}

void SetWord(MDisplayHandle h, MDWord id, MDWord v)
{
    MDisplayMgrSetParam(h, id, &v, 4);
}

TEST(DisplayMgrThreads, RenderThreadNeverSeesATornOrMovedFrame)
{
    const int W = 320, H = 240;
    MDisplayMgrSetRendererFactory(&MakePostingRenderer);
    MDisplayHandle h = MDisplayMgrCreate(1);
    ASSERT_NE(h, nullptr);
    ZT5FrameInfo fi = {};
    fi.dwWidth = W;
    fi.dwHeight = H;
    MDisplayMgrSetParam(h, M_DISPLAY_PARAM_FRAMEINFO, &fi, sizeof(fi));
    SetWord(h, ZT5_CFG_DISPLAY_USE_OPENGLES, 1);
    ZT5Viewport vp = {};
    vp.hWnd = 7;
    vp.lWidth = 640;
    vp.lHeight = 480;
    MDisplayMgrSetParam(h, M_DISPLAY_PARAM_VIEWPORT, &vp, sizeof(vp));

    std::vector<unsigned char> frame(size_t(W) * H * 3 / 2);
    unsigned char *planes[3] = {frame.data(), frame.data() + W * H, frame.data() + W * H * 5 / 4};
    MLong strides[3] = {W, W / 2, W / 2};
    ZT5Rect rc = {0, 0, W, H};

    // The first blit makes the render object; then the reader starts.
    std::memset(frame.data(), 0, size_t(W) * H);
    std::memset(frame.data() + W * H, 0xFF, size_t(W) * H / 2);
    ASSERT_EQ(MDisplayMgrBlit(h, ZT5_CS_I420, planes, strides, &rc, &rc, 0), 0);
    ASSERT_NE(g_renderer, nullptr);

    std::atomic<bool> done{false};
    std::atomic<bool> torn{false};
    int framesSeen = 0;
    std::thread reader([&] {
        while (!done.load()) {
            if (!g_renderer->Draw(&framesSeen)) torn = true;
            std::this_thread::yield();
        }
        if (!g_renderer->Draw(&framesSeen)) torn = true;
    });

    // Lens squares that keep growing force reallocations; plain frames in
    // between change the posted size back and forth.
    for (int n = 1; n <= 240; n++) {
        unsigned char value = (unsigned char)n;
        std::memset(frame.data(), value, size_t(W) * H);
        std::memset(frame.data() + W * H, value ^ 0xFF, size_t(W) * H / 2);
        if (n % 3 == 0) {
            SetWord(h, ZT5_CFG_DISPLAY_FISHEYE_MODE, 0);
        } else {
            MDWord side = 8 + 2 * ((MDWord)n % 116); // even: every chroma byte is a pixel
            SetWord(h, ZT5_CFG_DISPLAY_FISHEYE_MODE, 1);
            SetWord(h, ZT5_CFG_DISPLAY_FISHEYE_X_POS, 0);
            SetWord(h, ZT5_CFG_DISPLAY_FISHEYE_WIDTH, side);
            SetWord(h, ZT5_CFG_DISPLAY_FISHEYE_HEIGHT, side);
        }
        ASSERT_EQ(MDisplayMgrBlit(h, ZT5_CS_I420, planes, strides, &rc, &rc, 0), 0);
    }
    done = true;
    reader.join();
    EXPECT_FALSE(torn.load());
    EXPECT_GE(framesSeen, 1);

    MDisplayMgrDelete(h);
    g_renderer = nullptr;
    MDisplayMgrSetRendererFactory(nullptr);
}

} // namespace

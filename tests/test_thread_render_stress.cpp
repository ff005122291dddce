// Frames posted under the frame mutex from one thread while other threads
// switch modes, take snapshots and send gestures: nothing may deadlock, no
// draw may read planes the poster has already freed, and the snapshots stay
// well-formed. A watchdog turns a hang into a failure.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <vector>

#include "GlTestWindow.h"
#include "ZT5Config.h"
#include "ZT5Mutex.h"
#include "ZT5Records.h"

using namespace gltest;

namespace {

// Runs `body` on worker threads; fails the test and ends the process when
// they have not all finished within `limitSeconds` (a deadlock would
// otherwise hang the suite).
class Watchdog {
public:
    explicit Watchdog(int threads) : m_left(threads) {}
    void Done()
    {
        std::lock_guard<std::mutex> lk(m_m);
        if (--m_left == 0) m_cv.notify_all();
    }
    void WaitOrDie(int limitSeconds)
    {
        std::unique_lock<std::mutex> lk(m_m);
        if (!m_cv.wait_for(lk, std::chrono::seconds(limitSeconds), [this] { return m_left == 0; })) {
            ADD_FAILURE() << "threads still running after " << limitSeconds << " s: deadlock";
            std::fprintf(stderr, "watchdog: deadlock, aborting the test program\n");
            std::fflush(stderr);
            std::_Exit(1);
        }
    }

private:
    std::mutex m_m;
    std::condition_variable m_cv;
    int m_left;
};

// Posts frames the way the display manager does: under the frame mutex,
// into a buffer that is reallocated when the frame size changes.
void PosterLoop(RenderHarness *h, int frames, std::atomic<int> *posted, std::vector<uint8_t> **ppBuffer)
{
    std::vector<uint8_t> *&buffer = *ppBuffer;
    int w = 0, hh = 0;
    for (int i = 0; i < frames; i++) {
        const bool big = (i / 40) % 2 == 0;
        const int nw = big ? 320 : 256, nh = big ? 240 : 256;
        h->frameMutex().Lock();
        if (nw != w || nh != hh) {
            delete buffer; // planes of the old size are gone from here on
            w = nw;
            hh = nh;
            buffer = new std::vector<uint8_t>(size_t(w) * hh * 3 / 2);
        }
        std::fill(buffer->begin(), buffer->begin() + size_t(w) * hh, uint8_t(16 + (i * 7) % 220));
        std::fill(buffer->begin() + size_t(w) * hh, buffer->end(), uint8_t(128));
        h->object()->render(buffer->data(), w, hh, w, hh);
        h->frameMutex().Unlock();
        posted->fetch_add(1);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

} // namespace

TEST(ThreadRenderStress, PostsModeSwitchesSnapshotsAndGesturesNeverDeadlock)
{
    ASSERT_TRUE(EnsureX()) << "no X display (DISPLAY=" << (getenv("DISPLAY") ? getenv("DISPLAY") : "") << ")";
    TestWindow winA(320, 240), winB(256, 192);
    ASSERT_TRUE(winA.ok());
    ASSERT_TRUE(winB.ok());
    RenderHarness a, b;
    ASSERT_EQ(0, a.Init(winA.id(), 320, 240));
    ASSERT_EQ(0, b.Init(winB.id(), 320, 240)); // two displays share the EGL lock

    std::atomic<int> postedA{0}, postedB{0}, snapshots{0}, badAlpha{0}, badSize{0};
    std::vector<uint8_t> *bufferA = nullptr, *bufferB = nullptr;
    Watchdog dog(7);
    std::vector<std::thread> threads;
    threads.emplace_back([&] {
        PosterLoop(&a, 600, &postedA, &bufferA);
        dog.Done();
    });
    threads.emplace_back([&] {
        PosterLoop(&b, 400, &postedB, &bufferB);
        dog.Done();
    });
    threads.emplace_back([&] {
        const int32_t modes[] = {2, 0, 11, 2, 2, 0, -1, 0};
        for (int i = 0; i < 48; i++) {
            int32_t mode = modes[i % 8];
            a.Set(ZT5_CFG_DISPLAY_FISHEYE_MODE, &mode);
            std::this_thread::sleep_for(std::chrono::milliseconds(15));
        }
        dog.Done();
    });
    auto snapshotter = [&](RenderHarness *h, int count) {
        for (int i = 0; i < count; i++) {
            // Before the first swap the surface content is undefined.
            const bool drawn = h->DrawCount() > 0;
            ZT5Snapshot *rec = nullptr;
            h->object()->getConfig(ZT5_CFG_DISPLAY_GL_SNAPSHOT, &rec);
            if (rec && rec->dwCSType == ZT5_SNAPSHOT_RGBA) {
                snapshots.fetch_add(1);
                if (rec->dwWidth && rec->dwHeight) {
                    // Touch the first and the last pixel: the buffer must hold
                    // the size it claims.
                    const uint8_t *px = static_cast<const uint8_t *>(rec->pBuffer);
                    const size_t n = size_t(rec->dwWidth) * rec->dwHeight * 4;
                    if (!px || rec->dwWidth != (h == &a ? 320u : 256u)) badSize.fetch_add(1);
                    else if (drawn && (px[3] != 255 || px[n - 1] != 255)) badAlpha.fetch_add(1);
                }
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(7));
        }
        dog.Done();
    };
    threads.emplace_back([&] { snapshotter(&a, 80); });
    threads.emplace_back([&] { snapshotter(&b, 60); });
    // Overlay settings while the plain view draws them: faces that move,
    // names the host changes under its mutex, colours, font and logo.
    CZT5Mutex namesMutex;
    ZT5FaceInfoEntry names[1] = {};
    ZT5FaceInfoList nameList = {names, 1};
    a.Set(ZT5_CFG_DISPLAY_FACE_MUTEX, &namesMutex);
    a.Set(ZT5_CFG_DISPLAY_FACE_INFO, &nameList);
    threads.emplace_back([&] {
        for (int i = 0; i < 400; i++) {
            ZT5FaceRect faces[2] = {{1, 0, 30, 20 + i % 40, 40, 50, 50, "x"}, {2, 1, 40, 150, 100, 40, 40, ""}};
            ZT5FaceList list = {uint32_t(i % 3), uint32_t(i), faces};
            a.Set(ZT5_CFG_DISPLAY_FACE_LIST, &list);
            a.SetU32(ZT5_CFG_DISPLAY_FACE_OPTION, uint32_t(i % 16));
            a.SetU32(ZT5_CFG_DISPLAY_BACK_COLOR, uint32_t(i * 0x010203));
            namesMutex.Lock();
            names[0].dwImageID = uint32_t(i % 3);
            std::snprintf(names[0].name, sizeof(names[0].name), "n%d", i);
            namesMutex.Unlock();
            if (i % 100 == 0) {
                char font[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
                a.Set(ZT5_CFG_DISPLAY_FONT_PATH, font);
                char logoName[] = "/nonexistent/logo.bmp";
                ZT5VideoLogo logo = {logoName, 0, 0, 0.5f, 0.5f, uint32_t(sizeof(logoName))};
                a.Set(ZT5_CFG_DISPLAY_LOGO_DATA, &logo);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        dog.Done();
    });
    threads.emplace_back([&] {
        for (int i = 0; i < 400; i++) {
            float move[4] = {10.0f + i % 50, 20.0f, 12.0f + i % 50, 25.0f};
            a.Set(ZT5_CFG_DISPLAY_UITOUCH_MOVED, move);
            float center[2] = {100.0f, 80.0f};
            ZT5TouchPinch pinch = {i % 2 ? 1.1f : 0.9f, center};
            a.Set(ZT5_CFG_DISPLAY_UITOUCH_VELOCITY, &pinch);
            float vel[2] = {float(i % 7), -2.0f};
            a.Set(ZT5_CFG_DISPLAY_UITOUCH_MOVE_VELOCITY, vel);
            a.SetU32(ZT5_CFG_DISPLAY_SCALE_RATIO, 100 + i % 200);
            a.SetU32(ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, i % 3 == 0);
            FECurrentStatusData *state = nullptr;
            a.object()->getConfig(ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS, &state);
            if (i % 10 == 0 && state) {
                FECurrentStatusData copy = *state;
                a.Set(ZT5_CFG_DISPLAY_FE_CURRENTSTATUS, &copy);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        dog.Done();
    });
    dog.WaitOrDie(240);
    for (std::thread &t : threads) t.join();
    // Stop drawing from the buffers before freeing them, as the manager does
    // when it deletes a display.
    a.object()->setRender(nullptr);
    b.object()->setRender(nullptr);
    delete bufferA;
    delete bufferB;

    EXPECT_EQ(600, postedA.load());
    EXPECT_EQ(400, postedB.load());
    EXPECT_GT(snapshots.load(), 0);
    EXPECT_EQ(0, badSize.load());
    EXPECT_EQ(0, badAlpha.load());
}

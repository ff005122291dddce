// The demo's player loop: window, display, frames at the pace of their
// timestamps (or a steady rate), the user's mouse and keys turned into the
// display's gesture parameters, pause and seek.
#ifndef PANOVIEW_HOST_PLAYER_H
#define PANOVIEW_HOST_PLAYER_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "FaceDemo.h"
#include "FrameSource.h"
#include "Options.h"
#include "PanoviewHost.h"
#include "X11Window.h"
#include "ZT5Mutex.h"

class Player {
public:
    explicit Player(const PlayerOptions &opts);
    ~Player();
    // Returns the process exit code.
    int Run();

private:
    std::vector<int> RunModes() const;
    bool Setup();
    bool OpenSource();
    void SendStartParameters();
    void SendLogo();
    void SetMode(int mode);
    void OnMiddleClick(const WindowEvent &e);
    // Plays `frames` frames (or until quit when negative). False on quit or
    // a failed source.
    bool PlayFrames(long frames);
    // Waits (handling events) until the picture of `pts` is due. False when
    // a key asked for something else meanwhile (pause, seek, quit).
    bool WaitUntilDue(double pts);
    void PushPicture(const Picture &picture);
    void ApplySeek();
    // The window's picture once the display has drawn one; null if none.
    const ZT5Snapshot *TakeSnapshot();
    bool WriteSnapshot(const std::string &path);

    void HandleEvents();
    void OnKey(char key);
    void OnButtonDown(const WindowEvent &e);
    void OnButtonUp(const WindowEvent &e);
    void OnMotion(const WindowEvent &e);
    void OnWheel(const WindowEvent &e);
    void OnResize(int width, int height);
    void SaveViewState();
    void RestoreViewState();

    static void OnUiMessage(ZT5UIMessage *msg, void *arg);

    PlayerOptions m_opts;
    // Declared so that the display goes first, then the library, then the
    // window it drew into.
    X11Window m_window;
    PanoviewLibrary m_lib;
    PanoviewDisplay m_display;
    std::unique_ptr<FrameSource> m_source;
    ZT5FrameInfo m_frameInfo = {};
    int m_mode = 0;
    long m_framesShown = 0;
    bool m_quit = false;
    bool m_failed = false;  // the source gave up: the exit code says so
    bool m_paused = false;
    double m_seekBy = 0.0;  // seconds asked for by the arrow keys, not yet done
    int m_interrupts = 0;   // counts pause, seek and quit requests

    // Pacing: a picture of timestamp pts is due at m_clockBase + pts.
    using Clock = std::chrono::steady_clock;
    bool m_clockValid = false;
    Clock::time_point m_clockBase;
    Clock::time_point m_lastDue;
    double m_lastPts = -1.0;

    // Decoded pictures with strides of their own go through the shared
    // memory record, which names the planes of one picture at a time.
    ZT5SharedMemAgent m_agent = {};
    ZT5SharedMemAgent *m_pAgent = &m_agent;
    bool m_agentSent = false;
    uint32_t m_colourWord = 0;
    bool m_colourSent = false;
    int m_snapshotCount = 0;

    // Records the display keeps a pointer to: they live as long as the player.
    CZT5Mutex m_uiMutex;
    ZT5UICallbackRecord m_uiRecord = {};
    ZT5FishEyeParam m_lens = {};
    ZT5LensModel m_lensModel = {}; // --lens-law, --fov, --k, as sent
    float m_moveVelocity[2] = {0, 0};
    float m_pinchCentre[2] = {0, 0};
    ZT5TouchPinch m_pinch = {1.0f, m_pinchCentre};
    float m_doubleTap[2] = {0, 0};
    FECurrentStatusData m_savedState = {};
    FECurrentStatusData m_restoreState = {};
    bool m_haveSavedState = false;
    uint32_t m_cruise = 0;
    FaceDemo m_faces;
    ZT5VideoLogo m_logo = {};

    // Drag state.
    bool m_dragging = false;
    float m_lastPoint[2] = {0, 0};
    struct Sample {
        unsigned long timeMs;
        float x, y;
    } m_samples[8] = {};
    int m_sampleCount = 0;
    unsigned long m_lastClickMs = 0;
    int m_lastClickX = -100, m_lastClickY = -100;
};

#endif

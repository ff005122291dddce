#include "Player.h"

#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <thread>

#include "ContactSheet.h"
#include "PngWriter.h"
#include "VideoSource.h"

namespace {

using Clock = std::chrono::steady_clock;

// The built-in scene: a 1920x1080 frame with the lens circle in the middle;
// for the wall-camera views (7 to 10) the room seen from a wall, through a
// circle as wide as the picture for the 180-degree view (10).
synthetic::LensFrame SceneLens(int mode, const PlayerOptions &opts)
{
    synthetic::LensFrame l = mode >= 7 && mode <= 10 ? synthetic::WallLens(mode == 10) : synthetic::LensFrame();
    // A lens model given: the scene is seen through that lens (in mode 10
    // too, which draws through the model instead of its orthographic lens
    // once one is set).
    if (opts.haveLensModel) {
        l.orthographic = false;
        l.law = opts.lensLaw;
        l.fovDeg = opts.lensFov;
        for (int i = 0; i < 4; i++) l.k[i] = opts.lensK[i];
    }
    return l;
}

// A length in pixels as ten-thousandths of `total`, rounded.
int32_t TenThousandths(int value, int total)
{
    return int32_t((int64_t(value) * 10000 + total / 2) / total);
}

const char *EventName(uint32_t id)
{
    if (id == ZT5_CFG_DISPLAY_CURISE_STATE_EVENT) return "cruise state";
    if (id == ZT5_CFG_DISPLAY_EDGE_EVENT) return "edge";
    return "event";
}

} // namespace

Player::Player(const PlayerOptions &opts) : m_opts(opts)
{
    m_uiRecord.pMutex = &m_uiMutex;
    m_uiRecord.pfnCallback = &Player::OnUiMessage;
    m_uiRecord.pArg = this;
}

Player::~Player()
{
    m_display.Uninit();
}

void Player::OnUiMessage(ZT5UIMessage *msg, void *)
{
    if (!msg) return;
    std::printf("library event: %s %u (event %u, id 0x%x)\n", EventName(msg->dwParamID), msg->dwValue1,
                msg->dwEvent, msg->dwParamID);
    std::fflush(stdout);
}

bool Player::OpenSource()
{
    std::string error;
    if (!m_opts.videoPath.empty()) {
        VideoSource::SetLibraryLog(m_opts.verbose);
        auto *video = new VideoSource();
        m_source.reset(video);
        if (!video->Open(m_opts.videoPath, PictureLayout(m_opts.layout), &error)) {
            std::fprintf(stderr, "%s\n", error.c_str());
            return false;
        }
        std::printf("%s: %s\n", m_opts.videoPath.c_str(), video->Describe().c_str());
        return true;
    }
    if (m_opts.inputPath.empty()) {
        m_source.reset(new SyntheticSource(SceneLens(RunModes().front(), m_opts)));
        return true;
    }
    auto *raw = new RawI420Source();
    m_source.reset(raw);
    if (!raw->Open(m_opts.inputPath, m_opts.inputWidth, m_opts.inputHeight, &error)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return false;
    }
    return true;
}

bool Player::Setup()
{
    std::string error;
    if (!OpenSource()) return false;
    if (!m_window.Open(m_opts.windowWidth, m_opts.windowHeight, "panoview-play", &error)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return false;
    }
    std::string lib = m_opts.libPath.empty() ? std::string(PANOVIEW_LIB_PATH) : m_opts.libPath;
    if (!m_lib.Load(lib, &error) || !m_display.Create(m_lib.plugin(), &error)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return false;
    }
    m_display.SetVerbose(m_opts.verbose);
    m_frameInfo.dwRotation = m_opts.rotation;

    SendStartParameters();
    int32_t res = m_display.Init(m_window.id(), m_window.width(), m_window.height());
    if (res != ZT5_OK) {
        std::fprintf(stderr, "Init failed with %d\n", res);
        return false;
    }
    return true;
}

// The parameter set a player sends before its first frame.
void Player::SendStartParameters()
{
    m_display.SetU32(ZT5_CFG_DISPLAY_USE_OPENGLES, 1, "USE_OPENGLES");
    m_display.SetU32(ZT5_CFG_DISPLAY_FIT_MODE, m_opts.fitMode, "FIT_MODE");
    if (m_opts.haveLens) {
        m_lens = {m_opts.lens[0], m_opts.lens[1], m_opts.lens[2], m_opts.lens[3]};
    } else {
        // The built-in scene's circle; for other input a circle as tall as
        // the picture, in its middle, as most fisheye cameras give.
        synthetic::LensFrame l = SceneLens(RunModes().front(), m_opts);
        if (!m_opts.videoPath.empty() || !m_opts.inputPath.empty()) {
            l.width = m_source->width();
            l.height = m_source->height();
            l.cx = l.width / 2;
            l.cy = l.height / 2;
            l.radius = l.height / 2;
        }
        m_lens = {TenThousandths(l.cx, l.width), TenThousandths(l.cy, l.height), TenThousandths(l.radius, l.width),
                  TenThousandths(l.radius, l.height)};
    }
    std::printf("lens circle (1/10000): centre %d,%d radius %d,%d\n", m_lens.lCenterX, m_lens.lCenterY,
                m_lens.lRadiusX, m_lens.lRadiusY);
    m_display.Set(ZT5_CFG_COMMON_FISHEYE_PARAM, &m_lens, "COMMON_FISHEYE_PARAM");
    if (m_opts.haveLensModel) {
        m_lensModel = {m_opts.lensLaw, m_opts.lensFov, {m_opts.lensK[0], m_opts.lensK[1], m_opts.lensK[2], m_opts.lensK[3]}};
        if (m_display.Set(ZT5_CFG_COMMON_LENS_MODEL, &m_lensModel, "COMMON_LENS_MODEL") != ZT5_OK)
            std::fprintf(stderr, "the display refused the lens model (a polynomial that doesn't grow?)\n");
    }
    m_mode = RunModes().front();
    m_display.SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, uint32_t(m_mode), "FISHEYE_MODE");
    m_display.Set(ZT5_CFG_DISPLAY_UICALLBACK, &m_uiRecord, "UICALLBACK");
    if (m_opts.faces) m_faces.Start(m_display, m_opts.fontPath.c_str());
    if (!m_opts.logoPath.empty()) SendLogo();
}

// The logo in the picture's top left corner, a fifth of its width, in the
// proportions of the file (read from its header; the display checks the
// file itself and shows nothing for one it refuses).
void Player::SendLogo()
{
    float aspect = 1.0f;
    if (FILE *f = std::fopen(m_opts.logoPath.c_str(), "rb")) {
        unsigned char h[26] = {};
        if (std::fread(h, 1, sizeof(h), f) == sizeof(h)) {
            const int32_t w = int32_t(h[18] | h[19] << 8 | h[20] << 16 | uint32_t(h[21]) << 24);
            const int32_t ht = int32_t(h[22] | h[23] << 8 | h[24] << 16 | uint32_t(h[25]) << 24);
            if (w > 0 && ht != 0) aspect = float(std::abs(double(ht)) / w);
        }
        std::fclose(f);
    }
    const float pictureAspect = float(m_frameInfo.dwWidth) / float(m_frameInfo.dwHeight);
    m_logo.pData = const_cast<char *>(m_opts.logoPath.c_str());
    m_logo.dwDataSize = uint32_t(m_opts.logoPath.size());
    m_logo.fX = 0.02f;
    m_logo.fY = 0.03f;
    m_logo.fWidth = 0.2f;
    m_logo.fHeight = 0.2f * aspect * pictureAspect;
    m_display.Set(ZT5_CFG_DISPLAY_LOGO_DATA, &m_logo, "LOGO_DATA");
}

void Player::SetMode(int mode)
{
    if (mode == m_mode) return;
    m_mode = mode;
    std::printf("view mode %d\n", mode);
    std::fflush(stdout);
    m_display.SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, uint32_t(mode), "FISHEYE_MODE");
    // The built-in scene follows the view: the room from a wall for the
    // wall-camera views, the compass for the others.
    auto *scene = dynamic_cast<SyntheticSource *>(m_source.get());
    if (scene && !m_opts.haveLens) {
        const synthetic::LensFrame l = SceneLens(mode, m_opts);
        scene->SetLens(l);
        m_lens = {TenThousandths(l.cx, l.width), TenThousandths(l.cy, l.height), TenThousandths(l.radius, l.width),
                  TenThousandths(l.radius, l.height)};
        m_display.Set(ZT5_CFG_COMMON_FISHEYE_PARAM, &m_lens, "COMMON_FISHEYE_PARAM");
    }
}

namespace {

const char *MatrixName(uint32_t word)
{
    switch (word & 0xFF) {
    case ZT5_YUV_MATRIX_BT709: return "BT.709";
    case ZT5_YUV_MATRIX_BT2020: return "BT.2020";
    default: return "BT.601";
    }
}

} // namespace

void Player::PushPicture(const Picture &p)
{
    // The picture's colours, or what the command line says instead.
    uint32_t colour = p.yuvMatrix;
    if (m_opts.colourMatrix >= 0) colour = (colour & ~0xFFu) | uint32_t(m_opts.colourMatrix);
    if (m_opts.colourRange >= 0) colour = (colour & 0xFFu) | (m_opts.colourRange ? ZT5_YUV_RANGE_FULL : 0u);
    if (!m_colourSent || colour != m_colourWord) {
        m_colourWord = colour;
        m_colourSent = true;
        std::printf("colours: %s, %s range\n", MatrixName(colour), (colour & ZT5_YUV_RANGE_FULL) ? "full" : "video");
        m_display.SetU32(ZT5_CFG_DISPLAY_YUV_MATRIX, colour, "YUV_MATRIX");
    }

    if (m_opts.faces) m_faces.Update(m_display, m_framesShown, p.width, p.height);
    m_frameInfo.dwWidth = uint32_t(p.width);
    m_frameInfo.dwHeight = uint32_t(p.height);
    m_frameInfo.dwStride = uint32_t(p.strides[0]);
    m_frameInfo.dwSliceHeight = uint32_t(p.height);
    m_frameInfo.dwCSType = p.csType;
    int32_t res;
    if (p.contiguous) {
        res = m_display.Draw(p.planes[0], m_frameInfo);
    } else {
        // The decoder's planes as they are: the display copies them before
        // DrawFrame returns, so buffer 0 is always the one to show.
        m_agent.dwYStride = uint32_t(p.strides[0]);
        m_agent.dwUVStride = uint32_t(p.strides[1]);
        m_agent.dwCheckA = m_agent.dwCheckB = 1;
        m_agent.dwBusy0 = 0;
        m_agent.dwBusy1 = 1;
        for (int i = 0; i < 3; i++) m_agent.pPlane0[i] = p.planes[i];
        if (!m_agentSent) {
            m_display.Set(ZT5_CFG_COMMON_SHAREDMEM_AGENT, &m_pAgent, "COMMON_SHAREDMEM_AGENT");
            m_agentSent = true;
        }
        res = m_display.Draw(nullptr, m_frameInfo);
    }
    if (res != ZT5_OK && m_framesShown < 3) std::fprintf(stderr, "DrawFrame returned %d\n", res);
    m_framesShown++;
}

bool Player::WaitUntilDue(double pts)
{
    const auto now = Clock::now();
    Clock::time_point due;
    if (pts < 0) {
        // No timestamps: a steady rate.
        const auto period =
            std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(1.0 / m_opts.fps));
        due = m_clockValid ? m_lastDue + period : now;
    } else {
        // The clock starts again at a new start: the first picture, after
        // a pause or seek, when the stream loops (its time goes back) and
        // at a jump forward no picture lasts (a gap in the timestamps must
        // not become a long wait).
        if (!m_clockValid || pts < m_lastPts || pts > m_lastPts + 5.0)
            m_clockBase = now - std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(pts));
        due = m_clockBase + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(pts));
        // Far behind (decoding slower than the stream): go on from here
        // rather than rush through the backlog.
        if (due + std::chrono::milliseconds(250) < now) {
            m_clockBase += now - due;
            due = now;
        }
        m_lastPts = pts;
    }
    if (due < now) due = now; // running late: don't try to catch up
    m_lastDue = due;
    m_clockValid = true;

    const int interrupts = m_interrupts;
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(due - Clock::now()).count();
        if (left <= 0) return true;
        m_window.WaitForEvent(int(std::min<long long>(left, 50)));
        HandleEvents();
        if (m_interrupts != interrupts) return false;
    }
}

void Player::ApplySeek()
{
    const double by = m_seekBy;
    m_seekBy = 0.0;
    if (m_source->SeekBy(by)) std::printf("seek %+g s\n", by);
    else std::printf("this input can't seek\n");
    m_clockValid = false;
    std::fflush(stdout);
}

bool Player::PlayFrames(long frames)
{
    for (long i = 0; frames < 0 || i < frames;) {
        HandleEvents();
        if (m_quit) return false;
        if (m_paused && m_seekBy == 0.0) {
            // Nothing is pushed: the display keeps the last picture.
            m_window.WaitForEvent(100);
            continue;
        }
        if (m_seekBy != 0.0) ApplySeek();
        Picture picture;
        std::string error;
        if (!m_source->Next(&picture, &error)) {
            std::fprintf(stderr, "%s\n", error.c_str());
            m_failed = true;
            return false;
        }
        // Paused: a seek shows the picture it lands on and stays paused.
        if (!m_paused && !WaitUntilDue(picture.pts)) {
            if (m_quit) return false;
            if (m_seekBy != 0.0 || m_paused) continue; // this picture is dropped
        }
        PushPicture(picture);
        i++;
    }
    return true;
}

namespace {

bool MakeDirs(const std::string &path)
{
    for (size_t pos = 1; pos <= path.size(); pos++) {
        if (pos == path.size() || path[pos] == '/') {
            if (mkdir(path.substr(0, pos).c_str(), 0755) != 0 && errno != EEXIST) return false;
        }
    }
    return true;
}

bool IsUniform(const ZT5Snapshot &shot)
{
    const uint32_t *px = static_cast<const uint32_t *>(shot.pBuffer);
    const size_t n = size_t(shot.dwWidth) * shot.dwHeight;
    for (size_t i = 1; i < n; i++)
        if (px[i] != px[0]) return false;
    return true;
}

bool Usable(const ZT5Snapshot *shot)
{
    return shot && shot->dwCSType == ZT5_SNAPSHOT_RGBA && shot->pBuffer && shot->dwWidth && shot->dwHeight;
}

} // namespace

// Reads the window back once the display has drawn something: the renderer
// comes up on its own thread after the first frame and a new view compiles
// its shaders, so right after the last frame the window may still be empty.
// Waits (at most a few seconds) for a picture that isn't one flat colour; a
// view that really is flat is taken after the wait.
const ZT5Snapshot *Player::TakeSnapshot()
{
    const ZT5Snapshot *shot = nullptr;
    const auto end = Clock::now() + std::chrono::seconds(4);
    do {
        std::this_thread::sleep_for(std::chrono::milliseconds(40));
        ZT5Snapshot *p = nullptr;
        m_display.Get(ZT5_CFG_DISPLAY_GL_SNAPSHOT, &p);
        if (p) shot = p;
        if (Usable(shot) && !IsUniform(*shot)) break;
    } while (Clock::now() < end);
    return shot;
}

bool Player::WriteSnapshot(const std::string &path)
{
    const ZT5Snapshot *shot = TakeSnapshot();
    if (!shot) {
        std::fprintf(stderr, "no snapshot: the display has no renderer\n");
        return false;
    }
    if (!Usable(shot)) {
        std::fprintf(stderr, "snapshot failed (result 0x%x, %ux%u)\n", shot->dwCSType, shot->dwWidth,
                     shot->dwHeight);
        return false;
    }
    std::string error;
    if (!WriteRgbaPng(path, static_cast<const uint8_t *>(shot->pBuffer), int(shot->dwWidth), int(shot->dwHeight),
                      true, &error)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return false;
    }
    std::printf("snapshot %s (%ux%u)\n", path.c_str(), shot->dwWidth, shot->dwHeight);
    std::fflush(stdout);
    return true;
}

// The views a run shows: those asked for; else, in a headless run that writes
// a snapshot per view, the raw lens picture and the dewarped views 1 to 6;
// else the first dewarped view.
std::vector<int> Player::RunModes() const
{
    if (!m_opts.modes.empty()) return m_opts.modes;
    if (!m_opts.contactSheet.empty()) return {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    if (m_opts.headless && !m_opts.outDir.empty()) return {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    return {1};
}

int Player::Run()
{
    if (!m_opts.outDir.empty() && !MakeDirs(m_opts.outDir)) {
        std::fprintf(stderr, "cannot create %s\n", m_opts.outDir.c_str());
        return 1;
    }
    if (!Setup()) return 1;
    bool ok = true;
    if (m_opts.headless) {
        // A fixed number of frames per view, a snapshot of each.
        const std::vector<int> modes = RunModes();
        const long frames = m_opts.frames > 0 ? m_opts.frames : 45;
        std::vector<SheetTile> tiles;
        for (int mode : modes) {
            SetMode(mode);
            if (!PlayFrames(frames)) break;
            if (!m_opts.outDir.empty()) {
                ok = WriteSnapshot(m_opts.outDir + "/panoview-mode" + std::to_string(mode) + ".png") && ok;
            }
            if (!m_opts.contactSheet.empty()) {
                const ZT5Snapshot *shot = TakeSnapshot();
                if (!Usable(shot)) {
                    std::fprintf(stderr, "no picture of view %d\n", mode);
                    ok = false;
                    continue;
                }
                // Bottom row first as GL reads it; the sheet wants the top first.
                SheetTile t;
                t.mode = mode;
                t.width = int(shot->dwWidth);
                t.height = int(shot->dwHeight);
                t.blank = IsUniform(*shot);
                t.rgba.resize(size_t(t.width) * t.height * 4);
                const uint8_t *src = static_cast<const uint8_t *>(shot->pBuffer);
                const size_t pitch = size_t(t.width) * 4;
                for (int y = 0; y < t.height; y++)
                    std::memcpy(&t.rgba[size_t(y) * pitch], src + size_t(t.height - 1 - y) * pitch, pitch);
                tiles.push_back(std::move(t));
            }
        }
        if (!m_opts.contactSheet.empty() && !m_failed) {
            std::string error;
            if (WriteContactSheet(m_opts.contactSheet, tiles, &error)) {
                std::printf("contact sheet %s (%zu views)\n", m_opts.contactSheet.c_str(), tiles.size());
            } else {
                std::fprintf(stderr, "%s\n", error.c_str());
                ok = false;
            }
        }
    } else {
        PlayFrames(m_opts.frames);
    }
    if (!m_failed && !m_opts.snapshotPath.empty()) {
        ok = WriteSnapshot(m_opts.snapshotPath) && ok;
    }
    std::printf("%ld frames shown\n", m_framesShown);
    m_display.Uninit();
    if (m_failed) return 1;
    return ok ? 0 : 2;
}

// ---------------------------------------------------------------- input

void Player::HandleEvents()
{
    WindowEvent e;
    while (m_window.Poll(&e)) {
        switch (e.type) {
        case WindowEvent::kClose:
            m_quit = true;
            m_interrupts++;
            break;
        case WindowEvent::kResize: OnResize(e.width, e.height); break;
        case WindowEvent::kKey: OnKey(e.key); break;
        case WindowEvent::kButtonDown: OnButtonDown(e); break;
        case WindowEvent::kButtonUp: OnButtonUp(e); break;
        case WindowEvent::kMotion: OnMotion(e); break;
        case WindowEvent::kWheel: OnWheel(e); break;
        default: break;
        }
    }
}

void Player::OnResize(int width, int height)
{
    std::printf("window %dx%d\n", width, height);
    m_display.SetWindow(m_window.id(), width, height);
}

void Player::OnKey(char key)
{
    if (key >= '0' && key <= '9') return SetMode(key - '0');
    switch (key) {
    case ' ':
        m_paused = !m_paused;
        m_clockValid = false;
        m_interrupts++;
        std::printf("%s\n", m_paused ? "paused" : "playing");
        break;
    case WindowEvent::kLeft:
    case WindowEvent::kRight:
    case WindowEvent::kUp:
    case WindowEvent::kDown: {
        const double steps[] = {-5.0, 5.0, 30.0, -30.0};
        m_seekBy += steps[key - WindowEvent::kLeft];
        m_interrupts++;
        break;
    }
    case '-': SetMode(10); break;
    case 'c':
        m_cruise = m_cruise ? 0 : 1;
        std::printf("cruise %s\n", m_cruise ? "on" : "off");
        m_display.Set(ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, &m_cruise, "UITOUCH_AUTOCURISE");
        break;
    case 'p': {
        std::string name = "panoview-snapshot-" + std::to_string(++m_snapshotCount) + ".png";
        WriteSnapshot(m_opts.outDir.empty() ? name : m_opts.outDir + "/" + name);
        break;
    }
    case 'k': SaveViewState(); break;
    case 'r': RestoreViewState(); break;
    case 'q':
    case 27:
        m_quit = true;
        m_interrupts++;
        break;
    default: break;
    }
    std::fflush(stdout);
}

void Player::SaveViewState()
{
    FECurrentStatusData *state = nullptr;
    m_display.Get(ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS, &state);
    if (!state) {
        std::printf("no view state to save yet\n");
        return;
    }
    // The library's record is overwritten by its next save: copy it now.
    std::memcpy(&m_savedState, state, sizeof(m_savedState));
    m_haveSavedState = true;
    // Also into a file, the record's bytes as they are: --output starts
    // from it with --view-state.
    const std::string path = m_opts.viewStatePath.empty() ? "panoview-view.state" : m_opts.viewStatePath;
    FILE *f = std::fopen(path.c_str(), "wb");
    bool written = f && std::fwrite(&m_savedState, sizeof(m_savedState), 1, f) == 1;
    if (f && std::fclose(f) != 0) written = false;
    if (f && !written) std::remove(path.c_str());
    std::printf("view state of mode %d saved (%zu bytes)%s%s\n", m_savedState.mFishEyeMode, sizeof(m_savedState),
                written ? " to " : ", not written to ", path.c_str());
}

void Player::RestoreViewState()
{
    if (!m_haveSavedState) {
        std::printf("press k to save a view state first\n");
        return;
    }
    if (m_savedState.mFishEyeMode != m_mode)
        std::printf("the saved state belongs to mode %d; switch to it to restore\n", m_savedState.mFishEyeMode);
    // The display keeps this pointer and reads it again when it rebuilds its
    // renderer, so it points at a member, not at a temporary.
    m_restoreState = m_savedState;
    m_display.Set(ZT5_CFG_DISPLAY_FE_CURRENTSTATUS, &m_restoreState, "FE_CURRENTSTATUS");
    std::printf("view state restored\n");
}

// The middle button: the frame point under the pointer, printed; in a view
// with an overview (modes 4 and 8) the close pane turns to it.
void Player::OnMiddleClick(const WindowEvent &e)
{
    ZT5PointMap m = {0, float(e.x), float(e.y), 0.0f, 0.0f, -1};
    m_display.Get(ZT5_CFG_DISPLAY_MAP_POINT, &m);
    if (m.lPane < 0) {
        std::printf("window %d,%d shows no point of the frame\n", e.x, e.y);
        return;
    }
    std::printf("window %d,%d shows frame point %.1f,%.1f (pane %d)\n", e.x, e.y, m.fOutX, m.fOutY, int(m.lPane));
    if (m_mode == 4 || m_mode == 8) {
        float point[2] = {m.fOutX, m.fOutY};
        m_display.Set(ZT5_CFG_DISPLAY_AIM_AT, point, "AIM_AT");
    }
    std::fflush(stdout);
}

void Player::OnButtonDown(const WindowEvent &e)
{
    if (e.button == 2) OnMiddleClick(e);
    if (e.button != 1) return;
    const bool doubleClick = e.timeMs - m_lastClickMs < 400 && std::abs(e.x - m_lastClickX) < 8 &&
                             std::abs(e.y - m_lastClickY) < 8;
    m_lastClickMs = e.timeMs;
    m_lastClickX = e.x;
    m_lastClickY = e.y;
    float p[2] = {float(e.x), float(e.y)};
    m_display.Set(ZT5_CFG_DISPLAY_UITOUCH_DOWN, p, "UITOUCH_DOWN");
    m_dragging = true;
    m_lastPoint[0] = p[0];
    m_lastPoint[1] = p[1];
    m_samples[0] = {e.timeMs, p[0], p[1]};
    m_sampleCount = 1;
    if (doubleClick) {
        m_doubleTap[0] = p[0];
        m_doubleTap[1] = p[1];
        m_display.Set(ZT5_CFG_DISPLAY_UITOUCH_DOUBLETAP, m_doubleTap, "UITOUCH_DOUBLETAP");
        m_lastClickMs = 0; // a third click starts afresh
    }
}

void Player::OnMotion(const WindowEvent &e)
{
    if (!m_dragging) return;
    float moved[4] = {m_lastPoint[0], m_lastPoint[1], float(e.x), float(e.y)};
    m_display.Set(ZT5_CFG_DISPLAY_UITOUCH_MOVED, moved, "UITOUCH_MOVED");
    m_lastPoint[0] = moved[2];
    m_lastPoint[1] = moved[3];
    const int cap = int(sizeof(m_samples) / sizeof(m_samples[0]));
    if (m_sampleCount == cap) {
        std::memmove(m_samples, m_samples + 1, sizeof(Sample) * (cap - 1));
        m_sampleCount--;
    }
    m_samples[m_sampleCount++] = {e.timeMs, moved[2], moved[3]};
}

void Player::OnButtonUp(const WindowEvent &e)
{
    if (e.button != 1 || !m_dragging) return;
    m_dragging = false;
    float p[2] = {float(e.x), float(e.y)};
    m_display.Set(ZT5_CFG_DISPLAY_UITOUCH_UP, p, "UITOUCH_UP");
    // Release speed over the last 100 ms of the drag, in pixels per second.
    int first = m_sampleCount - 1;
    while (first > 0 && e.timeMs - m_samples[first - 1].timeMs <= 100) first--;
    const Sample &s = m_samples[first];
    const double dt = double(e.timeMs - s.timeMs) / 1000.0;
    m_moveVelocity[0] = dt > 0 ? float((p[0] - s.x) / dt) : 0.0f;
    m_moveVelocity[1] = dt > 0 ? float((p[1] - s.y) / dt) : 0.0f;
    if (m_moveVelocity[0] != 0.0f || m_moveVelocity[1] != 0.0f)
        m_display.Set(ZT5_CFG_DISPLAY_UITOUCH_MOVE_VELOCITY, m_moveVelocity, "UITOUCH_MOVE_VELOCITY");
}

void Player::OnWheel(const WindowEvent &e)
{
    m_pinchCentre[0] = float(e.x);
    m_pinchCentre[1] = float(e.y);
    m_pinch.zoomRate = e.button > 0 ? 1.1f : 0.9f;
    m_pinch.pCenter = m_pinchCentre;
    m_display.Set(ZT5_CFG_DISPLAY_UITOUCH_VELOCITY, &m_pinch, "UITOUCH_VELOCITY");
}

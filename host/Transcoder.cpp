#include "Transcoder.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "PanoviewHost.h"
#include "VideoEncoder.h"
#include "VideoSource.h"
#include "ZT5Plugin.h"

namespace {

// How long one picture may take to be drawn before the display is given up.
const uint32_t kPictureWaitMs = 10000;

volatile std::sig_atomic_t g_stop = 0;
void OnStopSignal(int) { g_stop = 1; }

const char *MatrixName(uint32_t word)
{
    switch (word & 0xff) {
    case ZT5_YUV_MATRIX_BT709: return "BT.709";
    case ZT5_YUV_MATRIX_BT2020: return "BT.2020";
    default: return "BT.601";
    }
}

// One output: its display, its encoder and the records the display keeps a
// pointer to (they live as long as the display).
struct Output {
    OutputSpec request; // every default filled in
    PanoviewDisplay display;
    VideoEncoder encoder;
    ZT5SharedMemAgent agent = {};
    ZT5SharedMemAgent *pAgent = &agent;
    bool agentSent = false;
    FECurrentStatusData state = {};
    bool haveState = false;
    bool cruiseSent = false;
    std::vector<uint8_t> picture; // I420 of the frame read last, encoded one frame later
    bool pending = false;
    int64_t pendingPts = 0;
    long written = 0;
};

bool ReadViewState(const std::string &path, FECurrentStatusData *state, std::string *error)
{
    FILE *f = std::fopen(path.c_str(), "rb");
    if (!f) {
        *error = "cannot open the view state " + path + ": " + std::strerror(errno);
        return false;
    }
    // Exactly one record: anything else isn't a state saved by `k`.
    const size_t got = std::fread(state, 1, sizeof(*state), f);
    const bool more = std::fgetc(f) != EOF;
    std::fclose(f);
    if (got != sizeof(*state) || more || state->mFishEyeMode < 0 || state->mFishEyeMode > 10) {
        *error = path + " is not a view state (" + std::to_string(sizeof(*state)) + " bytes saved with the k key)";
        return false;
    }
    return true;
}

// Fills in what the output's own list left open.
bool Resolve(const PlayerOptions &opts, Output *o, std::string *error)
{
    OutputSpec &s = o->request;
    if (s.width == 0) {
        s.width = opts.inputWidth > 0 ? opts.inputWidth : 1280;
        s.height = opts.inputHeight > 0 ? opts.inputHeight : 720;
    }
    if (s.width % 2 || s.height % 2) {
        *error = s.path + ": the size must be even for 4:2:0 video, not " + std::to_string(s.width) + "x" +
                 std::to_string(s.height);
        return false;
    }
    if (s.codec.empty()) s.codec = opts.clipCodec;
    s.cruise = s.cruise || opts.cruise;
    if (s.viewState.empty()) s.viewState = opts.viewStatePath;
    if (!s.viewState.empty()) {
        if (!ReadViewState(s.viewState, &o->state, error)) return false;
        o->haveState = true;
    }
    const int modeAsked = s.mode >= 0 ? s.mode : !opts.modes.empty() ? opts.modes.back() : -1;
    if (o->haveState && modeAsked >= 0 && modeAsked != o->state.mFishEyeMode) {
        *error = s.viewState + " holds a state of view " + std::to_string(o->state.mFishEyeMode) + ", not of view " +
                 std::to_string(modeAsked) + " asked for " + s.path;
        return false;
    }
    s.mode = modeAsked >= 0 ? modeAsked : o->haveState ? o->state.mFishEyeMode : 1;
    return true;
}

int32_t FramesPosted(PanoviewDisplay &d)
{
    ZT5RenderStats stats = {};
    d.Get(ZT5_CFG_DISPLAY_RENDER_STATS, &stats);
    return int32_t(stats.dwFramesPosted);
}

int32_t Push(Output &o, const Picture &p)
{
    ZT5FrameInfo info = {};
    info.dwWidth = uint32_t(p.width);
    info.dwHeight = uint32_t(p.height);
    info.dwStride = uint32_t(p.strides[0]);
    info.dwSliceHeight = uint32_t(p.height);
    info.dwCSType = p.csType;
    if (p.contiguous) return o.display.Draw(p.planes[0], info);
    // The decoder's planes as they are; the display copies them before
    // DrawFrame returns.
    o.agent.dwYStride = uint32_t(p.strides[0]);
    o.agent.dwUVStride = uint32_t(p.strides[1]);
    o.agent.dwCheckA = o.agent.dwCheckB = 1;
    o.agent.dwBusy0 = 0;
    o.agent.dwBusy1 = 1;
    for (int i = 0; i < 3; i++) o.agent.pPlane0[i] = p.planes[i];
    if (!o.agentSent) {
        o.display.Set(ZT5_CFG_COMMON_SHAREDMEM_AGENT, &o.pAgent, "COMMON_SHAREDMEM_AGENT");
        o.agentSent = true;
    }
    return o.display.Draw(nullptr, info);
}

std::string Clock(double seconds)
{
    const long s = long(seconds + 0.5);
    char buf[32];
    if (s >= 3600) std::snprintf(buf, sizeof buf, "%ld:%02ld:%02ld", s / 3600, s / 60 % 60, s % 60);
    else std::snprintf(buf, sizeof buf, "%ld:%02ld", s / 60, s % 60);
    return buf;
}

class Transcoder {
public:
    explicit Transcoder(const PlayerOptions &opts) : m_opts(opts) {}
    int Run();

private:
    // The one message of a failed run, on a line of its own; false.
    bool Fail(const std::string &message)
    {
        if (m_progressShown) std::fprintf(stderr, "\n");
        std::fprintf(stderr, "%s\n", message.c_str());
        return false;
    }
    // The same, as the exit code.
    int Exit(const std::string &message)
    {
        Fail(message);
        return 1;
    }
    bool Setup(const Picture &first);
    bool StartDisplay(Output &o, uint32_t colour);
    bool Flush();
    void Progress(double pts, long frames, bool last);

    const PlayerOptions &m_opts;
    VideoSource m_source;
    PanoviewLibrary m_lib;
    std::vector<std::unique_ptr<Output>> m_outputs;
    ZT5FishEyeParam m_lens = {};
    uint32_t m_colour = 0; // the YUV word of the frames, and so of the pictures
    using Steady = std::chrono::steady_clock;
    Steady::time_point m_start;
    Steady::time_point m_lastProgress;
    bool m_progress = false;
    bool m_progressShown = false;
};

bool Transcoder::StartDisplay(Output &o, uint32_t colour)
{
    std::string error;
    if (!o.display.Create(m_lib.plugin(), &error)) return Fail(error);
    o.display.SetVerbose(m_opts.verbose);
    uint32_t size[2] = {uint32_t(o.request.width), uint32_t(o.request.height)};
    if (o.display.Set(ZT5_CFG_DISPLAY_OFFSCREEN_SIZE, size, "OFFSCREEN_SIZE") != ZT5_OK)
        return Fail(o.request.path + ": the display draws 16x16 to 8192x8192 pictures");
    o.display.SetU32(ZT5_CFG_DISPLAY_USE_OPENGLES, 1, "USE_OPENGLES");
    o.display.SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, uint32_t(o.request.mode), "FISHEYE_MODE");
    o.display.Set(ZT5_CFG_COMMON_FISHEYE_PARAM, &m_lens, "COMMON_FISHEYE_PARAM");
    o.display.SetU32(ZT5_CFG_DISPLAY_YUV_MATRIX, colour, "YUV_MATRIX");
    if (o.haveState) {
        // The state is applied when the renderer comes up, and carries its
        // own cruise: a cruise asked for is sent after the first picture.
        o.display.Set(ZT5_CFG_DISPLAY_FE_CURRENTSTATUS, &o.state, "FE_CURRENTSTATUS");
    } else if (o.request.cruise) {
        o.display.SetU32(ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, 1, "UITOUCH_AUTOCURISE");
        o.cruiseSent = true;
    }
    // No window: the display draws off-screen at its size.
    const int32_t res = o.display.Init(0, o.request.width, o.request.height);
    if (res != ZT5_OK) return Fail(o.request.path + ": the display's Init failed with " + std::to_string(res));
    o.picture.resize(size_t(o.request.width) * o.request.height + 2 * size_t(o.request.width / 2) * (o.request.height / 2));
    return true;
}

bool Transcoder::Setup(const Picture &first)
{
    std::string error;
    std::set<std::string> paths;
    for (const OutputSpec &request : m_opts.outputs) {
        m_outputs.emplace_back(new Output);
        Output &o = *m_outputs.back();
        o.request = request;
        if (!paths.insert(request.path).second) return Fail(request.path + " is named as an output twice");
        if (!Resolve(m_opts, &o, &error)) return Fail(error);
    }

    // The picture's colours, or what the command line says instead; the
    // pictures come back in the same colours and the outputs say so.
    uint32_t colour = first.yuvMatrix;
    if (m_opts.colourMatrix >= 0) colour = (colour & ~0xFFu) | uint32_t(m_opts.colourMatrix);
    if (m_opts.colourRange >= 0) colour = (colour & 0xFFu) | (m_opts.colourRange ? ZT5_YUV_RANGE_FULL : 0u);
    m_colour = colour;

    // The encoders first: an output that can't be written stops the run
    // before any work.
    int tbNum = 1, tbDen = 1, rateNum = 30, rateDen = 1;
    m_source.TimeBase(&tbNum, &tbDen);
    m_source.FrameRate(&rateNum, &rateDen);
    for (auto &o : m_outputs) {
        EncoderSettings e;
        e.path = o->request.path;
        e.codec = o->request.codec;
        e.width = o->request.width;
        e.height = o->request.height;
        e.timeBaseNum = tbNum;
        e.timeBaseDen = tbDen;
        e.rateNum = rateNum;
        e.rateDen = rateDen;
        e.matrix = colour & 0xff;
        e.range = (colour & ZT5_YUV_RANGE_FULL) ? 1 : 0;
        if (!o->encoder.Open(e, &error)) return Fail(error);
    }

    // The lens circle: --lens, else the middle of the picture, as tall as
    // the picture, as most fisheye cameras give.
    if (m_opts.haveLens) {
        m_lens = {m_opts.lens[0], m_opts.lens[1], m_opts.lens[2], m_opts.lens[3]};
    } else {
        const int w = first.width, h = first.height;
        m_lens = {5000, 5000, int32_t(int64_t(h) * 5000 / w), 5000};
    }
    std::string lib = m_opts.libPath.empty() ? std::string(PANOVIEW_LIB_PATH) : m_opts.libPath;
    if (!m_lib.Load(lib, &error)) return Fail(error);
    for (auto &o : m_outputs)
        if (!StartDisplay(*o, colour)) return false;
    return true;
}

void Transcoder::Progress(double pts, long frames, bool last)
{
    if (!m_progress) return;
    const auto now = Steady::now();
    if (!last && now - m_lastProgress < std::chrono::milliseconds(250)) return;
    m_lastProgress = now;
    const double elapsed = std::chrono::duration<double>(now - m_start).count();
    const double length = m_source.Length();
    double done = length > 0 ? std::min(1.0, std::max(0.0, pts / length)) : -1.0;
    if (m_opts.frames > 0) done = std::max(done, std::min(1.0, double(frames) / double(m_opts.frames)));
    char line[160];
    int n = 0;
    if (done >= 0) n = std::snprintf(line, sizeof line, "\r%3.0f%%", done * 100);
    else n = std::snprintf(line, sizeof line, "\r%ld frames", frames);
    n += std::snprintf(line + n, sizeof line - size_t(n), "  %.1f fps", elapsed > 0 ? frames / elapsed : 0.0);
    if (done > 0 && !last) n += std::snprintf(line + n, sizeof line - size_t(n), "  %s left", Clock(elapsed * (1 - done) / done).c_str());
    std::fprintf(stderr, "%s   %s", line, last ? "\n" : "");
    std::fflush(stderr);
    m_progressShown = !last;
}

bool Transcoder::Flush()
{
    std::string error;
    for (auto &o : m_outputs) {
        if (!o->pending) continue;
        if (!o->encoder.Write(o->picture.data(), o->pendingPts, &error)) return Fail(error);
        o->pending = false;
        o->written++;
    }
    return true;
}

int Transcoder::Run()
{
    VideoSource::SetLibraryLog(m_opts.verbose);
    std::string error;
    m_source.PlayOnce();
    if (!m_source.Open(m_opts.videoPath, PictureLayout::kAsDecoded, &error)) return Exit(error);
    Picture picture;
    if (!m_source.Next(&picture, &error)) return Exit(error.empty() ? m_opts.videoPath + ": no picture" : error);
    if (!Setup(picture)) return 1;

    m_progress = isatty(STDERR_FILENO) != 0;
    m_start = m_lastProgress = Steady::now();
    std::signal(SIGINT, OnStopSignal);
    std::signal(SIGTERM, OnStopSignal);
    long frames = 0;
    int64_t lastPts = INT64_MIN;
    for (bool more = true; more;) {
        if (g_stop) return Exit("stopped: no output written");
        // Timestamps follow the input's; a stream that repeats one (no
        // timestamps, or a broken one) gets the next tick.
        int64_t pts = m_source.Timestamp(picture);
        if (lastPts != INT64_MIN && pts <= lastPts) pts = lastPts + 1;
        lastPts = pts;
        const double seconds = picture.pts;

        // Every display gets the frame, then draws it while the pictures of
        // the frame before are encoded and the next frame is decoded: the
        // display copies the frame before DrawFrame returns.
        std::vector<uint32_t> ordinals;
        for (auto &o : m_outputs) {
            const int32_t res = Push(*o, picture);
            if (res != ZT5_OK) return Exit(o->request.path + ": DrawFrame failed with " + std::to_string(res));
            ordinals.push_back(uint32_t(FramesPosted(o->display)));
        }
        if (!Flush()) return 1;
        // --frames N: the first N frames only.
        more = (m_opts.frames < 0 || frames + 1 < m_opts.frames) && m_source.Next(&picture, &error);
        if (!more && !error.empty()) return Exit(error);

        for (size_t i = 0; i < m_outputs.size(); i++) {
            Output &o = *m_outputs[i];
            ZT5Picture rec = {};
            rec.pBuffer = o.picture.data();
            rec.dwSize = uint32_t(o.picture.size());
            rec.dwCSType = ZT5_FRAME_CS_I420;
            rec.dwFrameOrdinal = ordinals[i];
            rec.dwWaitMs = kPictureWaitMs;
            const int32_t res = o.display.Get(ZT5_CFG_DISPLAY_PICTURE, &rec);
            if (res != ZT5_OK)
                return Exit(o.request.path + ": no picture of frame " + std::to_string(frames + 1) + " (" +
                            (res == ZT5_ERR_TIMEOUT ? std::string("not drawn in time") : "error " + std::to_string(res)) +
                            ")");
            o.pending = true;
            o.pendingPts = pts;
            if (o.request.cruise && !o.cruiseSent) {
                o.display.SetU32(ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, 1, "UITOUCH_AUTOCURISE");
                o.cruiseSent = true;
            }
        }
        frames++;
        Progress(seconds, frames, false);
    }
    if (!Flush()) return 1;
    for (auto &o : m_outputs)
        if (!o->encoder.Finish(&error)) return Exit(error);
    Progress(m_source.Length(), frames, true);
    const double elapsed = std::chrono::duration<double>(Steady::now() - m_start).count();
    for (auto &o : m_outputs) {
        if (m_opts.verbose) {
            ZT5RenderStats stats = {};
            o->display.Get(ZT5_CFG_DISPLAY_RENDER_STATS, &stats);
            std::printf("%s: %u draws, %u frames posted, %u drawn\n", o->request.path.c_str(), stats.dwDraws,
                        stats.dwFramesPosted, stats.dwFramesDrawn);
        }
        std::printf("wrote %s: %ld pictures of %dx%d, view %d%s, %s, %s %s range\n", o->request.path.c_str(),
                    o->written, o->request.width, o->request.height, o->request.mode, o->request.cruise ? " cruising" : "",
                    o->encoder.CodecName(), MatrixName(m_colour), o->encoder.FullRange() ? "full" : "video");
    }
    std::printf("%ld frames in %.2f s: %.1f frames per second\n", frames, elapsed, elapsed > 0 ? frames / elapsed : 0.0);
    return 0;
}

} // namespace

int RunTranscoder(const PlayerOptions &opts)
{
    Transcoder t(opts);
    return t.Run();
}

// Transcoding a 1080x1080 fisheye clip into a 1280x720 view, still and
// turning: panoview-play FILE --output (the library drawing off-screen, no X
// server) against ffmpeg's v360 filter making the same kind of view of the
// same file: the lens as a 180-degree fisheye in, a flat perspective view
// out. Both encode alike (libx264, preset ultrafast, crf 16), so that the
// runs differ in the dewarp alone.
//
// The view: Panoview's mode 9, one perspective pane of a wall camera's lens
// (its cruise pans it); v360's flat output, 90 degrees wide. Turning: the
// cruise of Panoview; for v360 a sendcmd that turns yaw every frame, which
// makes it build its remap table again for every frame.
//
// Frames per second of each whole run (process start, decode, dewarp,
// encode), each case run twice, alternating, the faster run kept; printed
// with the ratios of one run on one machine. Needs ffmpeg on the PATH.
//
// usage: bench_transcode [frames]   (default 150)
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

using Clock = std::chrono::steady_clock;

// Runs a shell command with its output thrown away; its wall time in
// seconds, negative when it failed.
double Timed(const std::string &cmd)
{
    const auto t0 = Clock::now();
    const int status = std::system((cmd + " >/dev/null 2>&1").c_str());
    const double s = std::chrono::duration<double>(Clock::now() - t0).count();
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? s : -1.0;
}

std::string Quote(const std::string &s) { return "'" + s + "'"; }

} // namespace

int main(int argc, char **argv)
{
    const int frames = argc > 1 ? std::atoi(argv[1]) : 150;
    if (frames < 10) {
        std::fprintf(stderr, "usage: %s [frames >= 10]\n", argv[0]);
        return 64;
    }
    if (std::system("ffmpeg -hide_banner -filters 2>/dev/null | grep -q v360") != 0) {
        std::fprintf(stderr, "needs ffmpeg with the v360 filter on the PATH (scripts/install-deps.sh installs it)\n");
        return 1;
    }
    char dirTemplate[] = "/tmp/bench_transcode.XXXXXX";
    const char *dir = mkdtemp(dirTemplate);
    if (!dir) return 1;
    const std::string d = dir;
    const std::string play = Quote(PANOVIEW_PLAY_PATH) + " --lib " + Quote(PANOVIEW_LIB_PATH);
    const std::string clip = d + "/fisheye.mp4";
    if (Timed(play + " --write-clip " + Quote(clip) + " --size 1080x1080 --fps 30 --frames " +
              std::to_string(frames)) < 0) {
        std::fprintf(stderr, "cannot write the clip\n");
        return 1;
    }

    // v360's turning view: yaw one step further every frame, as a cruise.
    const std::string commands = d + "/turn.txt";
    if (FILE *f = std::fopen(commands.c_str(), "w")) {
        for (int i = 0; i < frames; i++) std::fprintf(f, "%.4f v360 yaw %.2f;\n", i / 30.0, -60.0 + 0.8 * i);
        std::fclose(f);
    }
    const std::string encode = " -c:v libx264 -preset ultrafast -crf 16 ";
    const std::string v360 = "v360=input=fisheye:ih_fov=180:iv_fov=180:output=flat:h_fov=90:v_fov=58.7:w=1280:h=720";
    // The library needs no X server: DISPLAY goes.
    const std::string panoview = "env -u DISPLAY " + play + " " + Quote(clip) + " --mode 9 --size 1280x720 --output ";
    struct Case {
        const char *name;
        std::string cmd;
        double best = -1;
    } cases[] = {
        {"panoview still", panoview + Quote(d + "/pv_still.mp4")},
        {"v360 still", "ffmpeg -y -nostdin -i " + Quote(clip) + " -vf " + v360 + encode + Quote(d + "/v360_still.mp4")},
        {"panoview turning", panoview + Quote(d + "/pv_turn.mp4") + " --cruise"},
        {"v360 turning", "ffmpeg -y -nostdin -i " + Quote(clip) + " -vf sendcmd=f=" + Quote(commands) + "," + v360 +
                             encode + Quote(d + "/v360_turn.mp4")},
    };
    for (int round = 0; round < 2; round++)
        for (Case &c : cases) {
            const double s = Timed(c.cmd);
            if (s < 0) {
                std::fprintf(stderr, "%s failed: %s\n", c.name, c.cmd.c_str());
                return 1;
            }
            if (c.best < 0 || s < c.best) c.best = s;
        }
    std::system(("rm -rf " + Quote(d)).c_str());

    std::printf("%d frames of a 1080x1080 fisheye clip into a 1280x720 view, whole runs (best of 2):\n", frames);
    for (const Case &c : cases) std::printf("  %-18s %6.1f frames per second\n", c.name, frames / c.best);
    const double still = cases[1].best / cases[0].best, turning = cases[3].best / cases[2].best;
    std::printf("panoview / v360, still view:   %.2fx (goal 2x)\n", still);
    std::printf("panoview / v360, turning view: %.2fx (goal 10x)\n", turning);
    return 0;
}

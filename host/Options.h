// Command line of panoview-play.
#ifndef PANOVIEW_HOST_OPTIONS_H
#define PANOVIEW_HOST_OPTIONS_H

#include <cstdint>
#include <string>
#include <vector>

// One output of the transcoder: --output PATH[:key=value,...].
struct OutputSpec {
    std::string path;
    int mode = -1;          // mode=N; -1: --mode, else the view state's, else 1
    bool cruise = false;    // cruise (or --cruise)
    int width = 0;          // size=WxH; 0: --size, else 1280x720
    int height = 0;
    std::string viewState;  // view-state=FILE; empty: --view-state
    std::string codec;      // codec=NAME; empty: --codec
};

struct PlayerOptions {
    std::string libPath;           // --lib
    std::string videoPath;         // FILE: a video file decoded with FFmpeg
    std::string inputPath;         // --input (raw I420); empty: the synthetic scene
    int inputWidth = 0;            // --size WxH of the raw input or of the clip written
    int inputHeight = 0;
    int layout = 0;                // --format: a PictureLayout (0 as decoded, 1 i420, 2 nv12, 3 yuyv, 4 uyvy, 5 yuv420p10, 6 p010)
    int colourMatrix = -1;         // --colour: a ZT5_YUV_MATRIX_* value; -1 the stream's
    int colourRange = -1;          // --range: 0 video, 1 full; -1 the stream's
    std::string clipPath;          // --write-clip OUT: write the scene as a video file and stop
    std::string clipCodec = "h264"; // --codec of --write-clip
    int windowWidth = 1280;        // --window WxH
    int windowHeight = 720;
    std::vector<int> modes;        // --mode N (repeatable); empty: default per run kind
    long frames = -1;              // --frames N; -1: until the window closes
    double fps = 30.0;             // --fps N (frames without timestamps, and written clips)
    std::string snapshotPath;      // --snapshot out.png
    bool haveLens = false;         // --lens cx,cy,rx,ry in 1/10000 of the picture
    int32_t lens[4] = {0, 0, 0, 0};
    bool haveLensModel = false;    // --lens-law, --fov or --k given: ZT5_CFG_COMMON_LENS_MODEL is sent
    uint32_t lensLaw = 0;          // --lens-law: a ZT5_LENS_* value
    float lensFov = 0;             // --fov DEG across the lens circle; 0: 180
    float lensK[4] = {0, 0, 0, 0}; // --k k1,k2,k3,k4 of the polynomial law
    uint32_t fitMode = 0;          // --fit N
    uint32_t rotation = 0;         // --rotation 0|90|180|270 (FrameInfo.dwRotation)
    bool headless = false;         // --headless: no waiting for a window close
    std::string outDir;            // --outdir DIR: snapshots per mode in headless runs
    bool faces = false;            // --faces: moving labelled face rectangles (plain view)
    std::string logoPath;          // --logo FILE.bmp
    std::string fontPath = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf"; // --font FILE
    std::string contactSheet;      // --contact-sheet OUT.png: every view on one picture, then stop
    std::vector<OutputSpec> outputs; // --output (repeatable): transcode FILE into these, no window
    bool cruise = false;           // --cruise: the views of --output cruise
    std::string viewStatePath;     // --view-state FILE: the 264-byte state `k` writes and --output starts from
    bool codecGiven = false;       // --codec was given
    bool verbose = false;          // --verbose
    bool help = false;
};

// Parses argv. Returns false and fills *error on a bad command line.
bool ParseOptions(int argc, char **argv, PlayerOptions *opts, std::string *error);
// PATH[:mode=N,cruise,size=WxH,view-state=FILE,codec=NAME]. A colon whose
// tail isn't such a list belongs to the path.
bool ParseOutput(const std::string &request, OutputSpec *out, std::string *error);
void PrintUsage(const char *argv0);

#endif

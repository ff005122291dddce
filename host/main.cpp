// panoview-play: a small host player for libPanoview.so. Opens an X11
// window, loads the library with dlopen and drives a display the way a
// player does, with the built-in fisheye scene or a raw I420 file as input.
#include <cstdio>
#include <string>

#include "Options.h"
#include "Player.h"

int main(int argc, char **argv)
{
    PlayerOptions opts;
    std::string error;
    if (!ParseOptions(argc, argv, &opts, &error)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        PrintUsage(argv[0]);
        return 64;
    }
    if (opts.help) {
        PrintUsage(argv[0]);
        return 0;
    }
    Player player(opts);
    return player.Run();
}

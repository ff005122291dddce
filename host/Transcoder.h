// panoview-play FILE --output OUT.mp4: the demo host as a dewarping
// transcoder. One decode of FILE feeds one display per output; each display
// draws off-screen (no window, no X server) at its output's size, and the
// pictures it hands back in I420 are encoded with the input's timestamps.
#ifndef PANOVIEW_HOST_TRANSCODER_H
#define PANOVIEW_HOST_TRANSCODER_H

#include "Options.h"

// The process exit code: 0, or 1 after one message on stderr (a missing or
// broken input, an output that can't be written, a display that failed).
// No file is left under an output's name unless it was written whole.
int RunTranscoder(const PlayerOptions &opts);

#endif

// A saved view state restored into each view: the input's first byte picks
// the view, the next 264 bytes are the record (its view tag set to that
// view, or left as it is), the rest a few gestures. After a draw the saved
// state must hold finite floats only (a NaN there blanks the view for good);
// a float that isn't is reported as a finding.
#include <cstdint>
#include <cstring>
#include <deque>

#include "FuzzHost.h"

using fuzz::Bytes;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    IZT5Display *d = fuzz::Display();
    Bytes in(data, size);
    const uint8_t pick = in.U8();
    uint32_t mode = pick % 11;
    d->SetDisplayParam(ZT5_CFG_DISPLAY_FISHEYE_MODE, &mode);
    // The display may keep the record by pointer until the next one.
    static std::deque<FECurrentStatusData> kept;
    kept.emplace_back();
    FECurrentStatusData &rec = kept.back();
    in.Take(&rec, sizeof(rec));
    if (!(pick & 0x80)) rec.mFishEyeMode = int32_t(mode);
    d->SetDisplayParam(ZT5_CFG_DISPLAY_FE_CURRENTSTATUS, &rec);
    if (kept.size() > 8) kept.pop_front();
    fuzz::PushPlainFrame();
    fuzz::Settle();
    // Gestures on the restored camera, each on 4 floats of the input.
    while (in.Left() >= 5) {
        const uint8_t g = in.U8();
        float p[4];
        in.Take(p, sizeof(p));
        switch (g % 5) {
        case 0: d->SetDisplayParam(ZT5_CFG_DISPLAY_UITOUCH_MOVED, p); break;
        case 1: {
            ZT5TouchPinch pinch = {p[0], p + 2};
            d->SetDisplayParam(ZT5_CFG_DISPLAY_UITOUCH_VELOCITY, &pinch);
            break;
        }
        case 2: d->SetDisplayParam(ZT5_CFG_DISPLAY_UITOUCH_MOVE_VELOCITY, p); break;
        case 3: d->SetDisplayParam(ZT5_CFG_DISPLAY_UITOUCH_DOWN, p); break;
        default: d->SetDisplayParam(ZT5_CFG_DISPLAY_UITOUCH_UP, p); break;
        }
    }
    fuzz::PushPlainFrame();
    fuzz::Settle();
    fuzz::CheckSavedStateFinite();
    return 0;
}

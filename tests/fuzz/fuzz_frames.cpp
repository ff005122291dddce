// DrawFrame with random frame descriptions: sizes (odd, tiny, large),
// colour types, rotations, aspect words and lens boxes, in a random view,
// through both roads: one buffer exactly as long as the description says,
// or the shared memory agent's planes with random row pitches, each plane
// exactly as long as its rows are read. A read past a buffer is caught by
// AddressSanitizer.
#include <algorithm>
#include <cstdint>
#include <vector>

#include "FuzzHost.h"
#include "HostIds.h"

using fuzz::Bytes;

namespace {

std::vector<uint8_t> Filled(size_t n, uint8_t seed)
{
    std::vector<uint8_t> v(n);
    for (size_t i = 0; i < n; i++) v[i] = uint8_t(seed + i * 7);
    return v;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    IZT5Display *d = fuzz::Display();
    Bytes in(data, size);
    uint32_t mode = in.U8() % 12; // 11 is refused
    d->SetDisplayParam(ZT5_CFG_DISPLAY_FISHEYE_MODE, &mode);
    ZT5FishEyeParam lens;
    for (int32_t *v : {&lens.lCenterX, &lens.lCenterY, &lens.lRadiusX, &lens.lRadiusY}) *v = int32_t(in.U32() % 12001) - 1000;
    if (in.U8() & 1) d->SetDisplayParam(ZT5_CFG_COMMON_FISHEYE_PARAM, &lens);
    for (int frames = 0; frames < 3 && in.Left() >= 8; frames++) {
        const uint8_t shape = in.U8();
        uint32_t w = 1 + in.U32() % ((shape & 3) == 0 ? 1600 : 200);
        uint32_t h = 1 + in.U32() % ((shape & 12) == 0 ? 1200 : 150);
        const uint32_t cs = kFrameTypes[in.U8() % kFrameTypes.size()];
        const uint8_t r = in.U8();
        const uint32_t rotation = (r & 0x80) ? in.U32() : (r % 4) * 90;
        ZT5FrameInfo info = {w, h, w + in.U8() % 8, h, 0, cs, rotation, uint32_t(in.U8() % 8)};
        if (!(shape & 0x10)) {
            std::vector<uint8_t> buf = Filled(FrameBytes(cs, w, h), shape);
            d->DrawFrame(buf.data(), &info, shape & 0x20 ? 1 : 0);
            continue;
        }
        // The agent road, every drawn layout, rows at the agent's pitches:
        // a little short of a row (which the display must refuse) up to well
        // past it. Each plane is exactly as long as its rows are read.
        ZT5SharedMemAgent agent = {};
        auto pitch = [&](size_t row, int spread) { return uint32_t(std::max(1, int(row) + in.U8() % spread - spread / 8)); };
        const int planeCount = PlaneCount(cs);
        const PlaneRows luma = PlaneOf(cs, w, h, 0), chroma = PlaneOf(cs, w, h, 1);
        agent.dwYStride = pitch(luma.rowBytes, 64);
        agent.dwUVStride = pitch(chroma.rowBytes, 32);
        agent.dwCheckA = in.U8() & 1, agent.dwCheckB = 1;
        agent.dwBusy0 = in.U8() & 1, agent.dwBusy1 = 0;
        // The V-first pairs are read at the luma pitch.
        const bool vFirst = cs == ZT5_FRAME_CS_SEMIPLANAR_A || cs == ZT5_FRAME_CS_SEMIPLANAR_B ||
                            cs == ZT5_FRAME_CS_SEMIPLANAR_C;
        const size_t chromaPitch = vFirst ? agent.dwYStride : agent.dwUVStride;
        auto span = [](size_t pitch, const PlaneRows &p) { return p.rows ? (p.rows - 1) * pitch + p.rowBytes : 0; };
        std::vector<uint8_t> y = Filled(span(agent.dwYStride, luma), shape);
        std::vector<uint8_t> u = Filled(span(chromaPitch, chroma), 90);
        std::vector<uint8_t> v = Filled(span(agent.dwUVStride, chroma), 160);
        uint8_t *planes[3] = {y.data(), planeCount > 1 ? u.data() : nullptr, planeCount > 2 ? v.data() : nullptr};
        if (planeCount == 2) planes[2] = u.data() + (cs == ZT5_FRAME_CS_P010 ? 2 : 1); // the second of the pair
        if (vFirst) std::swap(planes[1], planes[2]);
        for (int i = 0; i < 3; i++) agent.pPlane0[i] = agent.pPlane1[i] = planes[i];
        ZT5SharedMemAgent *pAgent = &agent, *none = nullptr;
        d->SetDisplayParam(ZT5_CFG_COMMON_SHAREDMEM_AGENT, &pAgent);
        d->DrawFrame(nullptr, &info, 0);
        d->SetDisplayParam(ZT5_CFG_COMMON_SHAREDMEM_AGENT, &none);
    }
    fuzz::Settle();
    return 0;
}

// The overlay records a host hands over in the plain view: a BMP logo file
// (the input's first bytes, written to a file whose name is given) and a
// face list (count, tolerance, records from the rest of the input, in memory
// of exactly that many records), drawn with every label option and a font.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "FuzzHost.h"

using fuzz::Bytes;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    IZT5Display *d = fuzz::Display();
    static bool once = [d] {
        uint32_t plain = 0, labels = 0xf;
        d->SetDisplayParam(ZT5_CFG_DISPLAY_FISHEYE_MODE, &plain);
        d->SetDisplayParam(ZT5_CFG_DISPLAY_FACE_OPTION, &labels);
        static char font[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
        d->SetDisplayParam(ZT5_CFG_DISPLAY_FONT_PATH, font);
        return true;
    }();
    (void)once;
    Bytes in(data, size);
    const uint32_t bmpBytes = in.U32() % 4096;
    std::vector<uint8_t> bmp(bmpBytes);
    in.Take(bmp.data(), bmp.size());
    static const std::string path = "/tmp/panoview-fuzz-logo-" + std::to_string(getpid()) + ".bmp";
    if (FILE *f = std::fopen(path.c_str(), "wb")) {
        std::fwrite(bmp.data(), 1, bmp.size(), f);
        std::fclose(f);
    }
    ZT5VideoLogo logo = {const_cast<char *>(path.c_str()), 0.0f, 0.0f, 0.3f, 0.3f, uint32_t(path.size())};
    in.Take(&logo.fX, 4 * sizeof(float));
    d->SetDisplayParam(ZT5_CFG_DISPLAY_LOGO_DATA, &logo);

    ZT5FaceList list = {in.U8() % 60u, in.U32(), nullptr};
    std::vector<ZT5FaceRect> faces(list.dwCount);
    in.Take(faces.data(), faces.size() * sizeof(ZT5FaceRect));
    list.pFaces = faces.empty() ? nullptr : faces.data();
    d->SetDisplayParam(ZT5_CFG_DISPLAY_FACE_LIST, &list);
    fuzz::PushPlainFrame();
    fuzz::Settle();
    return 0;
}

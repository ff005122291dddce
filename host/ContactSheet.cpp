#include "ContactSheet.h"

#include <ft2build.h>
#include FT_FREETYPE_H

#include <algorithm>
#include <cstdio>

#include "PngWriter.h"

const char *ViewName(int mode)
{
    static const char *const names[] = {"plain view",       "half sphere",         "panorama strip",
                                        "four panes",       "map + close pane",    "cylinder",
                                        "dome",             "wall: strip + sides", "wall: overview + close",
                                        "wall: one pane",   "wall: 180 degrees"};
    return mode >= 0 && mode <= 10 ? names[mode] : "?";
}

namespace {

const int kColumns = 4;
const int kGap = 6;      // between tiles and around the sheet
const int kLabel = 20;   // label strip above each tile
const uint8_t kGround[3] = {32, 32, 36};

// Draws `text` in white with its baseline at (x, y), clipped to the sheet
// and to the left of maxX.
void DrawText(FT_Face face, const std::string &text, int x, int y, int maxX, std::vector<uint8_t> &sheet, int sw,
              int sh)
{
    const int right = std::min(sw, maxX);
    for (char ch : text) {
        if (FT_Load_Char(face, FT_ULong((unsigned char)ch), FT_LOAD_RENDER)) continue;
        const FT_GlyphSlot g = face->glyph;
        for (unsigned r = 0; r < g->bitmap.rows; r++) {
            for (unsigned c = 0; c < g->bitmap.width; c++) {
                const int px = x + g->bitmap_left + int(c), py = y - g->bitmap_top + int(r);
                if (px < 0 || py < 0 || px >= right || py >= sh) continue;
                const unsigned a = g->bitmap.buffer[r * unsigned(g->bitmap.pitch) + c];
                uint8_t *d = &sheet[(size_t(py) * sw + px) * 4];
                for (int k = 0; k < 3; k++) d[k] = uint8_t((d[k] * (255 - a) + 255 * a) / 255);
            }
        }
        x += int(g->advance.x >> 6);
    }
}

} // namespace

bool WriteContactSheet(const std::string &path, const std::vector<SheetTile> &tiles, std::string *error)
{
    if (tiles.empty()) {
        *error = "no views to put on a sheet";
        return false;
    }
    const int tw = tiles[0].width, th = tiles[0].height;
    const int cols = std::min<int>(kColumns, int(tiles.size()));
    const int rows = (int(tiles.size()) + kColumns - 1) / kColumns;
    const int sw = kGap + cols * (tw + kGap), sh = kGap + rows * (kLabel + th + kGap);
    std::vector<uint8_t> sheet(size_t(sw) * sh * 4, 255);
    for (size_t i = 0; i < sheet.size(); i += 4) std::copy(kGround, kGround + 3, &sheet[i]);

    FT_Library ft = nullptr;
    FT_Face face = nullptr;
    const char *font = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
    if (FT_Init_FreeType(&ft) || FT_New_Face(ft, font, 0, &face)) {
        std::fprintf(stderr, "no font at %s: the views go unlabelled\n", font);
        face = nullptr;
    } else {
        FT_Set_Pixel_Sizes(face, 0, 13);
    }

    for (size_t i = 0; i < tiles.size(); i++) {
        const SheetTile &t = tiles[i];
        const int x0 = kGap + int(i % kColumns) * (tw + kGap);
        const int y0 = kGap + int(i / kColumns) * (kLabel + th + kGap);
        for (int y = 0; y < std::min(th, t.height); y++)
            std::copy_n(&t.rgba[size_t(y) * t.width * 4], size_t(std::min(tw, t.width)) * 4,
                        &sheet[(size_t(y0 + kLabel + y) * sw + x0) * 4]);
        const std::string label = std::to_string(t.mode) + "  " + ViewName(t.mode) + (t.blank ? " (blank)" : "");
        if (face) DrawText(face, label, x0 + 2, y0 + 14, x0 + tw, sheet, sw, sh);
    }
    if (face) FT_Done_Face(face);
    if (ft) FT_Done_FreeType(ft);
    return WriteRgbaPng(path, sheet.data(), sw, sh, false, error);
}

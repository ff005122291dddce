// The views side by side, each under its mode number and name: the picture
// of the README, made from the built-in scene (panoview-play --contact-sheet).
#ifndef PANOVIEW_HOST_CONTACTSHEET_H
#define PANOVIEW_HOST_CONTACTSHEET_H

#include <cstdint>
#include <string>
#include <vector>

struct SheetTile {
    int mode = 0;
    int width = 0, height = 0;
    std::vector<uint8_t> rgba; // top row first
    bool blank = false;        // one flat colour: the view drew nothing of the scene
};

// What each FishEyeMode shows, in a few words.
const char *ViewName(int mode);

// Tiles in rows of four on a dark ground, a label above each. Labels need
// a TrueType font (DejaVu Sans); without one the sheet has bare tiles.
bool WriteContactSheet(const std::string &path, const std::vector<SheetTile> &tiles, std::string *error);

#endif

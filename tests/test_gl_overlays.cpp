// The plain view's overlays and the background colour, through the host's
// road only: parameter ids, frames, snapshot pixels. Face coordinates are
// pixels of the frame as pushed; with a 640x360 frame in a 640x360 window
// they are window pixels too.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "Harness.h"
#include "ZT5Mutex.h"

using namespace harness;

namespace {

const char kFont[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
const Rgb kGrey = {128, 128, 128};
const Rgb kBlue = {40, 40, 220};

bool IsRed(Rgb c) { return c.r > 180 && c.g < 80 && c.b < 80; }
bool IsGreen(Rgb c) { return c.g > 180 && c.r < 80 && c.b < 80; }
bool IsWhite(Rgb c) { return c.r > 235 && c.g > 235 && c.b > 235; }

long Count(const Image &img, Rect r, bool (*is)(Rgb)) { return CountWhere(img, r, is); }
Rect Bounds(const Image &img, Rect r, bool (*is)(Rgb)) { return BoundsWhere(img, is, r); }

ZT5FaceRect Face(uint32_t id, uint32_t gender, int x, int y, int side, const char *name = "", int32_t age = 30)
{
    ZT5FaceRect f = {};
    f.dwImageID = id;
    f.dwGender = gender;
    f.dwAge = age;
    f.left = x, f.top = y, f.width = side, f.height = side;
    std::snprintf(f.name, sizeof(f.name), "%s", name);
    return f;
}

// A BMP file in memory: bottom-up unless topDown, rows without fill bytes.
// The picture: left quarter yellow, else top half red, bottom half blue.
std::vector<uint8_t> MakeBmp(int w, int h, int bits, bool topDown)
{
    const int bpp = bits / 8;
    std::vector<uint8_t> f(54 + size_t(w) * h * bpp);
    auto put32 = [&](size_t at, uint32_t v) {
        for (int i = 0; i < 4; i++) f[at + i] = uint8_t(v >> (8 * i));
    };
    f[0] = 'B', f[1] = 'M';
    put32(2, uint32_t(f.size()));
    put32(10, 54);
    put32(14, 40);
    put32(18, uint32_t(w));
    put32(22, uint32_t(topDown ? -h : h));
    f[26] = 1, f[28] = uint8_t(bits);
    for (int row = 0; row < h; row++) {
        const int fromTop = topDown ? row : h - 1 - row;
        for (int x = 0; x < w; x++) {
            const Rgb c = x < w / 4 ? Rgb{255, 255, 0} : fromTop < h / 2 ? Rgb{255, 0, 0} : Rgb{0, 0, 255};
            uint8_t *p = &f[54 + (size_t(row) * w + x) * bpp];
            p[0] = c.b, p[1] = c.g, p[2] = c.r;
            if (bpp == 4) p[3] = 0xff;
        }
    }
    return f;
}

std::string WriteFile(const std::string &name, const std::vector<uint8_t> &bytes)
{
    const std::string path = OutputDir() + "/" + name;
    FILE *f = std::fopen(path.c_str(), "wb");
    if (!f) return std::string();
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::fclose(f);
    return path;
}

class Overlays : public ::testing::Test {
protected:
    // The plain view in a window of w x h, the words set before Init.
    void Open(int w, int h, const std::vector<std::pair<uint32_t, uint32_t>> &settings = {})
    {
        rig.reset(new Rig(w, h));
        display = &rig->display;
        ASSERT_TRUE(rig->Started(settings));
    }
    // Pushes the frame until two more draws have finished: a setting made
    // before has reached the view's draw by then.
    Image Settle(Frame &frame, uint32_t rotation = 0)
    {
        const uint32_t start = display->Stats().dwDraws;
        Image img;
        display->PushUntil(frame, [&](const Image &) { return display->Stats().dwDraws >= start + 2; }, &img, rotation);
        EXPECT_GE(display->Stats().dwDraws, start + 2) << "the display stopped drawing";
        return img;
    }
    int32_t SetFaces(const std::vector<ZT5FaceRect> &faces, uint32_t tolerance = 0)
    {
        ZT5FaceList list = {uint32_t(faces.size()), tolerance, faces.data()};
        return display->Set(ZT5_CFG_DISPLAY_FACE_LIST, &list);
    }
    int32_t SetLogo(const std::string &path, float x, float y, float w, float h)
    {
        // The name is ours only for the call: the display copies it.
        std::string name = path;
        ZT5VideoLogo logo = {&name[0], x, y, w, h, uint32_t(name.size())};
        int32_t res = display->Set(ZT5_CFG_DISPLAY_LOGO_DATA, &logo);
        std::fill(name.begin(), name.end(), 'x');
        return res;
    }

    std::unique_ptr<Rig> rig;
    Display *display = nullptr;
};

} // namespace

// Rectangles grow by a fifth of the face on each side and take the colour of
// the gender; labels stand right of their rectangle, one line per item the
// option asks for. At every rotation rectangle and labels stay on the face
// (a blue square painted where the face is).
TEST_F(Overlays, FacesFollowThePictureAndCarryTheirLabels)
{
    ASSERT_NO_FATAL_FAILURE(Open(480, 480));
    display->Set(ZT5_CFG_DISPLAY_FONT_PATH, const_cast<char *>(kFont));
    Frame frame(640, 360, kGrey);
    frame.Fill(200, 120, 260, 180, kBlue);
    ASSERT_EQ(SetFaces({Face(1, 0, 200, 120, 60, "Amy", 41)}), ZT5_OK);

    auto isBlue = [](Rgb c) { return c.b > 180 && c.r < 90 && c.g < 90; };
    for (uint32_t rotation : {0u, 90u, 180u, 270u}) {
        SCOPED_TRACE(rotation);
        display->SetU32(ZT5_CFG_DISPLAY_FACE_OPTION, 1); // rectangles only
        Image shot = Settle(frame, rotation);
        const Rect all{0, 0, shot.width, shot.height};
        const Rect face = Bounds(shot, all, isBlue);
        // A label line is 0.1 of the picture's -1..1 square: a twentieth of
        // the height the picture is shown at.
        const double lineHeight = Bounds(shot, all, [](Rgb c) { return c.r > 60; }).height() / 20.0;
        const Rect rect = Bounds(shot, all, IsRed);
        SaveShot(shot, "_rot" + std::to_string(rotation));
        ASSERT_GT(face.width(), 0);
        // The face is 60 frame pixels, shown at 3/4 (a 640 side in 480).
        const double grow = 0.2 * face.width();
        EXPECT_NEAR(rect.left, face.left - grow, 3);
        EXPECT_NEAR(rect.right, face.right + grow, 3);
        EXPECT_NEAR(rect.top, face.top - grow, 3);
        EXPECT_NEAR(rect.bottom, face.bottom + grow, 3);
        EXPECT_EQ(Count(shot, all, IsGreen), 0);

        // Name, gender and age: three lines right of the rectangle, centred
        // on it; nothing left of it.
        display->SetU32(ZT5_CFG_DISPLAY_FACE_OPTION, 15);
        shot = Settle(frame, rotation);
        const Rect right{rect.right + 1, 0, shot.width, shot.height};
        const Rect label = Bounds(shot, right, IsRed);
        EXPECT_GT(Count(shot, right, IsRed), 150) << "no label";
        EXPECT_EQ(Count(shot, Rect{0, 0, rect.left, shot.height}, IsRed), 0);
        EXPECT_NEAR((label.top + label.bottom) / 2.0, (rect.top + rect.bottom) / 2.0, 8);
        EXPECT_GT(label.height(), 2 * lineHeight);
        EXPECT_LT(label.height(), 3 * lineHeight + 4);
    }

    // Gender colours, and fewer lines without a name: a male face without
    // one shows "male" and its age in green, two lines.
    // (Far from the last face: near it, the face would take its name.)
    frame.Fill(200, 120, 260, 180, kGrey);
    ASSERT_EQ(SetFaces({Face(2, 1, 400, 200, 60)}), ZT5_OK);
    Image shot = Settle(frame);
    const Rect all{0, 0, shot.width, shot.height};
    EXPECT_EQ(Count(shot, all, IsRed), 0);
    const double lineHeight = Bounds(shot, all, [](Rgb c) { return c.r > 60; }).height() / 20.0;
    // The rectangle's top edge stands above the label block: its row gives
    // the rectangle's sides.
    const Rect both = Bounds(shot, all, IsGreen);
    const Rect rect = Bounds(shot, Rect{0, both.top, shot.width, both.top + 2}, IsGreen);
    const Rect label = Bounds(shot, Rect{rect.right + 1, 0, shot.width, shot.height}, IsGreen);
    EXPECT_GT(label.height(), lineHeight);
    EXPECT_LT(label.height(), 2 * lineHeight + 4);
    SaveShot(shot, "_male");
}

// A label starting with a glyph whose ink reaches left of its pen (the hook
// of a J) is drawn whole: in "J J" the first J is as wide as the second.
TEST_F(Overlays, LabelStartingLeftOfItsPenIsDrawnWhole)
{
    ASSERT_NO_FATAL_FAILURE(Open(1200, 1200));
    display->Set(ZT5_CFG_DISPLAY_FONT_PATH, const_cast<char *>(kFont));
    display->SetU32(ZT5_CFG_DISPLAY_FACE_OPTION, 8); // the name line only
    // A tall picture: the line is a twentieth of its 1200 rows, larger than
    // the glyphs were rendered, so that a lost column shows.
    Frame frame(360, 640, kGrey);
    ASSERT_EQ(SetFaces({Face(1, 0, 60, 200, 60, "J J")}), ZT5_OK);
    const Image shot = Settle(frame);
    SaveShot(shot);
    const Rect label = Bounds(shot, Rect{0, 0, shot.width, shot.height}, IsRed);
    ASSERT_GT(label.height(), 20);
    // Runs of inked columns: the two letters.
    std::vector<int> runs;
    bool inRun = false;
    for (int x = label.left; x < label.right; x++) {
        const bool ink = Count(shot, Rect{x, label.top, x + 1, label.bottom}, IsRed) > 0;
        if (ink && !inRun) runs.push_back(0);
        if (ink) runs.back()++;
        inRun = ink;
    }
    ASSERT_EQ(runs.size(), 2u);
    EXPECT_NEAR(runs[0], runs[1], 1) << "the first letter is cut";
}

// A name from the host's list by image id; a face that moved a few pixels
// keeps the name it had a frame before, a face far away doesn't.
TEST_F(Overlays, NamesComeFromTheHostListAndStayWithAMovingFace)
{
    ASSERT_NO_FATAL_FAILURE(Open(640, 360));
    Frame frame(640, 360, kGrey);
    display->Set(ZT5_CFG_DISPLAY_FONT_PATH, const_cast<char *>(kFont));
    display->SetU32(ZT5_CFG_DISPLAY_FACE_OPTION, 1 | 8); // rectangles and names
    CZT5Mutex namesMutex;
    ZT5FaceInfoEntry entries[2] = {};
    ZT5FaceInfoList names = {entries, 2};
    entries[0].dwImageID = 9;
    std::snprintf(entries[0].name, sizeof(entries[0].name), "Other");
    display->Set(ZT5_CFG_DISPLAY_FACE_MUTEX, &namesMutex);
    display->Set(ZT5_CFG_DISPLAY_FACE_INFO, &names);

    // Where the rectangle stands and whether a label is right of it.
    struct Seen {
        int left;
        long label;
    };
    auto look = [&](int expectLeft) {
        Image shot = Settle(frame);
        const Rect rect = Bounds(shot, Rect{0, 0, shot.width, shot.height}, IsRed);
        // The rectangle's own right edge is 3 pixels wide: look beyond it.
        Seen s = {rect.left, Count(shot, Rect{expectLeft + 88, rect.top, shot.width, rect.bottom}, IsRed)};
        return s;
    };

    ASSERT_EQ(SetFaces({Face(5, 0, 100, 100, 60)}), ZT5_OK);
    Seen s = look(88);
    EXPECT_NEAR(s.left, 88, 2);
    EXPECT_EQ(s.label, 0) << "a face without a name shows no name line";

    namesMutex.Lock();
    entries[1].dwImageID = 5;
    std::snprintf(entries[1].name, sizeof(entries[1].name), "Zoe");
    namesMutex.Unlock();
    s = look(88);
    EXPECT_GT(s.label, 50) << "the host's name didn't show";

    // Another image id the list doesn't know, 6 pixels further: same face.
    ASSERT_EQ(SetFaces({Face(6, 0, 106, 100, 60)}), ZT5_OK);
    s = look(94);
    EXPECT_NEAR(s.left, 94, 2);
    EXPECT_GT(s.label, 50) << "the moved face lost its name";
    // And it keeps it while it stands there.
    s = look(94);
    EXPECT_GT(s.label, 50);

    // 200 pixels away it is somebody else.
    ASSERT_EQ(SetFaces({Face(6, 0, 306, 100, 60)}), ZT5_OK);
    s = look(294);
    EXPECT_NEAR(s.left, 294, 2);
    EXPECT_EQ(s.label, 0);
}

// Bad lists are refused with 2 and change nothing: before any list nothing
// is drawn, after a good one it stays drawn. A count of 0 clears.
TEST_F(Overlays, BadFaceListsAreRefusedAndChangeNothing)
{
    ASSERT_NO_FATAL_FAILURE(Open(640, 360));
    Frame frame(640, 360, kGrey);
    // A font FreeType can't read (a directory): rectangles, no labels.
    display->Set(ZT5_CFG_DISPLAY_FONT_PATH, const_cast<char *>(OutputDir().c_str()));
    display->SetU32(ZT5_CFG_DISPLAY_FACE_OPTION, 15);
    ZT5FaceRect unterminated = Face(1, 0, 100, 100, 60);
    std::memset(unterminated.name, 'a', sizeof(unterminated.name));
    std::vector<ZT5FaceRect> tooMany(51, Face(1, 0, 100, 100, 60));
    const ZT5FaceRect one = Face(1, 1, 300, 100, 60);
    const ZT5FaceList bad[] = {
        {1, 0, nullptr},
        {51, 0, tooMany.data()},
        {1, 0, &unterminated},
        {0xffffffffu, 0, &one},
    };
    auto refuseAll = [&] {
        for (const ZT5FaceList &l : bad) EXPECT_EQ(display->Set(ZT5_CFG_DISPLAY_FACE_LIST, const_cast<ZT5FaceList *>(&l)), 2);
        EXPECT_EQ(display->Set(ZT5_CFG_DISPLAY_FACE_LIST, nullptr), 2);
    };

    refuseAll();
    Image shot = Settle(frame);
    const Rect all{0, 0, shot.width, shot.height};
    EXPECT_EQ(Count(shot, all, IsRed) + Count(shot, all, IsGreen), 0);

    ASSERT_EQ(SetFaces({one}), ZT5_OK);
    shot = Settle(frame);
    const long drawn = Count(shot, all, IsGreen);
    EXPECT_GT(drawn, 200);
    EXPECT_EQ(Count(shot, Rect{400, 0, 640, 360}, IsGreen), 0) << "a label without a usable font";
    refuseAll();
    shot = Settle(frame);
    EXPECT_EQ(Count(shot, all, IsGreen), drawn);
    EXPECT_EQ(Count(shot, all, IsRed), 0);

    // Another window: the renderer is made anew, and the list is still there.
    XWindow other(640, 360);
    ASSERT_TRUE(other.ok());
    ASSERT_EQ(display->SetWindow(other.id(), 640, 360), ZT5_OK);
    EXPECT_TRUE(display->PushUntil(frame, [&](const Image &img) { return Count(img, all, IsGreen) == drawn; },
                                   &shot));

    ASSERT_EQ(SetFaces({}), ZT5_OK);
    shot = Settle(frame);
    EXPECT_EQ(Count(shot, all, IsGreen), 0);
}

// The background colour fills the bars of the plain view and the space
// around a fisheye view, set before the first draw (white too) or later,
// and whichever view was shown before.
TEST_F(Overlays, BackgroundColourShowsInEveryViewAndAfterSwitches)
{
    Frame scene = SceneFrame();
    for (uint32_t colour : {0xffffffu, 0x3060c0u}) {
        SCOPED_TRACE(colour);
        ASSERT_NO_FATAL_FAILURE(Open(320, 320, {{ZT5_CFG_DISPLAY_BACK_COLOR, colour}}));
        ZT5FishEyeParam circle = {5000, 5000, 2813, 5000};
        display->Set(ZT5_CFG_COMMON_FISHEYE_PARAM, &circle);
        auto cornerIs = [](uint32_t c) {
            const Rgb want = {uint8_t(c >> 16), uint8_t(c >> 8), uint8_t(c)};
            return [want](const Image &img) {
                return !img.empty() && ColourDistance(img.At(2, 2), want) <= 1 &&
                       ColourDistance(img.At(img.width - 3, img.height - 3), want) <= 1;
            };
        };
        display->SetU32(ZT5_CFG_DISPLAY_FE_BG_CLOUD, 0); // no backdrop behind the half sphere
        display->SetU32(ZT5_CFG_DISPLAY_FE_BG_STAR, 0);
        Image shot;
        for (uint32_t mode : {0u, 1u, 0u, 2u}) {
            display->SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, mode);
            shot = Settle(scene);
            EXPECT_TRUE(cornerIs(colour)(shot)) << "mode " << mode;
            SaveShot(shot, "_" + std::to_string(colour) + "_mode" + std::to_string(mode));
        }
        // Changed while a fisheye view is shown: the plain view has it too.
        display->SetU32(ZT5_CFG_DISPLAY_BACK_COLOR, 0x20a040);
        EXPECT_TRUE(cornerIs(0x20a040)(Settle(scene))) << "mode 2";
        display->SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, 0);
        EXPECT_TRUE(cornerIs(0x20a040)(Settle(scene))) << "mode 0";
        rig.reset();
    }
}

// A BMP logo at its placement, in its colours and the right way up; files
// the loader refuses draw nothing and leave the logo shown before. While a
// lens correction runs and no logo is loaded, the built-in mark stands in
// the bottom right corner.
TEST_F(Overlays, LogoAtItsPlacementAndMalformedFilesRefused)
{
    ASSERT_NO_FATAL_FAILURE(Open(640, 360));
    Frame frame(640, 360, kGrey);

    // The built-in mark under a correction that changes nothing.
    double table[13] = {0, 0, 0, 0, 0, 1, 1, 0, 0, 0, 0, 0, 0};
    ZT5DistortionParam correction = {table, 13};
    display->Set(ZT5_CFG_DISPLAY_DISTORTION_PARAM, &correction);
    Image shot = Settle(frame);
    const Rect bottomRight{320, 180, 640, 360};
    EXPECT_GT(Count(shot, bottomRight, IsWhite), 500) << "no built-in mark";
    SaveShot(shot, "_mark");

    // Placement: left, top, width, height in fractions of the picture.
    const float place[4] = {0.1f, 0.1f, 0.4f, 0.4f};
    auto logoShown = [&](const Image &img) {
        // The picture (under the correction) may not fill the window:
        // find it by its grey, then the logo's quarters in it.
        const Rect pic = Bounds(img, Rect{0, 0, img.width, img.height}, [](Rgb c) { return c.r > 60; });
        auto at = [&](float fx, float fy) {
            return img.At(pic.left + int(pic.width() * (place[0] + place[2] * fx)),
                          pic.top + int(pic.height() * (place[1] + place[3] * fy)));
        };
        const Rgb red = at(0.6f, 0.25f), blue = at(0.6f, 0.75f), yellow = at(0.1f, 0.5f);
        return IsRed(red) && blue.b > 200 && blue.r < 60 && yellow.r > 200 && yellow.g > 200 && yellow.b < 60;
    };

    const std::vector<uint8_t> good = MakeBmp(64, 32, 24, false);
    auto with = [&](std::vector<std::pair<size_t, uint8_t>> bytes) {
        std::vector<uint8_t> f = good;
        for (const auto &b : bytes) f[b.first] = b.second;
        return f;
    };
    const std::vector<uint8_t> wrongMagic = with({{0, 'X'}});
    std::vector<uint8_t> padded = MakeBmp(10, 8, 24, false); // 30-byte rows with 2 fill bytes each
    padded.insert(padded.end(), 16, 0);
    for (int b = 0; b < 4; b++) padded[2 + b] = uint8_t(padded.size() >> (8 * b));
    const std::vector<uint8_t> refused[] = {
        std::vector<uint8_t>(good.begin(), good.end() - 7), // truncated
        wrongMagic,
        with({{28, 8}}),                                    // 8 bits a pixel
        with({{18, 0}, {19, 0}, {20, 0}, {21, 0}}),         // no width
        // 2^31 - 1 wide, the smallest height: every product overflows 32 bits
        with({{18, 0xff}, {19, 0xff}, {20, 0xff}, {21, 0x7f}, {22, 0}, {23, 0}, {24, 0}, {25, 0x80}}),
        with({{10, 0xff}, {11, 0xff}, {12, 0xff}, {13, 0xff}}), // pixels past the end
        padded};
    int n = 0;
    for (const std::vector<uint8_t> &bytes : refused) {
        SCOPED_TRACE(n);
        const std::string path = WriteFile("refused" + std::to_string(n++) + ".bmp", bytes);
        ASSERT_EQ(SetLogo(path, place[0], place[1], place[2], place[3]), ZT5_OK);
        shot = Settle(frame);
        EXPECT_FALSE(logoShown(shot));
        EXPECT_GT(Count(shot, bottomRight, IsWhite), 500) << "the mark went without a logo";
    }
    EXPECT_EQ(SetLogo(OutputDir() + "/no-such-file.bmp", 0, 0, 1, 1), ZT5_OK);

    // Good files: 24 bits with rows not a multiple of 4 bytes (uploaded as
    // they are packed), 32 bits top-down.
    const std::vector<uint8_t> files[] = {MakeBmp(42, 20, 24, false), MakeBmp(64, 32, 32, true)};
    n = 0;
    for (const std::vector<uint8_t> &bytes : files) {
        SCOPED_TRACE(n);
        const std::string path = WriteFile("logo" + std::to_string(n++) + ".bmp", bytes);
        ASSERT_EQ(SetLogo(path, place[0], place[1], place[2], place[3]), ZT5_OK);
        EXPECT_TRUE(display->PushUntil(frame, logoShown, &shot));
        SaveShot(shot, "_logo" + std::to_string(n));
        EXPECT_EQ(Count(shot, bottomRight, IsWhite), 0) << "a loaded logo hides the mark";
    }
    // A refused file after a good one leaves the good one.
    ASSERT_EQ(SetLogo(WriteFile("refused-late.bmp", wrongMagic), place[0], place[1], place[2], place[3]), ZT5_OK);
    shot = Settle(frame);
    EXPECT_TRUE(logoShown(shot));
}

#include "FaceDemo.h"

#include <cmath>
#include <cstring>

namespace {

void SetEntry(ZT5FaceInfoEntry *e, uint32_t id, const char *name)
{
    e->dwImageID = id;
    std::strncpy(e->name, name, sizeof(e->name) - 1);
}

} // namespace

void FaceDemo::Start(PanoviewDisplay &display, const char *pFontPath)
{
    {
        // The display may read the names at any time: change them under the
        // mutex it was given.
        m_NamesMutex.Lock();
        SetEntry(&m_Names[0], 1, "Ada");
        SetEntry(&m_Names[1], 7, "Grace");
        m_NamesMutex.Unlock();
    }
    if (pFontPath && pFontPath[0]) display.Set(ZT5_CFG_DISPLAY_FONT_PATH, const_cast<char *>(pFontPath), "FONT_PATH");
    display.Set(ZT5_CFG_DISPLAY_FACE_MUTEX, &m_NamesMutex, "FACE_MUTEX");
    display.Set(ZT5_CFG_DISPLAY_FACE_INFO, &m_NameList, "FACE_INFO");
    // Rectangles, gender, age and name lines.
    display.SetU32(ZT5_CFG_DISPLAY_FACE_OPTION, 15, "FACE_OPTION");
}

void FaceDemo::Update(PanoviewDisplay &display, long frame, int width, int height)
{
    const double t = double(frame);
    const int side = height / 8;
    // Ada: named by the host's list, swings left and right.
    ZT5FaceRect &a = m_Faces[0];
    a = ZT5FaceRect();
    a.dwImageID = 1;
    a.dwGender = 0;
    a.dwAge = 34;
    a.left = int32_t(width * 0.22 + width * 0.12 * std::sin(t * 0.05));
    a.top = int32_t(height * 0.18);
    a.width = a.height = side;
    // Linus: a name of his own, bobs up and down.
    ZT5FaceRect &b = m_Faces[1];
    b = ZT5FaceRect();
    b.dwImageID = 2;
    b.dwGender = 1;
    b.dwAge = 52;
    std::strcpy(b.name, "Linus");
    b.left = int32_t(width * 0.62);
    b.top = int32_t(height * 0.45 + height * 0.2 * std::sin(t * 0.04));
    b.width = b.height = side;
    // Grace: named by the list while her image id is 7; after 60 frames the
    // id is one the list doesn't know, and she keeps the name because she
    // moves only a few pixels a frame.
    ZT5FaceRect &c = m_Faces[2];
    c = ZT5FaceRect();
    c.dwImageID = (frame % 240) < 60 ? 7 : 8;
    c.dwGender = 0;
    c.dwAge = 41;
    c.left = int32_t(width * 0.15 + (frame % 240) * 2);
    c.top = int32_t(height * 0.62);
    c.width = c.height = side;

    ZT5FaceList list = {kFaces, 0, m_Faces};
    display.Set(ZT5_CFG_DISPLAY_FACE_LIST, &list, "FACE_LIST");
}
